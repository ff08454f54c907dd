"""The service's trace messages in the text that Windows' tracefmt makes of a trace, among lines of any other kind."""

import re
from collections.abc import Iterable
from dataclasses import dataclass
from pathlib import Path

from ..checkout import CHECKOUT
from ..wire.trace_formats import TraceFormats

MOST_MESSAGES = 500_000
_GROUPS = {
    "d3a7ccdd-8055-340b-3a0c-14f1e4fb3339": "base",
    "fbfbaa6b-fcbc-3745-ac1c-e104c7b6cda1": "update",
    "86e9d1b4-5f2a-4c37-b81e-20a7934df65c": "sink",
    "1fc2a5f0-3b7d-4e0c-9a54-6d0b8ec14793": "launch",
}
_PLACE = re.compile(r"%(\d+)(?:![^!]*!)?")
_TIME = re.compile(r"(\d{1,2}/\d{1,2}/\d{4}-\d{1,2}:\d{2}:\d{2}\.\d{1,7})")
# What tracefmt writes of a message whose format it was not given.
_UNFORMATTED = re.compile(r"^Unknown\(\s*\d+\): GUID=(?P<group>[0-9a-fA-F-]{36})")
# What the companion writes of one, with the bytes of its arguments.
_WORDLESS = re.compile(r"message (?P<number>\d{1,5}) of (?P<group>[0-9a-f-]{36}) \((?P<payload>(?:[0-9a-f]{2})*)\)\s*$")
# A message stands alone on its line, or behind what a prefix may end with.
_BEFORE = r"(?:^|[\]\s:>|])"


@dataclass(frozen=True)
class Message:
    """One message: "update 23", its arguments as texts, and its time as it stands there, or nothing."""

    name: str
    arguments: tuple[str, ...] = ()
    time: str = ""


@dataclass
class Trace:
    """Messages in their order. `unformatted`: how many of the service's were left without words."""

    messages: list[Message]
    unformatted: int = 0
    cut: bool = False


class TraceReader:
    """Knows the texts of a folder of trace-format files."""

    def __init__(self, folder: Path = CHECKOUT / "trace") -> None:
        formats = self._formats = TraceFormats(folder)
        self._patterns: list[tuple[str, re.Pattern[str]]] = []
        for group, number in formats:
            message = formats.message(group, number)
            if group in _GROUPS and message is not None:
                pattern = re.compile(rf"{_BEFORE}\s*{_pattern(message.text)}\s*$")
                self._patterns.append((f"{_GROUPS[group]} {number}", pattern))
        self._words = re.compile("|".join(sorted({_constant(formats, key) for key in formats if key[0] in _GROUPS})))

    def read(self, lines: Iterable[str]) -> Trace:
        """The messages that the lines hold; all other lines are passed over."""
        trace = Trace([])
        for line in map(self._with_words, lines):
            if match := _UNFORMATTED.match(line):
                trace.unformatted += match["group"].lower() in _GROUPS
            elif self._words.search(line) and (message := self._message(line)):
                if len(trace.messages) == MOST_MESSAGES:
                    trace.cut = True
                    break
                trace.messages.append(message)
        return trace

    def _with_words(self, line: str) -> str:
        match = _WORDLESS.search(line)
        if match is None or match["group"] not in _GROUPS:
            return line
        text = self._formats.text_of_payload(match["group"], int(match["number"]), bytes.fromhex(match["payload"]))
        return line[: match.start()] + text if text else line

    def _message(self, line: str) -> Message | None:
        for name, pattern in self._patterns:
            if match := pattern.search(line):
                time = _TIME.search(line, 0, match.start() + 1)
                return Message(name, match.groups(), time[1] if time else "")
        return None


def _pattern(text: str) -> str:
    """A message's text as a pattern, each argument a group."""
    parts = []
    position = 0
    for place in _PLACE.finditer(text):
        parts.append(re.escape(text[position : place.start()]))
        parts.append("" if int(place[1]) == 0 else r"([^\s()]{1,64})")
        position = place.end()
    return "".join(parts) + re.escape(text[position:])


def _constant(formats: TraceFormats, key: tuple[str, int]) -> str:
    """The words of a message that stand in each of its kind, to look for first."""
    message = formats.message(*key)
    text = _PLACE.sub("\0", message.text if message else "").strip("\0")
    return re.escape(max(text.split("\0"), key=len).strip())
