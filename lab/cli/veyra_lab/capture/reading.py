"""The control transfers of a capture file."""

from collections.abc import Iterator
from dataclasses import dataclass, field
from pathlib import Path

from . import usbmon, usbpcap
from .errors import CaptureError
from .pcapng import Packet, Reader
from .transfer import Transfer

# What a capture may hold, so that a wrong one is refused before it has filled the memory.
_MOST_TRANSFERS = 2_000_000
_MOST_BYTES = 256 << 20
_MOST_UNDER_WAY = 4096


@dataclass
class Captured:
    """The transfers in the order in which they began, and what is to be said about the file."""

    transfers: list[Transfer] = field(default_factory=list)
    words: list[str] = field(default_factory=list)


def read_capture(path: Path) -> Captured:
    """Every control transfer on a default pipe. CaptureError when the file is something else; an OSError when it cannot be
    read."""
    captured = Captured()
    links: set[int] = set()
    with path.open("rb") as file:
        reader = Reader(file)
        captured.transfers = list(_assembled(_parts(reader.packets(), links)))
    known = {usbpcap.LINK, *usbmon.HEADS}
    if not links & known:
        raise CaptureError(
            f"no packet of it is of a USB bus: the link-layer types {', '.join(map(str, sorted(known)))} are known, here "
            f"is {', '.join(map(str, sorted(links))) or 'none'}"
        )
    if links - known:
        others = ", ".join(map(str, sorted(links - known)))
        captured.words.append(f"left out: packets of other link-layer types ({others})")
    if reader.cut_short:
        captured.words.append("the file ends in the middle of a block: what was behind it is missing")
    return captured


def _parts(packets: Iterator[Packet], links: set[int]) -> Iterator[usbpcap.Part]:
    for packet in packets:
        links.add(packet.link)
        if packet.link == usbpcap.LINK:
            part = usbpcap.read_part(packet)
        elif packet.link in usbmon.HEADS:
            part = usbmon.read_part(packet)
        else:
            part = None
        if part is not None:
            yield part


def _assembled(parts: Iterator[usbpcap.Part]) -> Iterator[Transfer]:
    """Submissions with what became of them. A submission is yielded when it is met, and its end added later: with what a
    device sends."""
    under_way: dict[tuple[int, int, int], Transfer] = {}
    now = number = held = 0
    for part in parts:
        # Packets stand in the order in which they were; a clock that was set back meanwhile stands still.
        now = max(now, part.at)
        if part.setup is not None:
            bus, device, _ = part.key
            transfer = Transfer(bus, device, now, part.setup, ended=now)
            number += 1
            if not transfer.is_to_host:
                held += _take(transfer, part)
            _check_limits(number, held)
            under_way[part.key] = transfer
            if len(under_way) > _MOST_UNDER_WAY:
                # Those that began first end elsewhere, if they do.
                del under_way[next(iter(under_way))]
            yield transfer
            continue
        begun = under_way.get(part.key)
        if begun is None:
            continue
        if part.length and not (begun.data or begun.length):
            held += _take(begun, part)
            _check_limits(number, held)
        if part.end is not None:
            begun.end, begun.ended = part.end, now
            del under_way[part.key]


def _take(transfer: Transfer, part: usbpcap.Part) -> int:
    """Its data stage, which is never longer than the setup packet says; the bytes that are kept."""
    transfer.data, transfer.length = part.data[: transfer.asked], min(part.length, transfer.asked)
    return len(transfer.data)


def _check_limits(number: int, held: int) -> None:
    if number > _MOST_TRANSFERS or held > _MOST_BYTES:
        raise CaptureError("it holds more control transfers than can be kept")
