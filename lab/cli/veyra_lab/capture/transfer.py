"""A control transfer of a capture, whoever has made it."""

from dataclasses import dataclass
from enum import Enum, IntEnum

STANDARD_TO_DEVICE, STANDARD_TO_HOST = 0x00, 0x80
TO_INTERFACE = 0x01
CLASS_TO_DEVICE, CLASS_TO_HOST = 0x21, 0xA1
GET_DESCRIPTOR, SET_CONFIGURATION, SET_INTERFACE = 6, 9, 11
DEVICE, CONFIGURATION, INTERFACE, DFU_FUNCTIONAL = 1, 2, 4, 0x21
CLASS_OF_DFU = 0xFE
SUBCLASS_OF_DFU = 1
DFU_MODE = 2


class Request(IntEnum):
    """bRequest of the USB DFU 1.1 standard."""

    DETACH = 0
    DNLOAD = 1
    UPLOAD = 2
    GETSTATUS = 3
    CLRSTATUS = 4
    GETSTATE = 5
    ABORT = 6


_TO_HOST = (Request.UPLOAD, Request.GETSTATUS, Request.GETSTATE)


class End(Enum):
    """How it ended."""

    OK = "ok"
    STALL = "a stall"
    TIMEOUT = "no answer"
    GONE = "the device gone"
    BROKEN = "a broken bus"
    UNKNOWN = "an end that is not in the capture"


@dataclass
class Transfer:
    """One on the default pipe. Times are in microseconds, the end's that of the beginning where it is not known."""

    bus: int
    device: int
    began: int
    setup: bytes
    # The data stage, as far as it was kept: of one to the device all that the host sent.
    data: bytes = b""
    # How long that was; more than is kept, where a capture cuts packets off or a transcript does not have it.
    length: int = 0
    end: End = End.UNKNOWN
    ended: int = 0
    comment: str = ""

    @property
    def is_to_host(self) -> bool:
        """Whether the data stage goes to the host."""
        return bool(self.setup[0] & 0x80)

    @property
    def request(self) -> int:
        """bRequest."""
        return self.setup[1]

    @property
    def value(self) -> int:
        """wValue."""
        return int.from_bytes(self.setup[2:4], "little")

    @property
    def index(self) -> int:
        """wIndex."""
        return int.from_bytes(self.setup[4:6], "little")

    @property
    def asked(self) -> int:
        """wLength."""
        return int.from_bytes(self.setup[6:8], "little")

    @property
    def is_cut(self) -> bool:
        """Whether data is missing."""
        return len(self.data) < self.length

    @property
    def is_dfu(self) -> bool:
        """Whether it may be a request of the USB DFU 1.1 standard."""
        kind = CLASS_TO_HOST if self.request in _TO_HOST else CLASS_TO_DEVICE
        return self.setup[0] == kind and self.request <= Request.ABORT

    @property
    def name(self) -> str:
        """Its name in the words of scenarios."""
        if self.is_dfu:
            return Request(self.request).name
        return {GET_DESCRIPTOR: "GET-DESCRIPTOR", SET_INTERFACE: "SET-INTERFACE"}.get(self.request, "")


def setup_packet(kind: int, request: int, value: int, index: int, length: int) -> bytes:
    """The eight bytes."""
    words = (each.to_bytes(2, "little") for each in (value, index, length))
    return bytes([kind, request]) + b"".join(words)
