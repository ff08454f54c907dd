"""What one update left behind for its judgement."""

from collections.abc import Iterator
from dataclasses import dataclass, field

from ..wire.events import ENTER_DFU_MODE, RIG, Event
from .plan import UpdatePlan


@dataclass(frozen=True)
class CameraState:
    """Where the camera was, as its own side of the bus told it."""

    mode: str
    version: str
    block_number_gaps: int


@dataclass
class Record:
    """The events of the run and what was read from the machine between them. What a road that broke off never came to
    has its default."""

    plan: UpdatePlan
    events: list[Event] = field(default_factory=list)
    broken_off: str = ""
    install_text: str = ""
    service_key: dict[str, tuple[str, str]] = field(default_factory=dict)
    service_pid: int = 0
    before: CameraState | None = None
    after: CameraState | None = None
    flash: bytes = b""
    # Points in the events: see the road's steps.
    answered_at: int | None = None
    driver_removed_at: int | None = None
    stop_seconds: float | None = None
    process_left: bool = False
    remove_text: str = ""
    state_after_removal: str | None = "never removed"
    crashes: list[str] = field(default_factory=list)
    breaches: list[str] = field(default_factory=list)
    # None: nobody but the laboratory has driven the bus.
    bus_complaints: list[str] | None = None

    def of_service(self, name: str) -> Iterator[Event]:
        """The rig's events of one kind that came from the service's own run, in their order."""
        return (
            event
            for event in self.events
            if event["source"] == RIG and event["event"] == name and event["pid"] == self.service_pid
        )

    def prompt_calls(self, method: str) -> list[Event]:
        """The calls of one method of the toast controller, told by itself, or by the rig for one that tells nothing."""
        return [event for event in self.events if event["event"] == "prompt-call" and event["method"] == method]

    def transfers(self) -> list[Event]:
        """Every control transfer to the camera in DFU mode."""
        return list(self.of_service("transfer"))

    def commands_to_dfu_mode(self) -> list[Event]:
        """The firmware commands that send the camera into DFU mode."""
        return [event for event in self.of_service("firmware-command") if event["opcode"] == ENTER_DFU_MODE]
