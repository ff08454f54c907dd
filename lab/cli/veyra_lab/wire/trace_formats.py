"""Texts of the service's numbered trace messages, read from the trace-format files."""

import re
from collections.abc import Callable, Iterable, Iterator, Sequence
from dataclasses import dataclass, field
from pathlib import Path

from .events import Event

SERVICE_BASE_TRACES = "{D3A7CCDD-8055-340B-3A0C-14F1E4FB3339}"
UPDATE_SERVICE_TRACES = "{FBFBAA6B-FCBC-3745-AC1C-E104C7B6CDA1}"
SCOPE_TRACES = "{5B0FDCD3-A0E5-3094-0EFF-D5D1628796F4}"

_GROUP = re.compile(r"^([0-9a-fA-F]{8}(?:-[0-9a-fA-F]{4}){3}-[0-9a-fA-F]{12})\s")
_MESSAGE = re.compile(r'^#typev\s+\S+\s+(\d+)\s+"(.*)"\s*//\s*LEVEL=(\d+)\s+FLAGS=(\d+)$')
_ARGUMENT = re.compile(r"^\S+,\s+(Item\w+)\s+--\s+(\d+)$")
_PLACE = re.compile(r"%(\d+)(?:!([^!]*)!)?")
_FIRST_ARGUMENT = 10


@dataclass
class TraceMessage:
    """One message of a group: its text, with %10, %11... where its arguments go, the level and flags of a session
    that gets it, and the types of its arguments."""

    text: str
    level: int
    flags: int
    arguments: list[str] = field(default_factory=list)


class TraceFormats:
    """Every message of every trace-format file of a folder, by group and number."""

    def __init__(self, folder: Path) -> None:
        self._messages: dict[tuple[str, int], TraceMessage] = {}
        for path in sorted(folder.glob("*.tmf")):
            self._read(path.read_text(encoding="utf-8").splitlines())

    def message(self, group: str, number: int) -> TraceMessage | None:
        """The message, or None when no file describes it. The group is GUID text in any case, braces or not."""
        return self._messages.get((_plain_guid(group), number))

    def text(self, group: str, number: int, arguments: Sequence[str]) -> str | None:
        """The message in words, or None when no file describes it. Arguments are hexadecimal texts of their bytes."""
        message = self.message(group, number)
        if message is None:
            return None

        def filled(place: re.Match[str]) -> str:
            index = int(place[1])
            if index < _FIRST_ARGUMENT:
                return ""
            position = index - _FIRST_ARGUMENT
            if position >= len(arguments) or position >= len(message.arguments):
                return "(missing)"
            content = bytes.fromhex(arguments[position])
            return _argument_text(message.arguments[position], place[2] or "", content)

        return _PLACE.sub(filled, message.text)

    def text_of_payload(self, group: str, number: int, payload: bytes) -> str | None:
        """As `text`, of the bytes of all arguments, one behind the other."""
        message = self.message(group, number)
        arguments = []
        for kind in message.arguments if message else ():
            size = _size(kind, payload)
            arguments.append(payload[:size].hex())
            payload = payload[size:]
        return self.text(group, number, arguments)

    def add_words(self, event: Event) -> None:
        """Gives a trace message its text."""
        if event["event"] == "trace":
            event["text"] = self.text(event["group"], event["number"], event["arguments"])

    def __iter__(self) -> Iterator[tuple[str, int]]:
        """The group, in lower case without braces, and the number of each message."""
        return iter(self._messages)

    def _read(self, lines: Iterable[str]) -> None:
        group = ""
        message: TraceMessage | None = None
        for line in (line.strip() for line in lines):
            if match := _MESSAGE.match(line):
                message = TraceMessage(match[2], int(match[3]), int(match[4]))
                self._messages[(group, int(match[1]))] = message
            elif (match := _ARGUMENT.match(line)) and message is not None:
                message.arguments.append(match[1])
            elif match := _GROUP.match(line):
                group = _plain_guid(match[1])


def _plain_guid(text: str) -> str:
    return text.strip("{}").lower()


def _narrow(content: bytes, _: str) -> str:
    return content.split(b"\0", 1)[0].decode("latin-1")


def _wide(content: bytes, _: str) -> str:
    return content.decode("utf-16-le", "replace").split("\0", 1)[0]


def _status(content: bytes, _: str) -> str:
    return f"0x{int.from_bytes(content, 'little'):08x}"


def _integer(signed: bool) -> Callable[[bytes, str], str]:
    def text(content: bytes, form: str) -> str:
        if form[-1:] in ("x", "X"):
            return f"{int.from_bytes(content, 'little'):{form}}"
        return str(int.from_bytes(content, "little", signed=signed))

    return text


# For each type of argument its size in bytes, None for those that end with a terminator, and how it reads.
_TYPES: dict[str, tuple[int | None, Callable[[bytes, str], str]]] = {
    "ItemString": (None, _narrow),
    "ItemWString": (None, _wide),
    "ItemShort": (2, _integer(signed=True)),
    "ItemLong": (4, _integer(signed=True)),
    "ItemULong": (4, _integer(signed=False)),
    "ItemULongX": (4, _integer(signed=False)),
    "ItemLongLong": (8, _integer(signed=True)),
    "ItemULongLong": (8, _integer(signed=False)),
    "ItemULongLongX": (8, _integer(signed=False)),
    "ItemHRESULT": (4, _status),
    "ItemNTSTATUS": (4, _status),
    "ItemWINERROR": (4, _integer(signed=False)),
}


def _size(kind: str, payload: bytes) -> int:
    """How many of the bytes an argument takes that they begin with."""
    size = _TYPES[kind][0] if kind in _TYPES else len(payload)
    if size is not None:
        return size
    width = 2 if kind == "ItemWString" else 1
    ends = (at for at in range(0, len(payload), width) if not any(payload[at : at + width]))
    return next(ends, len(payload)) + width


def _argument_text(kind: str, form: str, content: bytes) -> str:
    if kind not in _TYPES:
        return content.hex()
    size, text = _TYPES[kind]
    if size is not None and len(content) < size:
        return "(truncated)"
    return text(content[:size], form)
