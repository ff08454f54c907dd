"""Line 1: control transfers of one update."""

from collections.abc import Iterator
from typing import Any

from ...wire.events import RIG
from ..table import Row, exactly
from .contenders import Contenders
from .other_host import OtherHost
from .updates import image_of, update

LINE = 1
_BLOCK = 1024
_BLOCKS = 1024
# The first GETSTATUS after a block finds the camera busy, the first after the last block finds it manifesting; it waits
# long enough for the next.
BUSY_FIRST: dict[str, Any] = {
    "personality": "busy-first",
    "manifests_at_once": False,
    "manifest_ms": 0,
    "reset_ms": 1000,
}


def measure(contenders: Contenders, other_host: OtherHost) -> Iterator[Row]:
    """The service's transfers and dfu-util's, each counted by the camera that they reach."""
    image = image_of(_BLOCK * _BLOCKS)
    contenders.start(contenders.product, skip_waits=True)
    since = contenders.peer.mark()
    ours = update(contenders, image, _BLOCK)["transfers"]
    opening = opening_requests(contenders, since)
    busy = update(contenders, image, _BLOCK, **BUSY_FIRST)["transfers"]
    contenders.product.stop()
    others = other_host.download(image, transfer_size=_BLOCK, manifests_at_once=True)
    others_busy = other_host.download(image, transfer_size=_BLOCK, **BUSY_FIRST)
    note = (
        f"dfu-util's are those on the guest's USB bus, where they took {others.seconds:.1f} s, and"
        f" {others_busy.seconds:.1f} s with the camera busy."
    )
    yield exactly(
        LINE,
        f"control transfers of an update, n = {_BLOCKS:,} blocks",
        ours,
        2 * _BLOCKS + 7,
        "transfers",
        against="dfu-util",
        reference=others.transfers,
        bar=f"2n + 7 = {2 * _BLOCKS + 7:,}",
        note=note,
    )
    yield exactly(
        LINE,
        "the same, camera busy after each block",
        busy,
        3 * _BLOCKS + 8,
        "transfers",
        against="dfu-util",
        reference=others_busy.transfers,
        bar=f"3n + 8 = {3 * _BLOCKS + 8:,}",
        note=note,
    )
    yield exactly(
        LINE,
        "descriptors read and SET_INTERFACE before",
        opening,
        4,
        "requests",
        against="",
        reference=None,
        bar="3 + 1",
    )


def opening_requests(contenders: Contenders, since: int) -> int:
    """How often a descriptor was read or a setting chosen since the mark."""
    events = contenders.peer.events_since(since)
    return sum(event["source"] == RIG and event["event"] in ("descriptor", "alternate-setting") for event in events)
