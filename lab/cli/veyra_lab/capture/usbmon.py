"""Link-layer types 189 and 220: packets of a USB bus as Linux' usbmon tells them, on a little-endian machine."""

import struct

from .pcapng import Packet
from .transfer import End
from .usbpcap import Part

# The size of the header that stands before the data, by link-layer type.
HEADS = {189: 48, 220: 64}
# id, type, kind of transfer, endpoint, device, bus, setup flag, data flag, time, status, length, length kept.
_HEAD = struct.Struct("<QBBBBHBBqiiII")
_SETUP_AT = 40
_SUBMISSION, _COMPLETION, _ERROR = b"SCE"
_CONTROL = 2
# Negative error numbers of Linux.
_ENDS = {
    0: End.OK,
    -121: End.OK,  # EREMOTEIO: shorter than asked for
    -32: End.STALL,  # EPIPE
    -2: End.TIMEOUT,  # ENOENT: given up by who waited
    -104: End.TIMEOUT,  # ECONNRESET: the same
    -110: End.TIMEOUT,
    -19: End.GONE,  # ENODEV
    -108: End.GONE,  # ESHUTDOWN
}


def read_part(packet: Packet) -> Part | None:
    """What a packet is of a control transfer on a default pipe; nothing when it is of no such, or makes no sense."""
    size = HEADS[packet.link]
    if len(packet.data) < size:
        return None
    number, what, kind, endpoint, device, bus, no_setup, _, _, _, status, length, kept = _HEAD.unpack_from(packet.data)
    if kind != _CONTROL or endpoint & 0x7F:
        return None
    data = packet.data[size : size + kept]
    setup = packet.data[_SETUP_AT : _SETUP_AT + 8]
    key = (bus, device, number)
    if what == _SUBMISSION and not no_setup:
        # Of a transfer to the host this is the room that it has for the data.
        return Part(key, packet.at, setup, None, data, 0 if setup[0] & 0x80 else length)
    if what in (_COMPLETION, _ERROR):
        end = _ENDS.get(status, End.BROKEN)
        return Part(key, packet.at, None, End.BROKEN if what == _ERROR and end is End.OK else end, data, length)
    return None
