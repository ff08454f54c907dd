"""Line 4: from a camera's arrival to the question, and from a DFU device's arrival to the first block."""

import statistics
from collections.abc import Callable, Iterator, Sequence
from dataclasses import dataclass

from ...wire.events import SENSOR_CLASS, USB_CLASS, Event
from ..table import Row, exactly
from .contenders import Contenders
from .updates import image_of, update

LINE = 4
_BLOCK = 1024
_ROUNDS = 7
# Every reading of a camera's version holds a pause of 100 ms, and the camera is listed, and so read, in two ways.
_PAUSES_MS = 2 * 100
# Its USB interface arrives first: the look for a device in DFU mode waits as long for one.
_PAUSE_BEFORE_MS = 100
_ARRIVAL = 0x8000
_DNLOAD = "21 01"


@dataclass(frozen=True)
class Reaction:
    """What lay between the arrivals of one update and what they led to: waits of the service, and real time."""

    waits_from_plugging_ms: int
    waits_to_prompt_ms: int
    waits_to_block_ms: int
    to_prompt_ms: float
    to_block_ms: float


def measure(contenders: Contenders) -> Iterator[Row]:
    """Waits in fake time, then everything in real time beside a handler that does nothing."""
    contenders.start(contenders.product, skip_waits=True)
    fake = react(contenders)
    contenders.product.stop()
    contenders.start(contenders.product, skip_waits=False)
    real = [react(contenders) for _ in range(_ROUNDS)]
    contenders.product.stop()
    contenders.start(contenders.minimal, skip_waits=False)
    empty = statistics.median(_empty_handler_ms(contenders) for _ in range(_ROUNDS))
    contenders.minimal.stop()
    yield _no_other_wait("plugging in to prompt", fake.waits_from_plugging_ms, _PAUSE_BEFORE_MS + _PAUSES_MS)
    yield _no_other_wait("camera arrival to prompt", fake.waits_to_prompt_ms, _PAUSES_MS)
    yield _no_other_wait("USB arrival to first DNLOAD", fake.waits_to_block_ms, 0)
    # Times are told: no reference does the same, and what the service waits for is counted above.
    to_prompt = statistics.median(each.to_prompt_ms for each in real)
    to_block = statistics.median(each.to_block_ms for each in real)
    yield Row(LINE, "camera arrival to prompt, real time", to_prompt, empty, "ms", "empty handler")
    yield Row(LINE, "USB arrival to first DNLOAD, real time", to_block, empty, "ms", "empty handler")


def react(contenders: Contenders) -> Reaction:
    """One update by the running product."""
    since = contenders.peer.mark()
    update(contenders, image_of(_BLOCK), _BLOCK)
    events = contenders.peer.events_since(since)
    plugging = _first(events, lambda event: event["event"] == "camera")
    arrival = _first(events, _is_arrival(SENSOR_CLASS), plugging)
    # The toast controller's events come by a wire of their own, so among the service's the prompt may stand a little early
    # or late. It is the last thing that the arrival's handler does.
    prompt = _first(events, _is_prompt)
    handled = _first(events, _is_handled, arrival)
    block = _first(events, _is_block, handled)
    usb = block - 1 - _first(events[block - 1 :: -1], _is_arrival(USB_CLASS))
    return Reaction(
        waits_from_plugging_ms=_waited(events[plugging:handled]),
        waits_to_prompt_ms=_waited(events[arrival:handled]),
        waits_to_block_ms=_waited(events[usb:block]),
        to_prompt_ms=(events[prompt]["t"] - events[arrival]["t"]) * 1000,
        to_block_ms=(events[block]["t"] - events[usb]["t"]) * 1000,
    )


def _no_other_wait(what: str, waited_ms: int, pauses_ms: int) -> Row:
    return exactly(
        LINE,
        f"{what}, waits in fake time",
        waited_ms,
        pauses_ms,
        "ms",
        against="deliberate pauses",
        reference=pauses_ms,
        bar="no other wait",
        note="A camera's version is read in both ways in which it is listed, with a pause of 100 ms each; before that"
        " its USB interface arrives, and the look for a device in DFU mode waits 100 ms."
        if pauses_ms
        else "",
    )


def _empty_handler_ms(contenders: Contenders) -> float:
    contenders.camera.put()
    since = contenders.peer.mark()
    contenders.camera.plug()
    contenders.minimal.settle()
    contenders.camera.unplug()
    contenders.minimal.settle()
    events = contenders.peer.events_since(since)
    arrival = _first(events, _is_arrival(SENSOR_CLASS))
    handled = _first(events, _is_handled, arrival)
    return float(events[handled]["us"]) / 1000


def _first(events: Sequence[Event], wanted: Callable[[Event], bool], begin: int = 0) -> int:
    for place in range(begin, len(events)):
        if wanted(events[place]):
            return place
    raise AssertionError("the service did not do what an update takes")


def _waited(events: Sequence[Event]) -> int:
    return sum(event["ms"] for event in events if event["event"] == "wait")


def _is_arrival(interface_class: str) -> Callable[[Event], bool]:
    wanted = {"event": "control", "type": _ARRIVAL, "class": interface_class}
    return lambda event: wanted.items() <= event.items()


def _is_handled(event: Event) -> bool:
    return event["event"] == "handled"


def _is_prompt(event: Event) -> bool:
    return event["event"] == "prompt-call" and event["method"] == "ShowUpdatePrompt"


def _is_block(event: Event) -> bool:
    return event["event"] == "transfer" and event["setup"].lower().startswith(_DNLOAD)
