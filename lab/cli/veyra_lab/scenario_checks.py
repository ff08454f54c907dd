"""What an expectation of a scenario means: each field looked up in what happened since the expectation before it."""

from collections.abc import Callable, Iterator, Sequence
from dataclasses import dataclass
from typing import Any

from .image import SMALLEST_IMAGE, version_of
from .peer import RIG, TOAST, Event
from .record import ENTER_DFU_MODE
from .trace_formats import SERVICE_BASE_TRACES, UPDATE_SERVICE_TRACES
from .transfer_pattern import compile_pattern, request_of, shortened, spell

_BLOCK_NUMBERS = 65536
_OLD_FLASH_SIZE = 4096
_DEFAULT_VERSION = "5.10.2.0"
_DEFAULT_TRANSFER_SIZE = 1024
_REMOVAL = 0x8004
_CAMERA_CLASSES = ("{24e552d7-6523-47f7-a647-d3465bf1f5ca}", "{e5323777-f976-4f5b-9b55-b94699c46e44}")
# What one look of the uninstall monitor leaves open for the life of the process: three keys and an event.
KEPT_BY_A_CHECK = 4
# What Wine counts as the private memory of a thread: its stacks, whole. COM begins threads when it needs them.
STACKS_OF_A_THREAD_KIB = 3136
TRACE_GROUPS = {
    SERVICE_BASE_TRACES: "base",
    UPDATE_SERVICE_TRACES: "update",
    "{86E9D1B4-5F2A-4C37-B81E-20A7934DF65C}": "sink",
    "{1FC2A5F0-3B7D-4E0C-9A54-6D0B8EC14793}": "launch",
}
# Failures of these end nothing: a status is asked for again, and the outcome of the closing block is ignored.
_MAY_FAIL = ("GETSTATUS", "EMPTY")


@dataclass(frozen=True)
class CameraNow:
    """A camera as its own side of the bus tells it."""

    mode: str
    version: str
    dfu_state: int
    dfu_status: int
    gaps: int
    flash: bytes


@dataclass(frozen=True)
class Scene:
    """What an expectation looks at: what the service and the prompt server did, and how things are now."""

    events: Sequence[Event]
    cameras: Sequence[dict[str, Any]]
    image: bytes | None
    look: Callable[[int], CameraNow]
    # Waits for the wanted state for a while, and tells the one seen last.
    service_state: Callable[[str, str], str]

    def of(self, source: str, name: str) -> list[Event]:
        """The events of one kind from one source."""
        return [event for event in self.events if event["source"] == source and event["event"] == name]

    @property
    def transfers(self) -> list[Event]:
        """Every control transfer."""
        return self.of(RIG, "transfer")

    def calls(self, method: str) -> list[Event]:
        """The calls of one method of the prompt server."""
        return [event for event in self.of(TOAST, "prompt-call") if event["method"] == method]

    @property
    def progress(self) -> list[str]:
        """The texts of the download's progress."""
        return [event["texts"][0] for event in self.calls("NotifyProgress")]

    @property
    def commands(self) -> int:
        """How often a camera was sent into DFU mode."""
        return sum(event["opcode"] == ENTER_DFU_MODE for event in self.of(RIG, "firmware-command"))

    @property
    def traces(self) -> list[str]:
        """The trace messages, scopes left out: "update 23: its words"."""
        return [
            f"{TRACE_GROUPS[event['group']]} {event['number']}: {event['text']}"
            for event in self.of(RIG, "trace")
            if event["group"] in TRACE_GROUPS
        ]


def differ(what: str, wanted: Any, seen: Any) -> Iterator[str]:
    """A complaint unless both are the same."""
    if wanted != seen:
        yield f"{what}: expected {wanted}, seen {seen}"


def judge(expectation: dict[str, Any], scene: Scene) -> Iterator[str]:
    """What does not hold, in words."""
    if "result" in expectation:
        yield from _RESULTS[expectation["result"]](scene, expectation)
    for field, wanted in expectation.items():
        if field in _CHECKS:
            yield from _CHECKS[field](scene, wanted)


def judge_always(events: Sequence[Event]) -> Iterator[str]:
    """What holds in every scenario: controls answered, a failed request is the last, nothing is ever cleared."""
    rig = [event for event in events if event["source"] == RIG]
    bad = [event for event in rig if event["event"] == "handled" and event["result"] != 0]
    yield from differ("controls that were not handled with 0", [], bad)
    wordless = [event["number"] for event in rig if event["event"] == "trace" and event.get("text") is None]
    yield from differ("trace messages without words", [], wordless)
    previous: Event | None = None
    for event in rig:
        if event["event"] == "usb-open":
            previous = None
        if event["event"] != "transfer":
            continue
        if request_of(event) in ("CLRSTATUS", "ABORT"):
            yield f"{request_of(event)} was sent, which the service never does"
        if previous and not previous["ok"] and request_of(previous) not in _MAY_FAIL:
            yield f"after {spell([previous])}failed, {spell([event])}was sent"
        previous = event


