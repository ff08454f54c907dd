"""How pytest runs the system tests: each of its workers on a Windows machine of its own, which stays booted.

As the other test programs do, they run in a random order when GTEST_SHUFFLE is set, from GTEST_RANDOM_SEED. What must not
run side by side has a mark xdist_group of one name, and so does what one worker does faster than two."""

import os
import random
import signal
import sys
from collections.abc import Iterator
from types import FrameType

import pytest
import support

_LONGEST_TEST = 1500
_SHUFFLED = os.environ.get("GTEST_SHUFFLE", "0") != "0"

# A shell starts what runs in the background deaf to Ctrl+C; the programs that tests interrupt would inherit that.
signal.signal(signal.SIGINT, signal.default_int_handler)
signal.signal(signal.SIGTERM, signal.default_int_handler)
sys.dont_write_bytecode = True
os.environ["PYTHONDONTWRITEBYTECODE"] = "1"


def _give_up(number: int, frame: FrameType | None) -> None:
    raise TimeoutError(f"the test has not ended for {_LONGEST_TEST} s")


def pytest_configure() -> None:
    signal.signal(signal.SIGALRM, _give_up)
    if _SHUFFLED:
        # The workers that are started later find the same one.
        os.environ.setdefault("GTEST_RANDOM_SEED", str(random.randrange(1, 100_000)))


def pytest_report_header() -> str | None:
    return f"random order, GTEST_RANDOM_SEED={os.environ['GTEST_RANDOM_SEED']}" if _SHUFFLED else None


@pytest.hookimpl(trylast=True)
def pytest_collection_modifyitems(items: list[pytest.Item]) -> None:
    """Tests of one group stay together. What takes longest begins first: the large groups, the slow tests."""
    groups: dict[str, list[pytest.Item]] = {}
    for item in items:
        mark = item.get_closest_marker("xdist_group")
        groups.setdefault(mark.args[0] if mark else item.nodeid, []).append(item)
    pieces = list(groups.values())
    if _SHUFFLED:
        order = random.Random(os.environ["GTEST_RANDOM_SEED"])
        order.shuffle(pieces)
        for piece in pieces:
            order.shuffle(piece)
    pieces.sort(key=lambda piece: (-len(piece), piece[0].get_closest_marker("slow") is None))
    items[:] = [item for piece in pieces for item in piece]


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_protocol(item: pytest.Item) -> Iterator[None]:
    """No test hangs the whole run, and a machine that a failed one may have left astray is not used again."""
    failed = item.session.testsfailed
    signal.setitimer(signal.ITIMER_REAL, _LONGEST_TEST, _LONGEST_TEST)
    yield
    signal.setitimer(signal.ITIMER_REAL, 0)
    if item.session.testsfailed > failed:
        support.discard_the_machine()


def pytest_unconfigure(config: pytest.Config) -> None:
    """Nothing is left running, also after an interruption, or by a worker that ended in the middle."""
    support.discard_the_machine()
    if not hasattr(config, "workerinput"):
        support.end_all_machines()
