#!/usr/bin/env python3
"""Runs the system tests: test_*.py of this folder, on two machines side by side, each with a process of its own.

As the other test programs do, it runs them in a random order when GTEST_SHUFFLE is set, from GTEST_RANDOM_SEED."""

import argparse
import io
import multiprocessing
import os
import queue
import random
import signal
import sys
import time
import traceback
import unittest
import xml.etree.ElementTree as ElementTree
from collections.abc import Iterator, Sequence
from dataclasses import dataclass
from multiprocessing.queues import Queue
from pathlib import Path

_FOLDER = Path(__file__).resolve().parent
_LABORATORY = _FOLDER.parents[1] / "lab" / "cli"
_LONGEST_TEST = 1500


@dataclass(frozen=True)
class Result:
    """How one test ended: "passed", "failed" or "skipped", and what there is to say about it."""

    name: str
    outcome: str
    seconds: float
    text: str


def tests_in(suite: unittest.TestSuite) -> Iterator[unittest.TestCase]:
    """The single tests of a suite, in its order."""
    for part in suite:
        if isinstance(part, unittest.TestSuite):
            yield from tests_in(part)
        else:
            yield part


def is_slow(test: unittest.TestCase) -> bool:
    """Whether the test is marked with support.slow."""
    return getattr(getattr(test, test.id().rsplit(".", 1)[1], None), "slow", False)


def pieces_of_work(slow: bool, patterns: Sequence[str]) -> list[list[str]]:
    """Names of tests, each list for one machine, the longest list first: modules that say ONE_AT_A_TIME stay whole."""
    pieces: list[list[str]] = []
    for path in sorted(_FOLDER.glob("test_*.py")):
        suite = unittest.defaultTestLoader.loadTestsFromName(path.stem)
        names = [test.id() for test in tests_in(suite) if is_slow(test) == slow]
        names = [name for name in names if not patterns or any(pattern in name for pattern in patterns)]
        if getattr(sys.modules.get(path.stem), "ONE_AT_A_TIME", False):
            pieces.append(names)
        else:
            pieces += [[name] for name in names]
    return sorted((piece for piece in pieces if piece), key=len, reverse=True)


def run_one(name: str) -> Result:
    """Runs one test here. A machine that a failed test may have left astray is not used again."""
    began = time.monotonic()
    stream = io.StringIO()
    suite = unittest.defaultTestLoader.loadTestsFromName(name)
    result = unittest.TextTestRunner(stream, buffer=True).run(suite)
    if not result.wasSuccessful() or result.testsRun != 1:
        import support

        support.discard_the_machine()
        outcome = "failed"
    else:
        outcome = "skipped" if result.skipped else "passed"
    text = result.skipped[0][1] if outcome == "skipped" else stream.getvalue()
    return Result(name, outcome, time.monotonic() - began, text)


def work(number: int, todo: "Queue[list[str] | None]", done: "Queue[Result | None]") -> None:
    """One machine's process: takes piece after piece until there are no more."""
    os.environ["VEYRA_TEST_MACHINE"] = str(number)
    try:
        while (piece := todo.get()) is not None:
            for name in piece:
                done.put(run_one(name))
    except BaseException:
        done.put(Result(f"machine {number}", "failed", 0, traceback.format_exc()))
    done.put(None)


def run_all(pieces: Sequence[list[str]], machines: int) -> Iterator[Result]:
    """The results as they come. A process that falls silent for longer than any test may take ends the run."""
    context = multiprocessing.get_context("spawn")
    todo: Queue[list[str] | None] = context.Queue()
    done: Queue[Result | None] = context.Queue()
    for piece in [*pieces, *[None] * machines]:
        todo.put(piece)
    workers = [context.Process(target=work, args=(number, todo, done)) for number in range(machines)]
    for worker in workers:
        worker.start()
    working = machines
    try:
        while working:
            result = done.get(timeout=_LONGEST_TEST)
            if result is None:
                working -= 1
            else:
                yield result
        for worker in workers:
            worker.join()
    except queue.Empty:
        yield Result("the whole run", "failed", _LONGEST_TEST, f"no test has ended for {_LONGEST_TEST} s")
    finally:
        for worker in workers:
            worker.kill()


def write_results(path: Path, results: Sequence[Result]) -> None:
    """The results in the form that scripts/count-test-cases adds up."""
    suite = ElementTree.Element("testsuite", name="system")
    for result in results:
        case = ElementTree.SubElement(suite, "testcase", name=result.name, time=f"{result.seconds:.3f}")
        if result.outcome == "failed":
            ElementTree.SubElement(case, "failure").text = result.text
        if result.outcome == "skipped":
            ElementTree.SubElement(case, "skipped", message=result.text)
    path.parent.mkdir(parents=True, exist_ok=True)
    ElementTree.ElementTree(suite).write(path, encoding="unicode")


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("pattern", nargs="*", help="run only the tests whose name contains one of these")
    parser.add_argument("--slow", action="store_true", help="run the slow tests, and only those")
    parser.add_argument("--machines", type=int, default=2, help="how many at a time (default: %(default)s)")
    parser.add_argument("--results", type=Path, metavar="FILE", help="write the results as XML")
    options = parser.parse_args()
    # A shell starts what runs in the background deaf to Ctrl+C; the programs that tests interrupt would inherit that.
    signal.signal(signal.SIGINT, signal.default_int_handler)
    sys.dont_write_bytecode = True
    os.environ["PYTHONDONTWRITEBYTECODE"] = "1"
    sys.path[:0] = [str(_FOLDER), str(_LABORATORY)]
    pieces = pieces_of_work(options.slow, options.pattern)
    if os.environ.get("GTEST_SHUFFLE", "0") != "0":
        order = random.Random(os.environ.get("GTEST_RANDOM_SEED"))
        order.shuffle(pieces)
        for piece in pieces:
            order.shuffle(piece)
    results = []
    for result in run_all(pieces, options.machines):
        results.append(result)
        print(f"{result.outcome:8}{result.seconds:6.1f} s  {result.name}", flush=True)
        if result.outcome != "passed":
            print(result.text, flush=True)
    if options.results:
        write_results(options.results, results)
    missing = sum(map(len, pieces)) - len(results)
    if missing > 0:
        print(f"{missing} tests were not run")
    return 0 if results and missing <= 0 and all(result.outcome != "failed" for result in results) else 1


if __name__ == "__main__":
    sys.exit(main())
