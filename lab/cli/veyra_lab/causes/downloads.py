"""What became of a download, by the toast controller's record of it and by what came after it."""

from collections.abc import Sequence
from dataclasses import dataclass

from .story import CameraArrival, Download, Item, Start, Stop, UsbArrival

_ALL_TAKEN, _LAST_MAY_BE_MISSING, _STOPPED, _UNKNOWN_END, _NEVER_BEGAN, _CLIENT_GONE = 20, 21, 22, 23, 24, 26
# Block numbers have 16 bits.
_BLOCK_NUMBERS = 1 << 16


@dataclass(frozen=True)
class Judged:
    """The rows, the likeliest first, and what was seen."""

    rows: tuple[str, ...]
    seen: str


def download_rows(items: Sequence[Item], place: int, unasked: bool) -> Judged:
    """Of the download at this place of a story."""
    usb = items[place]
    assert isinstance(usb, UsbArrival) and usb.download is not None
    download, after = usb.download, _after(items[place + 1 :])
    if download.end == _NEVER_BEGAN:
        return Judged(("image-gone",), "a download was over before it began")
    if download.end == _STOPPED:
        return _stopped(items, place, download, after, unasked)
    if download.end == _ALL_TAKEN:
        return _whole(download, after)
    if download.end == _LAST_MAY_BE_MISSING:
        return _nearly_whole(download, after)
    if download.end == _CLIENT_GONE:
        return Judged(("began",), "the service ended during the download")
    return _untold(download, after)


def _stopped(items: Sequence[Item], place: int, download: Download, after: str, unasked: bool) -> Judged:
    seen = f"the download stopped after {download.taken} blocks of {download.announced}"
    if download.taken:
        return Judged(("block-failed",), seen)
    if download.announced == 0:
        if after == "no image":
            return Judged(("image-gone",), f"{seen}, and the image is too short")
        return Judged(("image-gone", "block-failed", "refused"), seen)
    rows = ["refused", "block-failed"]
    if unasked:
        rows = ["no-firmware", "refused"]
    if after == "old" or after == "another":
        rows.append("restarts-at-detach")
    if _one_before(items, place):
        rows.append("behind-another")
    return Judged(tuple(rows), f"{seen}: before the first")


def _whole(download: Download, after: str) -> Judged:
    seen = f"the camera took all {download.taken} blocks"
    if after == "new":
        around = ("wrong-content",) if download.taken > _BLOCK_NUMBERS else ()
        return Judged(("up-to-date", "end-failed", *around), f"{seen}, and came back with the image's version")
    if after == "no image":
        return Judged(("up-to-date", "end-failed"), f"{seen}, and a camera came back")
    if after == "nothing":
        return Judged(("end-failed", "waits-for-plug", "does-not-stop"), f"{seen}, and the trace ends there")
    return Judged(("end-failed", "waits-for-plug"), f"{seen}, and did not come back with the image's version")


def _nearly_whole(download: Download, after: str) -> Judged:
    seen = f"the camera took {download.taken} of {download.announced} blocks, and perhaps a short one"
    if after == "new":
        return Judged(("up-to-date", "end-failed"), f"{seen}, and came back with the image's version")
    return Judged(("block-failed", "end-failed"), f"{seen}, and did not come back with the image's version")


def _untold(download: Download, after: str) -> Judged:
    """There is no record of its end."""
    if download.started or download.end == _UNKNOWN_END:
        return Judged(("controller-gone",), "the record of the download breaks off")
    if after == "new":
        return Judged(("up-to-date", "end-failed"), "a download, and a camera with the image's version after it")
    return Judged(
        ("block-failed", "refused", "end-failed", "image-gone", "waits-for-plug", "restarts-at-detach"),
        "a download, of which there is no record; the Application log has the toast controller's",
    )


def _after(rest: Sequence[Item]) -> str:
    """What comes after a download: "new" or "old" firmware at the next arrival of a camera, or "no image" at it,
    "another" download, or "nothing" up to the service's end."""
    for item in rest:
        if isinstance(item, UsbArrival) and item.download is not None:
            return "another"
        if isinstance(item, CameraArrival):
            return {"equal": "new", "different": "old", "no image": "no image"}.get(item.outcome, "another camera")
        if isinstance(item, Start | Stop):
            return "nothing"
    return "nothing"


def _one_before(items: Sequence[Item], place: int) -> bool:
    """Whether the download before this one ended before its first block, too, and another camera was asked about
    since."""
    for at in range(place - 1, -1, -1):
        item = items[at]
        if isinstance(item, UsbArrival) and item.download is not None:
            asked = any(isinstance(each, CameraArrival) for each in items[at:place])
            return item.download.end == _STOPPED and item.download.taken == 0 and asked
    return False
