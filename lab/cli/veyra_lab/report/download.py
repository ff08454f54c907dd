"""The downloads of a transcript: what belongs to each, and how far it went."""

from collections.abc import Iterable, Iterator
from dataclasses import dataclass, field
from enum import Enum

from .codes import Code
from .transcript import Event, number, text, texts
from .transfer import Transfer, read_transfer


class End(Enum):
    """How a download ended."""

    FINISHED = "finished"
    STOPPED = "stopped"
    OPEN = "open"


@dataclass
class Download:
    """One download from the opening of the device in DFU mode to its closing. Times are the transcript's."""

    began: float
    pid: int | None
    transfers: list[Transfer] = field(default_factory=list)
    announced: int | None = None
    ended: float | None = None
    # Whether the service said that it is over.
    completed: bool = False
    end: End = End.OPEN
    # Blocks and bytes that the camera has confirmed, and the block that was sent last, from 1.
    confirmed: int = 0
    bytes_confirmed: int = 0
    sent: int = 0
    bytes_sent: int = 0
    complete_image: bool = False
    # The bytes of the image that was in the machine when it began; None when the transcript does not tell.
    image_size: int | None = None
    # The length of its first block.
    block_size: int = 0
    waits: int = 0
    wait_seconds: float = 0.0
    curve: list[tuple[float, int, int]] = field(default_factory=list)
    why: str = ""
    code: Code | None = None
    culprit: Transfer | None = None

    @property
    def last(self) -> float:
        """When the last thing of it happened."""
        if self.ended is not None:
            return self.ended
        return self.transfers[-1].t if self.transfers else self.began

    @property
    def stopped_at(self) -> float:
        """When it stopped, if it did."""
        return self.culprit.t if self.culprit else self.last

    @property
    def blocks(self) -> int | None:
        """How many blocks the image has, a short last one counted; where is_least says so, the least of them."""
        if self.image_size is not None and self.block_size:
            return -(-self.image_size // self.block_size)
        if self.complete_image:
            return self.confirmed
        return max(self.announced or 0, self.sent) or None

    @property
    def is_least(self) -> bool:
        """Whether the image may have one block more: the service announces whole blocks only."""
        return not self.complete_image and (self.image_size is None or not self.block_size)

    @property
    def of_blocks(self) -> str:
        """" of 1,024", or " of at least 1,024", or nothing."""
        least = "at least " if self.is_least else ""
        return f" of {least}{self.blocks:,}" if self.blocks else ""


def gather(events: Iterable[Event]) -> list[Download]:
    """Every download with its transfers, in the order of their beginnings; none is judged yet."""
    gathering = _Gathering()
    for event in events:
        gathering.take(event)
    return gathering.found


def all_transfers(found: Iterable[Download]) -> Iterator[Transfer]:
    """The transfers of all downloads."""
    for download in found:
        yield from download.transfers


class _Gathering:
    """Puts the events together that belong to one download."""

    def __init__(self) -> None:
        self.found: list[Download] = []
        self._open: dict[int | None, Download] = {}
        # The toast controller's report of the announcement may stand before the rig's of the device's opening.
        self._announced: int | None = None
        self._image_size: int | None = None

    def take(self, event: Event) -> None:
        kind, pid = event["event"], number(event, "pid")
        opened = kind == "usb-open" and event.get("ok") is not False
        if opened or kind == "transfer" and pid not in self._open:
            self._begin(event, pid)
        if kind == "transfer":
            self._open[pid].transfers.append(read_transfer(event))
        elif kind == "usb-close" and pid in self._open:
            self._open.pop(pid).ended = event["t"]
        elif kind == "gone" and pid in self._open:
            download = self._open.pop(pid)
            download.ended = event["t"]
            download.why = "the service's process ended in the middle of it"
        elif kind == "prompt-call":
            self._take_prompt_call(event)
        elif kind == "image":
            # A missing image has no size: a download that nothing is known of.
            self._image_size = number(event, "size")

    def _begin(self, event: Event, pid: int | None) -> None:
        self._open[pid] = Download(event["t"], pid, announced=self._announced, image_size=self._image_size)
        self._announced = None
        self.found.append(self._open[pid])

    def _take_prompt_call(self, event: Event) -> None:
        newest = list(self._open.values())[-1] if self._open else None
        if text(event, "method") == "NotifyComplete" and newest is not None:
            newest.ended = event["t"]
            newest.completed = True
        announced = announced_blocks(event)
        if announced is not None:
            if newest is not None and newest.announced is None:
                newest.announced = announced
            else:
                self._announced = announced


def announced_blocks(event: Event) -> int | None:
    """The number of blocks in a "start:" call; None for every other event."""
    said = texts(event, "texts")
    if event["event"] != "prompt-call" or not said or not said[0].startswith("start:"):
        return None
    count = said[0].removeprefix("start:")
    return int(count) if count.isascii() and count.isdecimal() and len(count) < 12 else None
