"""Counts the instructions of the engine and of a refresh beside those of the bare work. VEYRA_COUNTED_WORK names the program
that does both."""

import os
from functools import cache
from pathlib import Path

import pytest
from veyra_lab.bench.portable.instructions import CountError, instructions

PROGRAM = Path(os.environ["VEYRA_COUNTED_WORK"])
BLOCKS = (1000, 2000, 3000)
LINKS = (10000, 20000, 30000)


@cache
def count(work: str, size: int) -> int:
    """The instructions of one work, each counted once a run."""
    return instructions(PROGRAM, work, str(size))


def slope(first: int, second: int, *works: tuple[str, int]) -> float:
    """Instructions for each further block or link between two sizes; each work with its sign."""
    rise = sum(sign * (count(work, second) - count(work, first)) for work, sign in works)
    return rise / (second - first)


def test_the_engine_adds_no_more_than_3_percent_to_its_transfers() -> None:
    assert slope(*BLOCKS[:2], ("engine", 1)) <= 1.03 * slope(*BLOCKS[:2], ("bare-loop", 1))


def test_the_engine_adds_the_same_for_each_block() -> None:
    """The camera's share, whose flash grows by leaps, is taken off."""
    alone = (("engine", 1), ("bare-loop", -1))
    early, late = slope(*BLOCKS[:2], *alone), slope(*BLOCKS[1:], *alone)
    assert early > 0
    assert abs(late - early) < 0.01 * early


@pytest.mark.parametrize("size", LINKS)
def test_a_refresh_takes_no_more_than_3_times_the_bare_work(size: int) -> None:
    assert count("refresh", size) / count("bare-refresh", size) <= 3


def test_a_refresh_takes_the_same_for_each_link() -> None:
    early, late = slope(*LINKS[:2], ("refresh", 1)), slope(*LINKS[1:], ("refresh", 1))
    assert abs(late - early) < 0.01 * early


def test_instructions_are_the_same_each_time() -> None:
    assert instructions(PROGRAM, "engine", "1000") == pytest.approx(count("engine", 1000), rel=0.001)


def test_instructions_are_not_counted_for_a_program_that_fails() -> None:
    with pytest.raises(CountError, match="no work nonsense"):
        instructions(PROGRAM, "nonsense", "1")


def test_instructions_are_not_counted_for_a_program_that_measures_nothing() -> None:
    with pytest.raises(CountError, match="collected no instructions"):
        instructions(Path("/bin/true"))
