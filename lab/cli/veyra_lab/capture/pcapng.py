"""Capture files of the format pcapng: written byte for byte the same, and read whoever has written them."""

import struct
from collections.abc import Iterator, Sequence
from dataclasses import dataclass
from typing import BinaryIO

from .errors import CaptureError

_SECTION = 0x0A0D0D0A
_INTERFACE = 1
_OLD_PACKET = 2
_SIMPLE_PACKET = 3
_PACKET = 6
_MAGIC = 0x1A2B3C4D
_ORDERS = {struct.pack("<I", _MAGIC): "<", struct.pack(">I", _MAGIC): ">"}
# Of blocks and packets alike. What is longer is no capture of a USB bus.
_LONGEST_BLOCK = 16 << 20
_MOST_INTERFACES = 1024
_MICROSECONDS = 1_000_000

_COMMENT, _NAME, _DESCRIPTION, _RESOLUTION, _APPLICATION = 1, 2, 3, 9, 4


@dataclass(frozen=True)
class Packet:
    """One packet: its link-layer type, when it was, in microseconds since whatever the file counts from, what was kept of
    it, and how long it was on its way."""

    link: int
    at: int
    data: bytes
    length: int
    comment: str = ""


def write(link: int, words: Sequence[str], packets: Sequence[Packet]) -> bytes:
    """A whole file of one interface, with these words as its comment."""
    comment = [(_COMMENT, "\n".join(words).encode())] if words else []
    parts = [
        _block(_SECTION, struct.pack("<IHHq", _MAGIC, 1, 0, -1) + _options((_APPLICATION, b"scripts/lab capture"))),
        _block(
            _INTERFACE,
            struct.pack("<HHI", link, 0, 0)
            + _options(*comment, (_NAME, b"bus"), (_DESCRIPTION, b"the laboratory's USB bus"), (_RESOLUTION, b"\x06")),
        ),
    ]
    for packet in packets:
        options = _options((_COMMENT, packet.comment.encode())) if packet.comment else b""
        head = struct.pack("<IIIII", 0, packet.at >> 32, packet.at & 0xFFFFFFFF, len(packet.data), packet.length)
        parts.append(_block(_PACKET, head + _padded(packet.data) + options))
    return b"".join(parts)


def _padded(content: bytes) -> bytes:
    return content + bytes(-len(content) % 4)


def _options(*options: tuple[int, bytes]) -> bytes:
    # No option is longer than 16 bits can tell.
    told = ((code, content[:0xFFFF]) for code, content in options)
    return b"".join(struct.pack("<HH", code, len(content)) + _padded(content) for code, content in told) + bytes(4)


def _block(kind: int, body: bytes) -> bytes:
    length = struct.pack("<I", len(body) + 12)
    return struct.pack("<I", kind) + length + body + length


@dataclass(frozen=True)
class _Interface:
    link: int
    kept: int
    per_second: int
    from_second: int


class Reader:
    """Reads a file's packets, one after the other. `cut_short` tells afterwards that its end is missing. CaptureError when
    it is something else; an OSError when it cannot be read."""

    def __init__(self, file: BinaryIO) -> None:
        self._file = file
        self._order = "<"
        self._at = 0
        self._interfaces: list[_Interface] = []
        self.cut_short = False

    def packets(self) -> Iterator[Packet]:
        """Every packet of every section; other blocks are skipped."""
        is_first = True
        while (block := self._next(is_first=is_first)) is not None:
            is_first = False
            kind, body = block
            if kind == _SECTION:
                self._interfaces.clear()
            elif kind == _INTERFACE:
                self._add_interface(body)
            elif kind in (_PACKET, _OLD_PACKET, _SIMPLE_PACKET):
                yield self._packet(kind, body)

    def _next(self, *, is_first: bool) -> tuple[int, bytes] | None:
        """The next block's type and body; none at the end."""
        head = self._file.read(12)
        if not head and not is_first:
            return None
        is_section = head[:4] == struct.pack("<I", _SECTION)
        if is_section:
            self._order = _ORDERS.get(head[8:12], "")
        if is_first and not (is_section and self._order):
            raise CaptureError("this is no capture of the format pcapng")
        if not self._order:
            raise self._wrong("a section whose byte order nobody knows")
        if len(head) < 12:
            self.cut_short = True
            return None
        kind: int
        length: int
        kind, length = struct.unpack_from(self._order + "II", head)
        if length % 4 or not 12 <= length <= _LONGEST_BLOCK:
            raise self._wrong(f"a block of {length} bytes")
        rest = self._file.read(length - 12)
        if len(rest) < length - 12:
            self.cut_short = True
            return None
        whole = head[8:] + rest
        if struct.unpack_from(self._order + "I", whole, len(whole) - 4)[0] != length:
            raise self._wrong("a block that tells two lengths")
        self._at += length
        return kind, whole[:-4]

    def _wrong(self, what: str) -> CaptureError:
        return CaptureError(f"{what}, {self._at} bytes from the beginning of the file")

    def _add_interface(self, body: bytes) -> None:
        if len(body) < 8 or len(self._interfaces) >= _MOST_INTERFACES:
            raise self._wrong("an interface that cannot be")
        link, _, kept = struct.unpack_from(self._order + "HHI", body)
        per_second, from_second = _MICROSECONDS, 0
        for code, content in self._options(body[8:]):
            if code == _RESOLUTION and len(content) == 1:
                base, exponent = (2, content[0] & 0x7F) if content[0] & 0x80 else (10, content[0])
                per_second = base**exponent
            elif code == 14 and len(content) == 8:
                from_second = struct.unpack(self._order + "q", content)[0]
        self._interfaces.append(_Interface(link, kept, per_second, from_second))

    def _options(self, content: bytes) -> Iterator[tuple[int, bytes]]:
        place = 0
        while place + 4 <= len(content):
            code, length = struct.unpack_from(self._order + "HH", content, place)
            if code == 0:
                return
            yield code, content[place + 4 : place + 4 + length]
            place += 4 + length + -length % 4

    def _packet(self, kind: int, body: bytes) -> Packet:
        if kind == _SIMPLE_PACKET:
            if len(body) < 4:
                raise self._wrong("a packet that is too short")
            interface = self._interface(0)
            (length,) = struct.unpack_from(self._order + "I", body)
            kept = min(length, interface.kept or length)
            return self._checked(interface, 0, body[4:], kept, length)
        if len(body) < 20:
            raise self._wrong("a packet that is too short")
        if kind == _OLD_PACKET:
            number, _, high, low, kept, length = struct.unpack_from(self._order + "HHIIII", body)
        else:
            number, high, low, kept, length = struct.unpack_from(self._order + "IIIII", body)
        return self._checked(self._interface(number), high << 32 | low, body[20:], kept, length)

    def _interface(self, number: int) -> _Interface:
        if number >= len(self._interfaces):
            raise self._wrong(f"a packet of interface {number}, which was not told before")
        return self._interfaces[number]

    def _checked(self, interface: _Interface, time: int, content: bytes, kept: int, length: int) -> Packet:
        if kept > len(content):
            raise self._wrong("a packet that is longer than its block")
        at = interface.from_second * _MICROSECONDS + time * _MICROSECONDS // interface.per_second
        return Packet(interface.link, at, content[:kept], max(kept, length))