def removals(events: Sequence[Event]) -> int:
    """How often the uninstall monitor has looked: removals of camera interfaces that were handed to the service."""
    return sum(
        event["event"] == "control" and event.get("type") == _REMOVAL and event["class"].lower() in _CAMERA_CLASSES
        for event in events
    )


def old_flash(camera: dict[str, Any]) -> bytes:
    """The flash with which a virtual camera of this stage begins."""
    flash = bytearray((offset * 31 + 7) & 0xFF for offset in range(_OLD_FLASH_SIZE))
    flash[398:402] = bytes(reversed([int(number) for number in camera.get("version", _DEFAULT_VERSION).split(".")]))
    return bytes(flash)


# The results.


def _blocks(scene: Scene, camera: int) -> tuple[int, int]:
    """The blocks that the service announces, and those that it sends."""
    size = scene.cameras[camera].get("transfer_size", _DEFAULT_TRANSFER_SIZE)
    length = len(scene.image or b"")
    return length // size, -(-length // size)


def _updated(scene: Scene, expectation: dict[str, Any]) -> Iterator[str]:
    number = expectation.get("camera", 0)
    announced, sent = _blocks(scene, number)
    if "commands" not in expectation:
        yield from differ("commands into DFU mode", 1, scene.commands)
    pattern = f"GETSTATE DETACH GETSTATE UPLOAD (DNLOAD GETSTATUS?+)x{sent} EMPTY? GETSTATUS?+"
    yield from _check_transfers(scene, pattern)
    progress = [f"start:{announced}", *(str(block % _BLOCK_NUMBERS) for block in range(1, sent + 1))]
    if "progress" not in expectation:
        yield from differ("progress", progress, scene.progress)
    if "completions" not in expectation:
        yield from differ("ends of a download", 1, len(scene.calls("NotifyComplete")))
    now = scene.look(number)
    image = scene.image or b""
    version = version_of(image) if len(image) >= SMALLEST_IMAGE else now.version
    yield from differ("mode, version and block gaps", ("running", version, 0), (now.mode, now.version, now.gaps))
    yield from _check_flash(scene, number, "image", now)


def _failed(scene: Scene, expectation: dict[str, Any]) -> Iterator[str]:
    if "completions" not in expectation:
        yield from differ("ends of a download", 1, len(scene.calls("NotifyComplete")))
    if "cameras" in expectation:
        return
    now = scene.look(expectation.get("camera", 0))
    if now.mode == "running" and now.flash == scene.image:
        yield "the camera runs the image although the download failed"


def _not_opened(scene: Scene, expectation: dict[str, Any]) -> Iterator[str]:
    del expectation
    yield from differ("transfers", "nothing", shortened(spell(scene.transfers)))
    yield from differ("progress", [], scene.progress)
    yield from differ("ends of a download", 0, len(scene.calls("NotifyComplete")))
    if not any(trace.startswith("update 20:") for trace in scene.traces):
        yield "the trace does not say that the device was not opened (update 20)"


def _left_alone(scene: Scene) -> Iterator[str]:
    yield from differ("commands into DFU mode", 0, scene.commands)
    yield from differ("transfers", "nothing", shortened(spell(scene.transfers)))
    yield from differ("progress", [], scene.progress)
    yield from differ("ends of a download", 0, len(scene.calls("NotifyComplete")))


def _asked(scene: Scene, expectation: dict[str, Any]) -> Iterator[str]:
    yield from _left_alone(scene)
    if "questions" not in expectation:
        yield from differ("number of questions", 1, len(scene.calls("ShowUpdatePrompt")))


def _not_asked(scene: Scene, expectation: dict[str, Any]) -> Iterator[str]:
    del expectation
    yield from _left_alone(scene)
    yield from differ("questions", [], [event["texts"] for event in scene.calls("ShowUpdatePrompt")])


_RESULTS: dict[str, Callable[[Scene, dict[str, Any]], Iterator[str]]] = {
    "updated": _updated,
    "failed": _failed,
    "not opened": _not_opened,
    "asked": _asked,
    "not asked": _not_asked,
}


# The single fields.


def _check_transfers(scene: Scene, wanted: str) -> Iterator[str]:
    seen = spell(scene.transfers)
    if not compile_pattern("" if wanted == "none" else wanted).fullmatch(seen):
        yield f"transfers: expected {wanted}, seen {shortened(seen)}"


def _in(wanted: Any, seen: int) -> bool:
    return wanted[0] <= seen <= wanted[1] if isinstance(wanted, list) else wanted == seen


