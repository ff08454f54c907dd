"""What a virtual camera in DFU mode would answer: lab/camera/BootLoader in short, as far as its answers go. What is made
from a capture is tried on it before it is written."""

from collections.abc import Mapping
from dataclasses import dataclass, field
from enum import IntEnum
from typing import Any

from .transfer import SET_INTERFACE, End, Request, Transfer

STATUS_BLOCK = 68
STATUS_SIZE = 6
_STATUS_BLOCK_TEXT = b"KV400 boot loader"
_LONGEST_POLL = 0xFFFFFF
_NOT_DONE, _STALLED_PACKET = 9, 15


class State(IntEnum):
    """bState of the USB DFU 1.1 standard, in DFU mode."""

    IDLE = 2
    DNLOAD_SYNC = 3
    DNBUSY = 4
    DNLOAD_IDLE = 5
    MANIFEST_SYNC = 6
    MANIFEST = 7
    MANIFEST_WAIT_RESET = 8
    UPLOAD_IDLE = 9
    ERROR = 10


# A KV400's traits, in a stage's words.
KV400: Mapping[str, Any] = {
    "detach": "accepted",
    "upload": "status block",
    "manifestation": "resets itself",
    "set_interface": "ignored",
    "busy_first": False,
    "answers_while_writing": True,
    "answers_while_manifesting": True,
    "stalls_in_place": False,
    "hides_status": False,
    "hides_write_time": False,
    "writes_at_once": False,
    "takes_empty_image": False,
    "drops_blocks_in_upload": False,
}


@dataclass
class Settings:
    """What is made from a capture: a stage's camera, as far as this depends on it."""

    transfer_size: int = 1024
    block_ms: int = 0
    manifest_ms: int = 300
    reset_ms: int = 1000
    manifests_at_once: bool = False
    traits: dict[str, Any] = field(default_factory=dict)

    def trait(self, name: str) -> Any:
        """Its own, or a KV400's."""
        return self.traits.get(name, KV400[name])


@dataclass(frozen=True)
class Answer:
    """How a request ends, and what comes."""

    end: End = End.OK
    data: bytes = b""


