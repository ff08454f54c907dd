"""What holds in every scenario."""

from collections.abc import Iterator, Sequence

from ..scenarios.transfer_pattern import request_of, spell
from ..wire.events import RIG, Event
from .observed import differ

# Failures of these end nothing: a status is asked for again, and the outcome of the closing block is ignored.
_MAY_FAIL = ("GETSTATUS", "EMPTY")


def judge_always(events: Sequence[Event]) -> Iterator[str]:
    """Controls answered, a failed request is the last, nothing is ever cleared."""
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