def _check_requests(scene: Scene, wanted: dict[str, Any]) -> Iterator[str]:
    names = [request_of(event) for event in scene.transfers]
    for name, count in wanted.items():
        if not _in(count, names.count(name)):
            yield f"requests {name}: expected {count}, seen {names.count(name)}"


def _without_words(wanted: Sequence[str], seen: Sequence[str]) -> list[str]:
    """The messages seen, cut to their numbers where the wanted ones tell only these."""
    numbers = {trace for trace in wanted if ":" not in trace}
    return [trace if (number := trace.partition(":")[0]) not in numbers else number for trace in seen]


def _check_traces(scene: Scene, wanted: list[str]) -> Iterator[str]:
    yield from differ("trace messages", wanted, _without_words(wanted, scene.traces))


def _check_traces_with(scene: Scene, wanted: list[str]) -> Iterator[str]:
    seen = _without_words(wanted, scene.traces)
    for trace in wanted:
        if trace not in seen:
            yield f"trace messages: expected {trace} among {seen}"


def _check_traces_without(scene: Scene, unwanted: list[str]) -> Iterator[str]:
    yield from differ(
        "unwanted trace messages", [], [t for t in _without_words(unwanted, scene.traces) if t in unwanted]
    )


def _check_count(what: str, count: Callable[[Scene], int]) -> Callable[[Scene, Any], Iterator[str]]:
    def check(scene: Scene, wanted: Any) -> Iterator[str]:
        seen = count(scene)
        if not _in(wanted, seen):
            yield f"{what}: expected {wanted}, seen {seen}"

    return check


def _check_list(what: str, items: Callable[[Scene], list[Any]]) -> Callable[[Scene, Any], Iterator[str]]:
    def check(scene: Scene, wanted: Any) -> Iterator[str]:
        yield from differ(what, wanted, items(scene))

    return check


def _check_flash(scene: Scene, number: int, wanted: str, now: CameraNow) -> Iterator[str]:
    old, image = old_flash(scene.cameras[number]), scene.image or b""
    if wanted == "old" and now.flash != old:
        yield f"flash of camera {number}: expected what it came with, seen {_describe(now.flash, old, image)}"
    if wanted == "image" and now.flash != image:
        yield f"flash of camera {number}: expected the image, seen {_describe(now.flash, old, image)}"
    if wanted == "partial" and not 0 < _common(now.flash, image) < len(image):
        yield f"flash of camera {number}: expected a part of the image, seen {_describe(now.flash, old, image)}"


def _describe(flash: bytes, old: bytes, image: bytes) -> str:
    if flash == old:
        return "what it came with"
    if flash == image:
        return "the image"
    return f"{len(flash)} bytes of which the first {_common(flash, image)} are the image's"


def _common(one: bytes, other: bytes) -> int:
    return next((at for at, (a, b) in enumerate(zip(one, other)) if a != b), min(len(one), len(other)))


def _check_cameras(scene: Scene, wanted: list[dict[str, Any] | None]) -> Iterator[str]:
    for number, fields in enumerate(wanted):
        if fields is None:
            continue
        now = scene.look(number)
        for name, value in fields.items():
            if name == "flash":
                yield from _check_flash(scene, number, value, now)
            else:
                yield from differ(f"{name} of camera {number}", value, getattr(now, name))


def _check_service(name: str) -> Callable[[Scene, str], Iterator[str]]:
    def check(scene: Scene, wanted: str) -> Iterator[str]:
        yield from differ(f"state of the service {name}", wanted, scene.service_state(name, wanted))

    return check


_CHECKS: dict[str, Callable[[Scene, Any], Iterator[str]]] = {
    "questions": _check_list("questions", lambda scene: [e["texts"] for e in scene.calls("ShowUpdatePrompt")]),
    "progress": _check_list("progress", lambda scene: scene.progress),
    "completions": _check_count("ends of a download", lambda scene: len(scene.calls("NotifyComplete"))),
    "commands": _check_count("commands into DFU mode", lambda scene: scene.commands),
    "transfers": _check_transfers,
    "requests": _check_requests,
    "traces": _check_traces,
    "traces with": _check_traces_with,
    "traces without": _check_traces_without,
    "event log": _check_list("event log", lambda scene: [e["strings"][1] for e in scene.of(RIG, "event-log")]),
    "debug texts": _check_count("debug texts", lambda scene: len(scene.of(RIG, "debug-string"))),
    "controls": _check_count("controls handled", lambda scene: len(scene.of(RIG, "handled"))),
    "commands run": _check_list(
        "commands run", lambda scene: sorted(e["command"] for e in scene.of(RIG, "command-run"))
    ),
    "cameras": _check_cameras,
    "service": _check_service("VeyraCameraDfuService"),
    "monitored service": _check_service("VeyraCameraDFU"),
}