class BootLoader:
    """Begins in dfuIDLE. Times are in milliseconds and never fall."""

    def __init__(self, settings: Settings) -> None:
        self._settings = settings
        self.state = State.IDLE
        self._status = 0
        self._deadline: int | None = None
        self._busy_told = False
        self._wait_told = False
        self._is_manifested = False
        self._flash_size = 4096
        # Of the image that is being downloaded; none when no block of one has come.
        self._image_size: int | None = None
        self._uploaded = 0
        self.has_left = False

    def ask(self, transfer: Transfer, now: int) -> Answer:
        """A request, with its data."""
        self._advance(now)
        if self.has_left:
            return Answer(End.GONE)
        if not transfer.is_dfu:
            return self._set_interface() if transfer.request == SET_INTERFACE else Answer()
        match transfer.request:
            case Request.DETACH:
                return self._detach()
            case Request.DNLOAD:
                return self._dnload(transfer, now)
            case Request.UPLOAD:
                return self._upload(transfer.asked)
            case Request.GETSTATUS:
                return self._get_status(transfer.asked, now)
            case Request.GETSTATE:
                return Answer(data=bytes([self.state])[: transfer.asked]) if self._answers() else self.refuse()
            case Request.CLRSTATUS if self.state is State.ERROR:
                return self._idle()
            case Request.ABORT if self.state in (
                State.IDLE, State.DNLOAD_SYNC, State.DNLOAD_IDLE, State.MANIFEST_SYNC, State.UPLOAD_IDLE,
            ):  # fmt: skip
                return self._idle()
        return self.refuse()

    def refuse(self, status: int = _STALLED_PACKET, *, in_place: bool | None = None) -> Answer:
        """A stall, with what it leads to."""
        stays = self._settings.trait("stalls_in_place") if in_place is None else in_place
        if not stays and self.state is not State.ERROR:
            self.state, self._status, self._deadline = State.ERROR, status, None
        return Answer(End.STALL)

    def _advance(self, now: int) -> None:
        while self._deadline is not None and self._deadline <= now:
            at, self._deadline = self._deadline, None
            if self.state is State.DNBUSY:
                self.state = State.DNLOAD_SYNC
            elif self.state is State.MANIFEST:
                self._end_manifestation(at)
            elif self.state is State.MANIFEST_WAIT_RESET:
                self.has_left = True

    def _detach(self) -> Answer:
        kind = self._settings.trait("detach")
        if kind == "stalls":
            return self.refuse()
        self.has_left = kind != "accepted"
        return Answer()

    def _set_interface(self) -> Answer:
        kind = self._settings.trait("set_interface")
        if kind == "stalls":
            return Answer(End.STALL)
        return self._idle() if kind == "resets state" else Answer()

    def _dnload(self, transfer: Transfer, now: int) -> Answer:
        data = transfer.length
        if self.state is State.UPLOAD_IDLE and self._settings.trait("drops_blocks_in_upload"):
            return Answer()
        if self.state not in (State.IDLE, State.DNLOAD_IDLE) or data > self._settings.transfer_size:
            return self.refuse()
        if not data:
            if self.state is State.IDLE and not self._settings.trait("takes_empty_image"):
                return self.refuse(_NOT_DONE)
            self.state, self._is_manifested = State.MANIFEST_SYNC, False
            return Answer()
        begun = 0 if self.state is State.IDLE else self._image_size or 0
        self._image_size = begun + transfer.length
        self.state, self._busy_told = State.DNLOAD_SYNC, False
        writes_at_once = self._settings.trait("writes_at_once")
        self._deadline = now + (0 if writes_at_once else self._settings.block_ms)
        return Answer()

    def _upload(self, length: int) -> Answer:
        kind = self._settings.trait("upload")
        if not 0 < length <= self._settings.transfer_size:
            return self.refuse()
        if self.state is State.IDLE:
            if kind == "stalls":
                return self.refuse()
            if kind == "status block":
                return Answer(data=_STATUS_BLOCK_TEXT.ljust(STATUS_BLOCK, b"\0")[:length])
            self._uploaded = 0
        elif self.state is not State.UPLOAD_IDLE:
            return self.refuse()
        # Which bytes it would be is not looked at: a camera's flash is its own.
        size = min(length, self._flash_size - self._uploaded)
        self._uploaded += size
        self.state = State.IDLE if size < length else State.UPLOAD_IDLE
        return Answer(data=bytes(size))

    def _get_status(self, length: int, now: int) -> Answer:
        if not self._answers():
            return self.refuse()
        if self.state is State.MANIFEST_SYNC and self._settings.manifests_at_once:
            self._end_manifestation(now)
        if self.state is State.DNLOAD_SYNC:
            if self._settings.trait("busy_first") and not self._busy_told and self._deadline is None:
                self._deadline = now
            self.state = State.DNLOAD_IDLE if self._deadline is None else State.DNBUSY
            self._busy_told = True
        elif self.state is State.MANIFEST_SYNC and self._is_manifested:
            self._idle()
        elif self.state is State.MANIFEST_SYNC:
            self.state, self._deadline = State.MANIFEST, now + self._settings.manifest_ms
        elif self.state is State.MANIFEST_WAIT_RESET and self._wait_told and self._resets_itself:
            self.has_left = True
            return Answer(End.GONE)
        self._wait_told = self.state is State.MANIFEST_WAIT_RESET
        return Answer(data=self._status_reply(now)[:length])

    def _status_reply(self, now: int) -> bytes:
        hides_time = self.state is State.DNBUSY and self._settings.trait("hides_write_time")
        is_busy = self.state in (State.DNBUSY, State.MANIFEST) and self._deadline is not None
        left = (self._deadline or now) - now
        poll = min(left, _LONGEST_POLL) if is_busy and not hides_time else 0
        status = 0 if self._settings.trait("hides_status") else self._status
        return bytes([status, *poll.to_bytes(3, "little"), self.state, 0])

    @property
    def _resets_itself(self) -> bool:
        return bool(self._settings.trait("manifestation") == "resets itself")

    def _end_manifestation(self, at: int) -> None:
        if self._image_size is not None:
            self._flash_size, self._image_size = self._image_size, None
        if self._settings.trait("manifestation") == "tolerant":
            self.state, self._is_manifested = State.MANIFEST_SYNC, True
            return
        self.state = State.MANIFEST_WAIT_RESET
        if self._resets_itself:
            self._deadline = at + self._settings.reset_ms

    def _idle(self) -> Answer:
        self.state, self._status, self._deadline = State.IDLE, 0, None
        self._image_size = None
        return Answer()

    def _answers(self) -> bool:
        if self.state is State.DNBUSY:
            return bool(self._settings.trait("answers_while_writing"))
        if self.state in (State.MANIFEST, State.MANIFEST_WAIT_RESET):
            return bool(self._settings.trait("answers_while_manifesting"))
        return True
