"""The downloads of a transcript: every control transfer understood, and where a download stopped and why."""

from collections.abc import Iterable, Iterator
from dataclasses import dataclass, field
from enum import Enum

from .codes import BAD_LENGTH, DFU_STATES, DFU_STATUSES, E_FAIL, Code, named, win32_as_hresult
from .transcript import Event, number, octets, text, texts

_REQUESTS = ("DETACH", "DNLOAD", "UPLOAD", "GETSTATUS", "CLRSTATUS", "GETSTATE", "ABORT")
_IDLE = 2
_DOWNLOAD_IDLE = 5
_MANIFEST_WAIT_RESET = 8
_ERROR = 10
_PROBE_SIZE = 68
# How long the service waits for a block, and for the whole image to be taken into use.
_BLOCK_LIMIT_SECONDS = 5
_IMAGE_LIMIT_SECONDS = 30


class Role(Enum):
    """What a transfer means for its download. The values go on after "which"."""

    PLAIN = "the service ignores"
    WAIT = "makes the service ask again"
    FAILED = "ended the download"
    EXPECTED = "the camera restarts over"
    IGNORED = "the service ignores"


@dataclass(slots=True)
class Transfer:
    """One control transfer."""

    t: float
    request: str
    value: int
    length: int
    ok: bool
    error: int
    data: bytes
    # Of a DNLOAD with data: which block of the image it is, from 1. Of a GETSTATUS: the block that it asks about.
    block: int = 0
    role: Role = Role.PLAIN

    @property
    def code(self) -> Code:
        """What the service made of it."""
        return win32_as_hresult(self.error)

    @property
    def status(self) -> int | None:
        """bStatus of a GETSTATUS that was answered."""
        return self.data[0] if self.request == "GETSTATUS" and self.ok and len(self.data) >= 5 else None

    @property
    def state(self) -> int | None:
        """bState of a GETSTATUS or GETSTATE that was answered."""
        if not self.ok:
            return None
        if self.request == "GETSTATUS":
            return self.data[4] if len(self.data) >= 5 else None
        return self.data[0] if self.request == "GETSTATE" and self.data else None


class End(Enum):
    """How a download ended."""

    FINISHED = "finished"
    STOPPED = "stopped"
    OPEN = "open"


@dataclass
class Download:
    """One download from the opening of the device in DFU mode to its closing. Times are the transcript's."""

    began: float
    pid: int | None
    transfers: list[Transfer] = field(default_factory=list)
    announced: int | None = None
    ended: float | None = None
    # Whether the service said that it is over.
    completed: bool = False
    end: End = End.OPEN
    # Blocks and bytes that the camera has confirmed, and the block that was sent last, from 1.
    confirmed: int = 0
    bytes_confirmed: int = 0
    sent: int = 0
    bytes_sent: int = 0
    complete_image: bool = False
    waits: int = 0
    wait_seconds: float = 0.0
    curve: list[tuple[float, int, int]] = field(default_factory=list)
    why: str = ""
    code: Code | None = None
    culprit: Transfer | None = None

    @property
    def last(self) -> float:
        """When the last thing of it happened."""
        return (
            self.ended if self.ended is not None else self.transfers[-1].t if self.transfers else self.began
        )

    @property
    def stopped_at(self) -> float:
        """When it stopped, if it did."""
        return self.culprit.t if self.culprit else self.last

    @property
    def blocks(self) -> int | None:
        """How many blocks the image has, as far as the transcript tells: the service announces whole blocks only."""
        if self.complete_image:
            return self.confirmed
        known = max(self.announced or 0, self.sent)
        return known or None


def downloads(events: Iterable[Event]) -> list[Download]:
    """Every download, in the order of their beginnings."""
    gathering = _Gathering()
    for event in events:
        gathering.take(event)
    for download in gathering.found:
        _Walk(download).go()
    return gathering.found


