"""Small transcripts, written by hand, for the tests of the report and of the judgement of scenarios."""

import json
from typing import Any, Self

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

    def add(self, source: str, event: str, *, after: float = 0.01, **fields: Any) -> Self:
        """One more event."""
        self._t += after
        self.events.append({"t": round(self._t, 6), "source": source, "event": event, **fields})
        return self

    def rig(self, event: str, **fields: Any) -> Self:
        """An event of the service's process."""
        return self.add("rig", event, pid=_SERVICE, **fields)

    def step(self, text: str) -> Self:
        return self.add("lab", "step", text=text)

    def camera(self, change: str, version: str = "5.10.2.0", *, number: int = 0, after: float = 0.01) -> Self:
        return self.rig("camera", camera=number, change=change, version=version, after=after)

    def prompt(self, method: str, *texts: str) -> Self:
        return self.add("toast", "prompt-call", method=method, texts=list(texts), pid=8)

    def trace(self, number: int, text: str, *arguments: str) -> Self:
        """A message of the update service."""
        coded = [argument.encode().hex() + "00" for argument in arguments]
        return self.rig("trace", group=_UPDATE_SERVICE, number=number, flags=43, arguments=coded, text=text)

    def transfer(self, setup: str, data: str = "", *, error: int = 0, after: float = 0.01) -> Self:
        """A control transfer; an error makes it a failed one."""
        length = int.from_bytes(bytes.fromhex(setup)[6:8], "little")
        return self.rig(
            "transfer",
            setup=setup,
            length=length,
            transferred=0 if error else length,
            ok=error == 0,
            error=error,
            data="" if error else data,
            after=after,
        )

    def command(self, opcode: int, parameters: list[int], result: int = 0) -> Self:
        """A firmware command."""
        fields = {"length": 20, "magic": 52651, "opcode": opcode, "parameters": parameters, "result": result}
        return self.rig("firmware-command", **fields)

    def without_the_last(self) -> Self:
        """Takes the newest event out again."""
        self.events.pop()
        return self

    def and_later(self, other: "Written", seconds: float = 10) -> Self:
        """Another transcript's events, so much later than they were."""
        self.events += [{**event, "t": event["t"] + seconds} for event in other.events]
        return self

    def image(self, size: int) -> Self:
        """The image that is in the machine from here on."""
        return self.add("lab", "image", name="image.bin", version="5.10.3.0", size=size, sha256="ab" * 32)

    def scenario(self, name: str = "unplugged", *, skip_waits: bool = False, id_: str = "") -> Self:
        fields = {"name": name, "description": "The camera goes.", "cameras": [{"version": "5.10.2.0"}]}
        return self.add("lab", "scenario", skip_waits=skip_waits, id=id_, **fields)

    def expected(self, words: str, *complaints: str, step: str = "3") -> Self:
        return self.add("lab", "expectation", step=step, text=words, complaints=list(complaints))

    def verdict(self, *complaints: str) -> Self:
        return self.add("lab", "judgement", held=not complaints, complaints=list(complaints))

    # The road.

    def begin(self, camera: str = "5.10.2.0", image: str = "5.10.3.0") -> Self:
        """The service runs, the camera is plugged in and the user is asked."""
        link = {"class": "{24E552D7-6523-47F7-A647-D3465BF1F5CA}"}
        self.step("Starting the service").rig("service-status", words=[16, 4, 5, 0, 0, 0, 0])
        self.step("Plugging the camera in").camera("plugged", camera)
        self.rig("control", control=11, thread=1, type=0x8000, **link)
        self.command(16, [0, 0, 0, 0]).rig("firmware-reply", opcode=16, bytes=234, result=0)
        self.trace(23, f"The camera's firmware version is {camera}", camera)
        self.trace(27, f"The firmware image's version is {image}", image)
        if camera != image:
            self.prompt("ShowUpdatePrompt", camera, image)
        return self.rig("handled", control=11, result=0, ms=40)

    def answer(self, code: int = 1, sinks: int = 1, *, result: int = 0) -> Self:
        """The user's answer, after the command that a yes leads to and its result."""
        if code == 1 and sinks:
            self.command(30, [1, 0, 0, 0], result)
        return self.add("toast", "answer", code=code, sinks=sinks, result=0, pid=8)

    def enter_dfu_mode(self, blocks: int) -> Self:
        self.camera("left").camera("dfu", after=0.3).rig("usb-open", link="usb", ok=True)
        return self.prompt("NotifyProgress", f"start:{blocks}")

    def prepare(self, state: str = IDLE) -> Self:
        """What comes before the first block; without the trial read when the camera is not idle."""
        self.transfer(_GETSTATE, IDLE).transfer(_DETACH).transfer(_GETSTATE, state)
        return self.transfer(_UPLOAD, "00" * 68) if state == IDLE else self

    def block(self, number: int, size: int = 1024, *, error: int = 0, told: bool = True) -> Self:
        """A block, and the camera's answer that it is ready for the next."""
        self.transfer(f"21 01 {_word(number)} 00 00 {_word(size)}", error=error)
        if not error and told:
            self.status().prompt("NotifyProgress", str((number + 1) % 65536))
        return self

    def status(self, data: str = READY, *, error: int = 0, after: float = 0.01) -> Self:
        return self.transfer(_GETSTATUS, data, error=error, after=after)

    def end_of_image(self, blocks: int) -> Self:
        return self.transfer(f"21 01 {_word(blocks)} 00 00 00 00")

    def finish(self, blocks: int) -> Self:
        """The end of the image, manifestation, and the camera's restart over the last request."""
        self.end_of_image(blocks).status(MANIFESTING).status(DONE, after=0.2).status(error=31)
        return self.close()

    def close(self, after: float = 0.01) -> Self:
        return self.prompt("NotifyComplete").rig("usb-close", link="usb", ok=True, after=after)

    def come_back(self, version: str = "5.10.3.0") -> Self:
        return self.camera("running", version, after=0.5)

    # The forms in which the report takes it.

    def lines(self) -> list[bytes]:
        return [json.dumps(event).encode() + b"\n" for event in self.events]

    def text(self) -> bytes:
        return b"".join(self.lines())

    def read(self) -> Transcript:
        return parse(self.lines(), "run.jsonl")


def begun(blocks: int = 8) -> Written:
    """The way to a download, up to its announcement."""
    return Written().image(1024 * blocks).begin().answer().enter_dfu_mode(blocks)


def sending(sent: int, blocks: int) -> Written:
    """A download that has sent so many of its blocks."""
    written = begun(blocks).prepare()
    for number in range(sent):
        written.block(number)
    return written


def good(blocks: int = 4) -> Written:
    """An update from 5.10.2.0 to 5.10.3.0."""
    return sending(blocks, blocks).finish(blocks).come_back()


def stopped(block: int, blocks: int = 1024, *, error: int = 31) -> Written:
    """A download whose block of this number, from 1, the camera refuses."""
    return sending(block - 1, blocks).block(block - 1, error=error).close()


def _word(number: int) -> str:
    """A number's sixteen bits as they stand in a request."""
    return (number % 65536).to_bytes(2, "little").hex(" ")
