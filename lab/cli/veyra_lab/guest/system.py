"""The guest itself: programs that run in it and their files, its modules, and its kernel's log."""

import re
from collections.abc import Sequence
from dataclasses import dataclass

from ..wire.peer import Peer
from .helper import PATIENCE, ask

# With this the USB core says what is wrong with a descriptor; warnings and errors are below.
NOTICE = 5
# Where files are that the guest is given, or that its programs leave.
FILES = "/tmp"
# What is moved at once; the helper takes twice as much.
_PIECE = 128 * 1024
# Those who speak in front of a line about USB: the core and its hubs, usbfs, host controllers, the UVC driver.
_USB_SPEAKERS = re.compile(r"^(usb|usbcore|hub|usbfs|xhci_hcd|xhci_pci|vhci_hcd|uvcvideo)\b")


@dataclass(frozen=True)
class KernelLine:
    """A line of the kernel's log: its level (3 an error, 4 a warning, 6 information), its number, which rises from line
    to line, and the seconds since the boot."""

    level: int
    number: int
    seconds: float
    text: str

    def __str__(self) -> str:
        return f"[{self.seconds:12.6f}] <{self.level}> {self.text}"


@dataclass(frozen=True)
class ProgramEnd:
    """How a program ended (its exit code, or the negative number of a signal), and what it wrote to standard output and
    error together, at most 1 MiB of it."""

    status: int
    output: str
    is_out_of_time: bool


def complaints_of(lines: Sequence[KernelLine]) -> list[str]:
    """What the USB core, the host controller and the UVC driver have noticed, warned of, or worse."""
    return [line.text for line in lines if line.level <= NOTICE and _USB_SPEAKERS.match(line.text)]


class System:
    """What is asked of the guest itself. Every call may end with a KernelRefusal or a PeerError, as helper.ask does."""

    def __init__(self, peer: Peer) -> None:
        self._peer = peer

    def run(self, program: str, *arguments: str, limit: float = 60.0) -> ProgramEnd:
        """Runs a program of the image to its end, or kills it when the seconds are over. KernelRefusal ENOENT when the
        image does not have it."""
        words = {"program": program, "arguments": arguments, "limit_ms": round(limit * 1000)}
        answer = ask(self._peer, "run", limit + PATIENCE, **words)
        return ProgramEnd(answer["status"], answer["output"], answer["is_out_of_time"])

    def write_file(self, name: str, content: bytes) -> None:
        """Puts a file of at most 16 MiB into FILES, in place of one that has its name."""
        for place in range(0, max(len(content), 1), _PIECE):
            ask(self._peer, "write-file", file=name, **{"from": place, "data": content[place : place + _PIECE].hex()})

    def read_file(self, name: str) -> bytes:
        """The whole content of a file in FILES. KernelRefusal ENOENT when it is not there."""
        content = b""
        while True:
            answer = ask(self._peer, "read-file", file=name, **{"from": len(content), "length": _PIECE})
            content += bytes.fromhex(answer["data"])
            if len(content) >= answer["size"]:
                return content

    def remove_file(self, name: str) -> None:
        """Takes a file out of FILES. KernelRefusal ENOENT when it is not there."""
        ask(self._peer, "remove-file", file=name)

    def load(self, modules: str) -> None:
        """Loads one of the sets of modules that the image has (image.MODULE_SETS)."""
        ask(self._peer, "load", modules=modules)

    def kernel_log(self, since: int = 0, quiet: float = PATIENCE) -> list[KernelLine]:
        """The lines from this number on, as far as the kernel still has them."""
        return [
            KernelLine(each["level"], each["number"], each["microseconds"] / 1e6, each["text"])
            for each in ask(self._peer, "kernel-log", quiet, since=since)["records"]
        ]

    def kernel_mark(self) -> int:
        """The number that the kernel's next line will have."""
        lines = self.kernel_log()
        return lines[-1].number + 1 if lines else 0
