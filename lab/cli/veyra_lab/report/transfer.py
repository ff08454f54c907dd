"""A control transfer: what the service asked of the camera, and what came of it."""

from dataclasses import dataclass
from enum import Enum

from .codes import DFU_STATES, DFU_STATUSES, Code, named, win32_as_hresult
from .transcript import Event, number, octets

_REQUESTS = ("DETACH", "DNLOAD", "UPLOAD", "GETSTATUS", "CLRSTATUS", "GETSTATE", "ABORT")


class Role(Enum):
    """What a transfer means for its download. The values go on after "which"."""

    PLAIN = "the service ignores"
    WAIT = "makes the service ask again"
    FAILED = "ended the download"
    EXPECTED = "the camera restarts over"


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
        place = {"GETSTATUS": 4, "GETSTATE": 0}.get(self.request)
        return self.data[place] if self.ok and place is not None and len(self.data) > place else None


def read_transfer(event: Event) -> Transfer:
    """The transfer that an event tells of."""
    setup = octets(event, "setup").ljust(8, b"\0")
    error = number(event, "error") or 0
    ok = event.get("ok")
    return Transfer(
        t=event["t"],
        request=_REQUESTS[setup[1]] if setup[1] < len(_REQUESTS) else f"request {setup[1]}",
        value=int.from_bytes(setup[2:4], "little"),
        length=int.from_bytes(setup[6:8], "little"),
        ok=ok if isinstance(ok, bool) else error == 0,
        error=error,
        data=octets(event, "data"),
    )


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
        case "GETSTATUS" if transfer.block:
            return f"GETSTATUS after block {transfer.block:,}"
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
