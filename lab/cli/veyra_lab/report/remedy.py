"""Which row of docs/operations.md a failure of a transcript is, which knows more than a user's trace does."""

from ..causes.rows import Row, rows
from .download import Download
from .transcript import Event, number

_ENTER_DFU_MODE = 0x1E
_ERROR = 10
# What the service traced when it came to nothing, and the row that it is.
OBSTACLE_ROWS = {
    11: "controller-setup",
    12: "controller-setup",
    20: "driver-late",
    21: "driver-wrong",
    22: "version-unknown",
    25: "no-image",
    26: "no-image",
}


def row_named(name: str) -> Row | None:
    """The row, or None when the checkout's document has none of that name."""
    return rows().get(name)


def row_of_download(download: Download, events: list[Event]) -> str:
    """The name of the row that a stopped download is."""
    if download.image_size == 0 or (download.announced is None and not download.transfers):
        return "image-gone" if download.completed or download.image_size == 0 else "driver-wrong"
    if download.complete_image:
        return "end-failed"
    if download.sent:
        return "block-failed"
    if _restarted(download, events):
        return "restarts-at-detach"
    states = [transfer.state for transfer in download.transfers]
    return "no-firmware" if _ERROR in states and not _was_sent(download, events) else "refused"


def _restarted(download: Download, events: list[Event]) -> bool:
    """The camera left the bus over DETACH, and came back by itself."""
    requests = [transfer.request for transfer in download.transfers]
    if requests[:2] != ["GETSTATE", "DETACH"]:
        return False
    changes = [event.get("change") for event in events if event["event"] == "camera" and event["t"] >= download.began]
    return changes[:1] == ["left"] and changes[1:2] in (["running"], ["dfu"])


def _was_sent(download: Download, events: list[Event]) -> bool:
    """Whether it was an answer that sent the camera into DFU mode, since it was plugged in."""
    plugged = [event["t"] for event in events if event["event"] == "camera" and event.get("change") == "plugged"]
    since = max((t for t in plugged if t <= download.began), default=0.0)
    return any(
        event["event"] == "firmware-command"
        and number(event, "opcode") == _ENTER_DFU_MODE
        and since <= event["t"] <= download.began
        for event in events
    )
