"""A few combinations in which every two values meet."""

from collections.abc import Sequence
from itertools import combinations


def cover(sizes: Sequence[int]) -> list[tuple[int, ...]]:
    """Rows of one number for each choice, below its size: any two values of different choices stand together in one of
    them. Always the same rows for the same sizes: each begins with the first pair that is left, and takes for every
    other choice the value with which it has most pairs that are left."""
    left = {
        ((one, first), (other, second))
        for one, other in combinations(range(len(sizes)), 2)
        for first in range(sizes[one])
        for second in range(sizes[other])
    }
    rows = []
    while left:
        row = dict(min(left))
        for choice, size in enumerate(sizes):
            if choice not in row:
                row[choice] = max(
                    range(size),
                    key=lambda value: (sum(_pair((choice, value), held) in left for held in row.items()), -value),
                )
        left -= set(combinations(sorted(row.items()), 2))
        rows.append(tuple(row[choice] for choice in range(len(sizes))))
    return rows


def _pair(one: tuple[int, int], other: tuple[int, int]) -> tuple[tuple[int, int], tuple[int, int]]:
    return (one, other) if one < other else (other, one)
