"""Small transcripts, written by hand, for the tests of the report."""

import json
from typing import Any

from veyra_lab.report.transcript import Transcript, parse

_GETSTATE = "a1 05 00 00 00 00 01 00"
_DETACH = "21 00 e8 03 00 00 00 00"
_UPLOAD = "a1 02 00 00 00 00 44 00"
_GETSTATUS = "a1 03 00 00 00 00 06 00"
_UPDATE_SERVICE = "{FBFBAA6B-FCBC-3745-AC1C-E104C7B6CDA1}"
_SERVICE = 7
IDLE = "02"
READY = "000000000500"
BUSY = "000000000400"
MANIFESTING = "000000000700"
DONE = "000000000800"


class Written:
    """A transcript that grows event by event, each a hundredth of a second after the one before."""

    def __init__(self) -> None:
        self.events: list[dict[str, Any]] = []
        self._t = 0.0

    def add(self, source: str, event: str, *, after: float = 0.01, **fields: Any) -> dict[str, Any]:
        """One more event."""
        self._t += after
        self.events.append({"t": round(self._t, 6), "source": source, "event": event, **fields})
        return self.events[-1]

    def rig(self, event: str, **fields: Any) -> dict[str, Any]:
        """An event of the service's process."""
        return self.add("rig", event, pid=_SERVICE, **fields)

    def step(self, text: str) -> None:
        self.add("lab", "step", text=text)

    def prompt(self, method: str, *texts: str) -> None:
        self.add("toast", "prompt-call", method=method, texts=list(texts), pid=8)

    def trace(self, number: int, text: str, *arguments: str) -> None:
        """A message of the update service."""
        coded = [argument.encode().hex() + "00" for argument in arguments]
        self.rig("trace", group=_UPDATE_SERVICE, number=number, flags=43, arguments=coded, text=text)

    def transfer(self, setup: str, data: str = "", *, error: int = 0, after: float = 0.01) -> None:
        """A control transfer; an error makes it a failed one."""
        length = int.from_bytes(bytes.fromhex(setup)[6:8], "little")
        self.rig(
            "transfer",
            setup=setup,
            length=length,
            transferred=0 if error else length,
            ok=error == 0,
            error=error,
            data="" if error else data,
            after=after,
        )

    # The road.

    def begin(self, camera: str = "5.10.2.0", image: str = "5.10.3.0") -> None:
        """The service runs, the camera is plugged in and the user is asked."""
        self.step("Starting the service")
        self.rig("service-status", words=[16, 4, 5, 0, 0, 0, 0])
        self.step("Plugging the camera in")
        self.rig("camera", camera=0, change="plugged", version=camera)
        self.rig(
            "control",
            control=11,
            thread=1,
            type=0x8000,
            **{"class": "{24E552D7-6523-47F7-A647-D3465BF1F5CA}"},
        )
        self.rig("firmware-command", length=20, magic=52651, opcode=16, parameters=[0, 0, 0, 0], result=0)
        self.rig("firmware-reply", opcode=16, bytes=234, result=0)
        self.trace(23, f"The camera's firmware version is {camera}", camera)
        self.trace(27, f"The firmware image's version is {image}", image)
        if camera != image:
            self.prompt("ShowUpdatePrompt", camera, image)
        self.rig("handled", control=11, result=0, ms=40)

    def answer(self, code: int = 1, sinks: int = 1) -> None:
        if code == 1 and sinks:
            self.rig("firmware-command", length=20, magic=52651, opcode=30, parameters=[1, 0, 0, 0], result=0)
        self.add("toast", "answer", code=code, sinks=sinks, result=0, pid=8)

    def enter_dfu_mode(self, blocks: int, *, version: str = "5.10.2.0") -> None:
        self.rig("camera", camera=0, change="left", version=version)
        self.rig("camera", camera=0, change="dfu", version=version, after=0.3)
        self.rig("usb-open", link="usb", ok=True)
        self.prompt("NotifyProgress", f"start:{blocks}")

    def prepare(self, state: str = IDLE) -> None:
        """What comes before the first block; without the trial read when the camera is not idle."""
        self.transfer(_GETSTATE, IDLE)
        self.transfer(_DETACH)
        self.transfer(_GETSTATE, state)
        if state == IDLE:
            self.transfer(_UPLOAD, "00" * 68)

    def block(self, number: int, size: int = 1024, *, error: int = 0, told: bool = True) -> None:
        """A block, and the camera's answer that it is ready for the next."""
        value, length = (number % 65536).to_bytes(2, "little").hex(" "), size.to_bytes(2, "little").hex(" ")
        self.transfer(f"21 01 {value} 00 00 {length}", error=error)
        if not error and told:
            self.status(READY)
            self.prompt("NotifyProgress", str((number + 1) % 65536))

    def status(self, data: str = READY, *, error: int = 0, after: float = 0.01) -> None:
        self.transfer(_GETSTATUS, data, error=error, after=after)

    def finish(self, blocks: int, *, last_error: int = 433) -> None:
        """The end of the image, manifestation, and the camera's restart over the last request."""
        self.transfer(f"21 01 {(blocks % 65536).to_bytes(2, 'little').hex(' ')} 00 00 00 00")
        self.status(MANIFESTING)
        self.status(DONE, after=0.2)
        self.status(error=last_error)
        self.close()

    def close(self, after: float = 0.01) -> None:
        self.prompt("NotifyComplete")
        self.rig("usb-close", link="usb", ok=True, after=after)

    def come_back(self, version: str = "5.10.3.0") -> None:
        self.rig("camera", camera=0, change="running", version=version, after=0.5)

    # The forms in which the report takes it.

    def lines(self) -> list[bytes]:
        return [json.dumps(event).encode() + b"\n" for event in self.events]

    def text(self) -> bytes:
        return b"".join(self.lines())

    def read(self) -> Transcript:
        return parse(self.lines(), "run.jsonl")


def good(blocks: int = 4) -> Written:
    """An update from 5.10.2.0 to 5.10.3.0."""
    written = Written()
    written.begin()
    written.answer()
    written.enter_dfu_mode(blocks)
    written.prepare()
    for number in range(blocks):
        written.block(number)
    written.finish(blocks)
    written.come_back()
    return written


def stopped(block: int, blocks: int = 1024, *, error: int = 31) -> Written:
    """A download whose block of this number, from 1, the camera refuses."""
    written = Written()
    written.begin()
    written.answer()
    written.enter_dfu_mode(blocks)
    written.prepare()
    for number in range(block - 1):
        written.block(number)
    written.block(block - 1, error=error)
    written.close()
    return written
