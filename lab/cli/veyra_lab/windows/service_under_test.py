"""The service's process in the machine: started, stopped, and looked at from outside."""

import threading
import time
from collections.abc import Callable
from dataclasses import dataclass

from ..wire.events import RIG, RUNNING, STOP_CONTROL, STOPPED, Event
from ..wire.peer import Peer
from .machine import Machine
from .programs import SERVICE

# In what time it has to have stopped.
STOP_LIMIT_SECONDS = 2.0
_SHUTDOWN_CONTROL = 5
_PATIENCE = 20
SETTLING_PATIENCE = 45
# Wine ends the idle threads of its pools after five seconds.
_LEAVING_PATIENCE = 15
_NOT_STARTED = "ShellExecuteEx failed"


@dataclass(frozen=True)
class Resources:
    """What a process holds: its private memory without the threads' own blocks, which Wine keeps when threads end."""

    handles: int
    threads: int
    private_kib: int


class ServiceUnderTest:
    """Installed already, under the product's name or another. It may be started and stopped any number of times."""

    def __init__(self, machine: Machine, peer: Peer, name: str = SERVICE) -> None:
        self._machine = machine
        self._peer = peer
        self._name = name
        self._pid = 0
        self._started_at = 0
        self._asking: threading.Thread | None = None
        self.is_up = False
        self.pids: set[int] = set()

    def start(self) -> float:
        """Starts it and waits until it reports that it runs; returns the seconds from the request to the report."""
        self._started_at = self._peer.mark()
        asked = self._peer.record("start requested", name=self._name)
        self._control("start")
        report = self.follow(
            lambda event: event["event"] == "service-status" and event["words"][1] == RUNNING,
            "the service's report that it runs",
            self._started_at,
        )
        self._pid = report["pid"]
        self.pids.add(self._pid)
        self.is_up = True
        return report["t"] - asked["t"]

    def stop(self) -> float:
        """Stops it; returns the seconds from the control to its report. Its process is gone then."""
        since = self._peer.mark()
        self._control("stop")
        asked = self.follow(
            lambda event: event["event"] == "control" and event["control"] == STOP_CONTROL,
            "the control that stops the service",
            since,
        )
        return self._wait_until_stopped()["t"] - asked["t"]

    def ask_to_stop(self) -> None:
        """The service control manager's stop, which stays unanswered while the service is busy."""
        self._asking = threading.Thread(target=self._machine.run, args=("sc", "stop", self._name))
        self._asking.start()

    def await_stop(self) -> None:
        """Waits for the end of what ask_to_stop() or a control has begun."""
        self._wait_until_stopped()
        if self._asking is not None:
            self._asking.join(timeout=_PATIENCE)

    def shut_down(self) -> None:
        """What the system's end does to it."""
        self._peer.command(RIG, "control", control=_SHUTDOWN_CONTROL)
        self._wait_until_stopped()

    def is_alive(self) -> bool:
        """Whether its process is there."""
        return self.is_up and self._peer.is_connected(self._pid)

    def has_left(self, event: Event) -> bool:
        """Whether the event tells of its end."""
        return event["event"] == "gone" and event["pid"] == self._pid

    def resources(self) -> Resources:
        """What its process holds now."""
        answer = self._peer.command(RIG, "resources")
        private_bytes = answer["private_bytes"] - answer["thread_block_bytes"]
        return Resources(answer["handles"], answer["threads"], private_bytes // 1024)

    def resources_once(self, fit: Callable[[Resources], bool], patience: float = _LEAVING_PATIENCE) -> Resources:
        """What its process holds once that fits, or in the end: threads that have done their work take a while to go,
        the uninstall monitor's too."""
        deadline = time.monotonic() + patience
        while not fit(held := self.resources()) and time.monotonic() < deadline:
            time.sleep(0.1)
        return held

    def settle(self) -> None:
        """Waits until it has handled everything and no camera has anything pending."""
        self._peer.command(RIG, "settle", quiet=SETTLING_PATIENCE)

    def end(self) -> None:
        """Leaves no process of it behind, in whatever state it is."""
        if self._asking is not None:
            self._asking.join(timeout=3 * _PATIENCE)
        if not self.is_up:
            return
        self._machine.end_service(self._name)
        # The process ends a little after its report; a start before that would be refused.
        deadline = time.monotonic() + _PATIENCE
        while self.is_alive() and time.monotonic() < deadline:
            time.sleep(0.05)
        self.is_up = False

    def wait_for_state(self, name: str, wanted: str) -> str:
        """Waits until a service is "running", "stopped" or "deleted", and returns the state seen last."""
        deadline = time.monotonic() + _PATIENCE
        while (state := _word(self._machine.service_state(name))) != wanted and time.monotonic() < deadline:
            time.sleep(0.2)
        return state

    def follow(
        self, wanted: Callable[[Event], bool], what: str, since: int, patience: float = _PATIENCE
    ) -> Event:
        """Waits for an event, with the patience that the service deserves."""
        return self._peer.follow(wanted, what, since=since, quiet=patience)

    def _control(self, verb: str) -> None:
        # Where scripts/wine cannot fix the addresses, sc now and then does not start, and Wine says so in these words.
        if _NOT_STARTED in self._machine.run("sc", verb, self._name).text:
            self._machine.demand("sc", verb, self._name)

    def _wait_until_stopped(self) -> Event:
        stopped = self.follow(
            lambda event: event["event"] == "service-status"
            and event["pid"] == self._pid
            and event["words"][1] == STOPPED,
            "the service's report that it has stopped",
            self._started_at,
        )
        self.follow(self.has_left, "the end of the service's process", self._started_at)
        self.is_up = False
        return stopped


def _word(state: str | None) -> str:
    return "deleted" if state in (None, "DELETED") else str(state).lower()
