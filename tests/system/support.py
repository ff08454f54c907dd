"""What the system tests share: where things are, a machine that stays booted, and how a run is judged."""

import os
import random
import subprocess
from collections.abc import Iterator
from contextlib import contextmanager
from dataclasses import dataclass
from io import StringIO
from pathlib import Path

import pytest
from veyra_lab.demo.laboratory import Laboratory
from veyra_lab.terminal.screen import Screen
from veyra_lab.updates.judge import judge
from veyra_lab.updates.plan import UpdatePlan
from veyra_lab.updates.record import Record
from veyra_lab.windows.installation import Installation
from veyra_lab.windows.machine import Machine
from veyra_lab.windows.programs import Programs
from veyra_lab.wire.events import Event
from veyra_lab.wire.peer import Peer

CHECKOUT = Path(__file__).resolve().parents[2]
BUILD = Path(os.environ.get("VEYRA_BUILD_FOLDER", CHECKOUT / "build" / "windows-release"))
_PREFIX = "wine-system-"
PREFIX = BUILD / (_PREFIX + os.environ.get("PYTEST_XDIST_WORKER", "gw0"))
DEMO_PREFIX = CHECKOUT / "build" / "wine"

slow = pytest.mark.slow

_booted: list[Machine] = []


def the_machine() -> Machine:
    """The machine of this process, booted when first asked for. The tests share it and leave it as they found it."""
    if not _booted:
        _booted.append(Machine(PREFIX).__enter__())
    return _booted[0]


def is_booted(machine: Machine) -> bool:
    """Whether it is still the one that the_machine() gave."""
    return machine in _booted


def discard_the_machine() -> None:
    """Shuts it down; the next one to ask boots it anew. For the end, and after a test that may have left it astray."""
    while _booted:
        _booted.pop().__exit__(None, None, None)


def end_all_machines() -> None:
    """Shuts down whatever machine of the tests still runs, whoever has booted it."""
    for prefix in BUILD.glob(f"{_PREFIX}*"):
        Machine(prefix).__exit__(None, None, None)


def random_image(size: int) -> bytes:
    """An image that no test has seen before; its seed is printed so that a failure can be repeated."""
    seed = int(os.environ.get("VEYRA_TEST_SEED", random.SystemRandom().randrange(1 << 32)))
    print(f"VEYRA_TEST_SEED={seed}")
    return random.Random(seed).randbytes(size)


def run_update(plan: UpdatePlan, machine: Machine | None = None) -> Record:
    """Goes the whole road, in the tests' own machine if no other is given."""
    laboratory = Laboratory(machine or the_machine(), Programs.of(BUILD), CHECKOUT / "trace")
    return laboratory.run(plan, Screen(StringIO()))


def complaints(record: Record) -> list[str]:
    """What did not hold, in words."""
    return [f"{verdict.name}: {verdict.complaint}" for verdict in judge(record) if not verdict.held]


def run_demo(*options: str, timeout: float = 600) -> subprocess.CompletedProcess[str]:
    """The demo as a person starts it, with its output in a pipe."""
    return subprocess.run(
        [str(CHECKOUT / "scripts" / "demo"), *options],
        capture_output=True,
        text=True,
        timeout=timeout,
        check=False,
        stdin=subprocess.DEVNULL,
    )


@dataclass(frozen=True)
class Bench:
    """A machine with everything installed, for tests that do their own steps."""

    machine: Machine
    peer: Peer
    installation: Installation

    def wait_for_state(self, state: int, since: int = 0) -> Event:
        """Waits for the service's own report of a state."""
        return self.peer.follow(
            lambda event: event["event"] == "service-status" and event["words"][1] == state,
            f"the report of state {state}",
            since=since,
            quiet=20,
        )


@contextmanager
def bench(plan: UpdatePlan | None = None) -> Iterator[Bench]:
    """Installs everything and takes it away again."""
    plan = plan or UpdatePlan()
    machine = the_machine()
    with Peer(plan.stage(), lambda event: None, lambda event: None) as peer:
        machine.forget_crashes()
        installation = Installation(
            machine,
            Programs.of(BUILD),
            image=plan.image,
            update_mode=plan.update_mode,
            toast_server=plan.toast_server,
        )
        try:
            installation.make(peer.port)
            yield Bench(machine, peer, installation)
        finally:
            installation.remove(peer)
