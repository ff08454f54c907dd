"""Counts the instructions of the engine and of a refresh beside those of the bare work:
instructions_test.py PROGRAM RESULTS, the counted_work program and the file for the cases' results."""

import sys
import unittest
from functools import cache
from pathlib import Path

_CHECKOUT = Path(__file__).resolve().parents[2]
sys.path[:0] = [str(_CHECKOUT / "host" / "support"), str(_CHECKOUT / "lab" / "cli")]

from recorded_results import run_recorded  # noqa: E402
from veyra_lab.bench.portable.instructions import CountError, instructions  # noqa: E402

RESULTS = Path(sys.argv.pop()).resolve()
PROGRAM = Path(sys.argv.pop()).resolve()

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


class Engine(unittest.TestCase):
    def test_adds_no_more_than_3_percent_to_its_transfers(self) -> None:
        own = slope(*BLOCKS[:2], ("engine", 1))
        bare = slope(*BLOCKS[:2], ("bare-loop", 1))
        print(f"engine: {own:.1f} instructions a block, bare loop: {bare:.1f}")
        self.assertLessEqual(own, 1.03 * bare)

    def test_adds_the_same_for_each_block(self) -> None:
        """The camera's share, whose flash grows by leaps, is taken off."""
        alone = (("engine", 1), ("bare-loop", -1))
        early, late = slope(*BLOCKS[:2], *alone), slope(*BLOCKS[1:], *alone)
        self.assertGreater(early, 0)
        self.assertLess(abs(late - early), 0.01 * early)


class Refresh(unittest.TestCase):
    def test_takes_no_more_than_3_times_the_bare_work(self) -> None:
        for size in LINKS:
            relation = count("refresh", size) / count("bare-refresh", size)
            print(f"refresh of {size} links: {relation:.3f} times the bare work")
            self.assertLessEqual(relation, 3)

    def test_takes_the_same_for_each_link(self) -> None:
        early, late = slope(*LINKS[:2], ("refresh", 1)), slope(*LINKS[1:], ("refresh", 1))
        self.assertLess(abs(late - early), 0.01 * early)


class Instructions(unittest.TestCase):
    def test_are_the_same_each_time(self) -> None:
        self.assertAlmostEqual(
            instructions(PROGRAM, "engine", "1000"), count("engine", 1000), delta=0.001 * count("engine", 1000)
        )

    def test_are_not_counted_for_a_program_that_fails(self) -> None:
        with self.assertRaisesRegex(CountError, "no work nonsense"):
            instructions(PROGRAM, "nonsense", "1")

    def test_are_not_counted_for_a_program_that_measures_nothing(self) -> None:
        with self.assertRaisesRegex(CountError, "collected no instructions"):
            instructions(Path("/bin/true"))


if __name__ == "__main__":
    run_recorded(RESULTS)