class _Gathering:
    """Puts the events together that belong to one download."""

    def __init__(self) -> None:
        self.found: list[Download] = []
        self._open: dict[int | None, Download] = {}
        # The toast server's report of the announcement may stand before the rig's of the device's opening.
        self._announced: int | None = None

    def take(self, event: Event) -> None:
        kind, pid = event["event"], number(event, "pid")
        if (
            kind == "usb-open"
            and event.get("ok") is not False
            or kind == "transfer"
            and pid not in self._open
        ):
            self._begin(event, pid)
        if kind == "transfer":
            self._open[pid].transfers.append(_transfer(event))
        elif kind == "usb-close" and pid in self._open:
            self._open.pop(pid).ended = event["t"]
        elif kind == "gone" and pid in self._open:
            download = self._open.pop(pid)
            download.ended = event["t"]
            download.why = "the service's process ended in the middle of it"
        elif kind == "prompt-call":
            self._take_prompt_call(event)

    def _begin(self, event: Event, pid: int | None) -> None:
        self._open[pid] = Download(event["t"], pid, announced=self._announced)
        self._announced = None
        self.found.append(self._open[pid])

    def _take_prompt_call(self, event: Event) -> None:
        newest = list(self._open.values())[-1] if self._open else None
        if text(event, "method") == "NotifyComplete" and newest is not None:
            newest.ended = event["t"]
            newest.completed = True
        announced = announced_blocks(event)
        if announced is not None:
            if newest is not None and newest.announced is None:
                newest.announced = announced
            else:
                self._announced = announced


def announced_blocks(event: Event) -> int | None:
    """The number of blocks in a "start:" call; None for every other event."""
    said = texts(event, "texts")
    if event["event"] != "prompt-call" or not said or not said[0].startswith("start:"):
        return None
    count = said[0].removeprefix("start:")
    return int(count) if count.isascii() and count.isdecimal() and len(count) < 12 else None


def _transfer(event: Event) -> Transfer:
    setup = octets(event, "setup").ljust(8, b"\0")
    request = _REQUESTS[setup[1]] if setup[1] < len(_REQUESTS) else f"request {setup[1]}"
    error = number(event, "error") or 0
    ok = event.get("ok")
    return Transfer(
        t=event["t"],
        request=request,
        value=int.from_bytes(setup[2:4], "little"),
        length=int.from_bytes(setup[6:8], "little"),
        ok=ok if isinstance(ok, bool) else error == 0,
        error=error,
        data=octets(event, "data"),
    )


