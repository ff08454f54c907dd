"""What the system tests share: where things are, a machine that stays booted, and how a run is judged."""

import json
import os
import random
import subprocess
import sys
from collections.abc import Callable
from contextlib import AbstractContextManager, ExitStack, suppress
from dataclasses import replace
from pathlib import Path
from types import TracebackType
from typing import Any, Generic, TypeVar

import pytest
from veyra_lab.buses.virtual import VirtualBus
from veyra_lab.demo.road import Road
from veyra_lab.updates.judge import judge
from veyra_lab.updates.plan import UpdatePlan
from veyra_lab.updates.record import Record
from veyra_lab.windows.installation import READING_SECONDS, Installation, remove_service
from veyra_lab.windows.machine import Machine
from veyra_lab.windows.programs import SERVICE, Programs
from veyra_lab.wire.events import RUNNING, TOAST, Event
from veyra_lab.wire.peer import Peer
from veyra_lab.wire.trace_formats import TraceFormats

CHECKOUT = Path(__file__).resolve().parents[2]
BUILD = Path(os.environ.get("VEYRA_BUILD_FOLDER", CHECKOUT / "build" / "windows-release"))
_PREFIX = "wine-system-"
PREFIX = BUILD / (_PREFIX + os.environ.get("PYTEST_XDIST_WORKER", "gw0"))
DEMO_PREFIX = CHECKOUT / "build" / "wine"
TRACE_FORMATS = CHECKOUT / "trace"

T = TypeVar("T")

slow = pytest.mark.slow

# What the fixture `run` gives.
Run = Callable[..., tuple[int, str, str]]

_booted: list[Machine] = []
_shared: "list[Shared[Any]]" = []


def the_machine() -> Machine:
    """The machine of this process, booted when first asked for. The tests share it and leave it as they found it."""
    if not _booted:
        _booted.append(Machine(PREFIX).__enter__())
    return _booted[0]


def discard_the_machine() -> None:
    """Shuts it down; the next one to ask boots it anew. For the end, and after a test that may have left it astray."""
    while _shared:
        with suppress(Exception):
            _shared.pop().leave()
    while _booted:
        _booted.pop().__exit__(None, None, None)


def end_machines_of_workers() -> None:
    """Shuts down whatever machine of a worker still runs."""
    for prefix in BUILD.glob(f"{_PREFIX}*"):
        Machine(prefix).__exit__(None, None, None)


class Shared(Generic[T]):
    """What tests share in the machine: made when first asked for, and anew after it was taken away with its machine."""

    def __init__(self, make: Callable[[Machine], AbstractContextManager[T]]) -> None:
        self._make = make
        self._parts = ExitStack()
        self._values: list[T] = []

    def get(self) -> T:
        """The one that is there, or a new one."""
        if not self._values:
            self._values.append(self._parts.enter_context(self._make(the_machine())))
            _shared.append(self)
        return self._values[0]

    def leave(self) -> None:
        """Takes it away, if it is there."""
        self._values.clear()
        self._parts.close()

    def values(self) -> list[T]:
        """The one that is there, if it is."""
        return list(self._values)


def last_events(count: int = 30) -> str:
    """What was heard last of the benches that the tests share, a line each, behind the contracts of Windows that were
    broken: nobody hears of these when a bench is taken away after a failure."""
    peers = [value.peer for each in _shared for value in each.values() if isinstance(value, Bench)]
    return "\n".join(
        line for peer in peers for line in (*peer.breaches(), *map(json.dumps, peer.events()[-count:]))
    )


def random_image(size: int) -> bytes:
    """An image that no test has seen before; its seed is printed so that a failure can be repeated."""
    seed = int(os.environ.get("VEYRA_TEST_SEED", random.SystemRandom().randrange(1 << 32)))
    print(f"VEYRA_TEST_SEED={seed}")
    return random.Random(seed).randbytes(size)


def complaints(record: Record) -> list[str]:
    """What did not hold, in words."""
    return [f"{verdict.name}: {verdict.complaint}" for verdict in judge(record) if not verdict.held]


def check_refusal(said: tuple[int, str, str], because: str, status: int = 2) -> None:
    """A program says in one line on standard error what is wrong: status, output, errors."""
    assert said[:2] == (status, ""), said
    assert said[2].count("\n") == 1, said
    assert because in said[2]


def run_script(name: str, *arguments: str, timeout: float = 600) -> subprocess.CompletedProcess[str]:
    """A script as a person starts it, with its output in pipes."""
    return subprocess.run(
        [str(CHECKOUT / "scripts" / name), *arguments],
        capture_output=True,
        text=True,
        timeout=timeout,
        check=False,
        stdin=subprocess.DEVNULL,
    )


class Bench:
    """A machine with all that a camera's software package installs, but the service; for tests that do their own steps.
    Use it as a context."""

    def __init__(self, machine: Machine, plan: UpdatePlan | None = None) -> None:
        self._plan = plan or UpdatePlan()
        self.machine = machine
        self.peer = Peer(self._plan.stage(), TraceFormats(TRACE_FORMATS).add_words, lambda event: None)
        self.installation = Installation(
            machine, Programs.of(BUILD), image=self._plan.image, update_mode=self._plan.update_mode
        )

    def __enter__(self) -> "Bench":
        self.peer.__enter__()
        try:
            self.machine.forget_crashes()
            self.installation.make(self.peer.port)
        except BaseException:
            self.__exit__(*sys.exc_info())
            raise
        return self

    def __exit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None
    ) -> None:
        try:
            self.installation.remove(self.peer)
        finally:
            self.peer.__exit__(kind, error, trace)

    def clear(self) -> None:
        """Takes the service away that a test has installed, and what it has left."""
        remove_service(self.machine, SERVICE)
        self.machine.forget_crashes()

    def start_service(self) -> int:
        """Starts the service, which is installed already, and waits until it runs; its process id."""
        since = self.peer.mark()
        self.machine.demand("sc", "start", SERVICE)
        return self.wait_for_state(RUNNING, since)["pid"]

    def wait_for_state(self, state: int, since: int) -> Event:
        """Waits for the service's own report of a state."""
        return self.peer.follow(
            lambda event: event["event"] == "service-status" and event["words"][1] == state,
            f"the report of state {state}",
            since=since,
            quiet=20,
        )

    def walk(self, plan: UpdatePlan) -> Record:
        """Goes the whole road of another update: what is installed is the same, with its image and its update mode."""
        self.machine.forget_crashes()
        self.peer.set_stage(plan.stage())
        self.installation.put_image(plan.image)
        self.installation.set_keys(self.peer.port, plan.update_mode)
        has_laboratorys = plan.toast_server and not plan.window
        if not has_laboratorys:
            assert self.peer.dismiss(TOAST, seconds=20)
            self.installation.put_toast_server(False)
        record = self.record_of(Road(plan, self.machine, self.peer, VirtualBus(self.peer), self.installation))
        if not has_laboratorys:
            self.installation.take_toast_controller_away(READING_SECONDS)
            self.installation.put_toast_server(True)
        return record

    def record_of(self, road: Road) -> Record:
        """Goes a road. What happened here before is no part of its record."""
        began = self.peer.mark()
        record = road.walk()
        return replace(
            record,
            events=record.events[began:],
            answered_at=None if record.answered_at is None else record.answered_at - began,
            driver_removed_at=None if record.driver_removed_at is None else record.driver_removed_at - began,
        )
