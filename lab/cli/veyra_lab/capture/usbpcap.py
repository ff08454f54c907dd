"""Link-layer type 249: packets of a USB bus as a driver of Windows sees them, each behind a pseudo-header.

What is written is of this type, because the host is Windows: an end is told in Windows' own codes, by which a stall, an
answer that was given up and a device that is gone differ as they do for the service."""

import struct
from dataclasses import dataclass
from enum import IntEnum

from .pcapng import Packet
from .transfer import (
    CLASS_TO_DEVICE,
    CLASS_TO_HOST,
    GET_DESCRIPTOR,
    SET_CONFIGURATION,
    SET_INTERFACE,
    STANDARD_TO_DEVICE,
    STANDARD_TO_HOST,
    TO_INTERFACE,
    End,
    Transfer,
)

LINK = 249
# headerLen, irpId, status, function, info, bus, device, endpoint, transfer, dataLength; a control transfer's stage.
_HEAD = struct.Struct("<HQIHBHHBBI")
_HEAD_SIZE = _HEAD.size + 1
_CONTROL = 2
_TO_HOST = 0x80
_COMPLETION = 1


class Stage(IntEnum):
    """What a packet of a control transfer is. Newer drivers put the host's data behind the setup packet, and the
    device's into the completion."""

    SETUP = 0
    DATA = 1
    STATUS = 2
    COMPLETE = 3


_FUNCTIONS = {
    (STANDARD_TO_HOST, GET_DESCRIPTOR): 0x0B,
    (STANDARD_TO_DEVICE, SET_CONFIGURATION): 0x00,
    (TO_INTERFACE, SET_INTERFACE): 0x01,
}
_CLASS_INTERFACE = 0x1B
_CONTROL_TRANSFER = 0x08
_CODES = {
    End.OK: 0,
    End.STALL: 0xC0000004,
    End.TIMEOUT: 0xC0010000,  # given up by the host
    End.GONE: 0xC0007000,
    End.BROKEN: 0x80000500,
    End.UNKNOWN: 0x80000500,
}
_ENDS = {
    0x00000000: End.OK,
    0xC0000004: End.STALL,
    0xC0000030: End.STALL,  # the endpoint is halted
    0xC0010000: End.TIMEOUT,
    0xC0006000: End.TIMEOUT,
    0xC0007000: End.GONE,
    0xC0000005: End.BROKEN,  # not responding: on its way off the bus, or deaf
    0xC0000009: End.OK,  # shorter than asked for
}


def _function(setup: bytes) -> int:
    if setup[0] in (CLASS_TO_DEVICE, CLASS_TO_HOST):
        return _CLASS_INTERFACE
    return _FUNCTIONS.get((setup[0], setup[1]), _CONTROL_TRANSFER)


def packets_of(number: int, transfer: Transfer) -> tuple[Packet, Packet]:
    """A transfer's submission and completion. `number` is no other transfer's."""
    endpoint = _TO_HOST if transfer.is_to_host else 0
    function = _function(transfer.setup)

    def packet(at: int, stage: Stage, code: int, data: bytes, length: int, comment: str) -> Packet:
        info = 0 if stage is Stage.SETUP else _COMPLETION
        head = _HEAD.pack(
            _HEAD_SIZE, number, code, function, info, transfer.bus, transfer.device, endpoint, _CONTROL, length
        )
        return Packet(LINK, at, head + bytes([stage]) + data, _HEAD_SIZE + length, comment)

    none = (b"", 0)
    sent = none if transfer.is_to_host else (transfer.data, transfer.length)
    got = (transfer.data, transfer.length) if transfer.is_to_host else none
    # What has no data ends with the status stage alone; Wireshark would look for an answer in anything else.
    last = Stage.COMPLETE if got[1] else Stage.STATUS
    return (
        packet(transfer.began, Stage.SETUP, 0, transfer.setup + sent[0], 8 + sent[1], transfer.comment),
        packet(transfer.ended, last, _CODES[transfer.end], *got, ""),
    )


@dataclass(frozen=True)
class Part:
    """One packet of a control transfer on a default pipe. Submissions have a setup packet, completions an end."""

    key: tuple[int, int, int]
    at: int
    setup: bytes | None
    end: End | None
    data: bytes
    length: int


def read_part(packet: Packet) -> Part | None:
    """What a packet is of a control transfer; nothing when it is of no such, or makes no sense."""
    if len(packet.data) < _HEAD_SIZE:
        return None
    size, number, code, _, info, bus, device, endpoint, kind, length = _HEAD.unpack_from(packet.data)
    if kind != _CONTROL or endpoint & 0x7F or not _HEAD_SIZE <= size <= len(packet.data):
        return None
    key = (bus, device, number)
    content = packet.data[size : size + length]
    match packet.data[_HEAD.size]:
        case Stage.SETUP if len(content) >= 8 and not info & _COMPLETION:
            return Part(key, packet.at, content[:8], None, content[8:], length - 8)
        case Stage.DATA:
            return Part(key, packet.at, None, None, content, length)
        case Stage.COMPLETE | Stage.STATUS if info & _COMPLETION:
            return Part(key, packet.at, None, _ENDS.get(code, End.BROKEN), content, length)
    return None