class _Walk:
    """Goes through a download's transfers as the service did, and finds the step at which it gave up."""

    def __init__(self, download: Download) -> None:
        self._download = download
        self._step = self._first_state
        self._pending = 0  # bytes of the block that is not confirmed yet
        self._asked_at: float | None = None

    def go(self) -> None:
        for transfer in self._download.transfers:
            if self._download.code is not None:
                return
            self._step(transfer)
        if self._download.ended is not None and self._download.end is End.OPEN:
            self._ended_between_transfers()

    def _fail(self, why: str, code: Code, culprit: Transfer | None) -> None:
        download = self._download
        download.end = End.STOPPED
        download.why = why
        download.code = code
        download.culprit = culprit
        if culprit is not None:
            culprit.role = Role.FAILED

    def _needs(self, transfer: Transfer, what: str) -> bool:
        if transfer.ok or transfer.error == 0:
            return True
        self._fail(f"{what}: {transfer.code.meaning or 'the request failed'}", transfer.code, transfer)
        return False

    def _first_state(self, transfer: Transfer) -> None:
        if transfer.request != "GETSTATE":
            self._next_block(transfer)
        elif self._needs(transfer, "the camera did not say which state it is in"):
            self._step = self._detach

    def _detach(self, transfer: Transfer) -> None:
        if transfer.request != "DETACH":
            self._next_block(transfer)
        elif self._needs(transfer, "the camera did not accept the request to detach"):
            self._step = self._idle

    def _idle(self, transfer: Transfer) -> None:
        if transfer.request != "GETSTATE":
            self._next_block(transfer)
        elif self._needs(transfer, "the camera did not say which state it is in"):
            if transfer.state != _IDLE:
                self._fail(
                    f"the camera was in state {named(DFU_STATES, transfer.state)} instead of dfuIDLE",
                    E_FAIL,
                    transfer,
                )
            self._step = self._probe

    def _probe(self, transfer: Transfer) -> None:
        if transfer.request != "UPLOAD":
            self._next_block(transfer)
        elif self._needs(transfer, "the camera did not answer the trial read before the first block"):
            self._step = self._next_block

    def _next_block(self, transfer: Transfer) -> None:
        download = self._download
        self._step = self._next_block
        if transfer.request != "DNLOAD":
            return
        if transfer.length == 0:
            if not transfer.ok:
                transfer.role = Role.IGNORED
            download.complete_image = download.sent > 0
            self._step = self._manifest
            return
        download.sent += 1
        transfer.block = download.sent
        if not download.curve:
            download.curve.append((transfer.t, 0, 0))
        if self._needs(transfer, "the camera did not take the block"):
            download.bytes_sent += transfer.length
            self._pending = transfer.length
            self._step = self._block_status

    def _block_status(self, transfer: Transfer) -> None:
        download = self._download
        transfer.block = download.sent
        if transfer.request != "GETSTATUS":
            self._next_block(transfer)
        elif self._awaits(transfer, _DOWNLOAD_IDLE):
            download.confirmed += 1
            download.bytes_confirmed += self._pending
            download.curve.append((transfer.t, download.confirmed, download.bytes_confirmed))
            self._step = self._next_block

    def _manifest(self, transfer: Transfer) -> None:
        if transfer.request == "GETSTATUS" and self._awaits(transfer, _MANIFEST_WAIT_RESET):
            self._step = self._farewell

    def _farewell(self, transfer: Transfer) -> None:
        if not transfer.ok:
            transfer.role = Role.EXPECTED
        self._download.end = End.FINISHED

    def _awaits(self, transfer: Transfer, wanted: int) -> bool:
        """Whether the camera is where the service wants it; if not, it waits or gives up."""
        if self._asked_at is not None:
            self._download.waits += 1
            self._download.wait_seconds += transfer.t - self._asked_at
            self._asked_at = None
        if transfer.ok and transfer.status == 0 and transfer.state == wanted:
            return True
        # A failure with the error 0 counts as an answer, and what is missing in an answer as an error of the camera.
        answered = transfer.ok or transfer.error == 0
        if answered and (transfer.status != 0 or transfer.state in (_ERROR, None)):
            self._fail(
                f"the camera reported status {named(DFU_STATUSES, transfer.status)} "
                f"in state {named(DFU_STATES, transfer.state)}",
                E_FAIL,
                transfer,
            )
            return False
        transfer.role = Role.WAIT
        self._asked_at = transfer.t
        return False

    def _ended_between_transfers(self) -> None:
        download = self._download
        last = download.transfers[-1] if download.transfers else None
        if download.why:
            download.end = End.STOPPED
        elif last is None and download.announced is not None:
            self._fail("the camera was gone before the first request", win32_as_hresult(5), None)
        elif last is None and download.completed:
            self._fail("the image file could not be opened", E_FAIL, None)
        elif last is None:
            download.end = End.STOPPED
            download.why = (
                "the camera shows no interface to download through, or was gone before it could be used"
            )
        elif last.role is Role.WAIT:
            state = f"it stayed in state {named(DFU_STATES, last.state)}"
            said = state if last.ok else f"the last request ended with {last.code}"
            limit = _IMAGE_LIMIT_SECONDS if download.complete_image else _BLOCK_LIMIT_SECONDS
            self._fail(f"the camera was not ready within {limit} s; {said}", E_FAIL, last)
        elif self._step == self._probe:
            self._fail(
                f"the service first reads {_PROBE_SIZE} bytes in one transfer, and the camera takes fewer",
                BAD_LENGTH,
                None,
            )
        elif self._step == self._farewell:
            download.end = End.FINISHED
        else:
            download.end = End.STOPPED
            download.why = "the service ended it between two transfers, and the record does not show why"


def all_transfers(found: Iterable[Download]) -> Iterator[Transfer]:
    """The transfers of all downloads."""
    for download in found:
        yield from download.transfers


def describe(transfer: Transfer) -> str:
    """A transfer in one line."""
    return f"{request_in_words(transfer)}: {_outcome_in_words(transfer)}"


def request_in_words(transfer: Transfer) -> str:
    """What was asked of the camera, without what came of it."""
    match transfer.request:
        case "DNLOAD" if transfer.length == 0:
            return "DNLOAD without data (the image is complete)"
        case "DNLOAD":
            return f"DNLOAD of block {transfer.block:,}, number {transfer.value}, {transfer.length:,} bytes"
        case "UPLOAD":
            return f"UPLOAD of {transfer.length} bytes (a trial read)"
        case "GETSTATUS":
            return f"GETSTATUS after block {transfer.block:,}" if transfer.block else "GETSTATUS"
    return transfer.request


def _outcome_in_words(transfer: Transfer) -> str:
    if transfer.role is Role.EXPECTED:
        return f"no answer, as expected, since the camera restarts over it ({transfer.code})"
    if not transfer.ok:
        return f"failed with {transfer.code}, which {transfer.role.value}"
    parts = []
    if transfer.status is not None:
        parts.append(f"status {named(DFU_STATUSES, transfer.status)}")
    if transfer.state is not None:
        parts.append(f"state {named(DFU_STATES, transfer.state)}")
    if transfer.role in (Role.WAIT, Role.FAILED):
        parts.append(f"which {transfer.role.value}")
    return ", ".join(parts) or "done"
