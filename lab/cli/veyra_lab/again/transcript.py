"""The transcript of a play as it has to be each time, byte for byte: without times and process ids, and in an order
that does not depend on which of two threads was the quicker.

What one thread does stays in its order. What several do at the same moment is nobody's to hold, so each of them has a
part of the transcript to itself:

- the laboratory: it sends a command, or begins its next step, while the service still does what the one before brought
  about;
- the toast controller's calls, and its answers to the laboratory: another process, which tells over a wire of its own,
  from the threads of COM and from that which fires the user's answer;
- the watcher's callbacks: configuration manager calls them from a thread of its own, while the service's handler is
  being told of the same arrival;
- the bus: cameras that come and go by themselves or by a command, and the rig's answers to commands: the threads of the
  rig. Which transfers of the service meet a camera that is gone stands in the transfers;
- all else that the service does.
"""

import json
from collections.abc import Iterable, Sequence
from itertools import zip_longest

from ..wire.events import LAB, RIG, TOAST, Event

# Times, and the numbers of processes and threads. A "cookie" counts the sinks in the life of the toast controller's
# process, "path" is the file through which a flash is handed over, and "sleeps" are those that were over in a rest: one at
# its end may not be.
_LEFT_OUT = ("t", "pid", "thread", "us", "cookie", "path", "camera_bytes", "handles", "threads", "private_bytes", "thread_block_bytes", "sleeps")
# How long a handler took by the machine's own clock; the other "ms" are those of the laboratory's, which are the same.
_TIMED = ("handled", "burst")
_COOKIE = "(cookie "
# Of the words of a service's status: it counts up as long as the process lives.
_CHECK_POINT = 5
_PARTS = ("lab", "calls", "answers", "watcher", "bus", "service")


def comparable(events: Iterable[Event]) -> list[str]:
    """A line for each event, part after part."""
    parts: dict[str, list[str]] = {name: [] for name in _PARTS}
    for event in events:
        name = _part(event)
        parts.setdefault(name, []).append(f"{name}: {json.dumps(_without_times(event), sort_keys=True)}")
    return [line for lines in parts.values() for line in lines]


def difference(first: Sequence[str], other: Sequence[str]) -> str:
    """The first line in which two transcripts differ, in words; empty when they are the same."""
    for number, (one, two) in enumerate(zip_longest(first, other, fillvalue="nothing"), 1):
        if one != two:
            return f"line {number} was {one} and is now {two}"
    return ""


def _part(event: Event) -> str:
    source, kind = event["source"], event["event"]
    if source == LAB:
        return "lab"
    if source == TOAST:
        return "answers" if kind in ("answer", "done") else "calls"
    if source != RIG:
        return str(source)
    if kind in ("watch", "watch-callback"):
        return "watcher"
    return "bus" if kind in ("done", "camera") else "service"


def _without_times(event: Event) -> Event:
    kept = {name: value for name, value in event.items() if name not in _LEFT_OUT}
    if event["event"] in _TIMED:
        kept.pop("ms", None)
    if event["event"] == "service-status":
        kept["words"] = [min(word, 1) if place == _CHECK_POINT else word for place, word in enumerate(event["words"])]
    if _COOKIE in str(event.get("text")):
        kept |= {"text": event["text"].partition(_COOKIE)[0], "arguments": []}
    return kept
