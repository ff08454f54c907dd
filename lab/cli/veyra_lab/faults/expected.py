"""What an update of a trial has to bring about on the executable that ships, as a scenario's expectation."""

from collections.abc import Mapping, Sequence
from itertools import groupby
from typing import Any

from ..scenarios.transfer_pattern import spell
from ..wire.events import ENTER_DFU_MODE
from .story import ToldUpdate

# The scenarios' words for how an update can end; without any for one whose camera did not come to DFU mode.
_RESULTS = {"not asked": "not asked", "up to date": "not asked", "not opened": "not opened", "failed": "failed"}
_NO_CAMERA_IN_DFU_MODE, _CAMERA_IN_DFU_MODE, _NOT_OPENED = "update 18", "update 19", "update 20"
_VERSION_UNKNOWN, _VERSION = "update 22", "update 23"
# Cameras that an update without a fault leaves running with the image.
_UPDATED = ("kv400", "busy-first", "addressed-flash")
# What may follow a request: the blocks and looks that are left, whichever they are.
_LOOKS = "GETSTATUS?*"
_REST = f"(DNLOAD? {_LOOKS})* EMPTY?* {_LOOKS}"
_AFTER = {
    "GETSTATE": f"DETACH?* GETSTATE?* UPLOAD?* {_REST}",
    "DETACH": f"GETSTATE?* UPLOAD?* {_REST}",
    "UPLOAD": _REST,
    "DNLOAD": f"{_LOOKS} {_REST}",
    "GETSTATUS": f"{_LOOKS} {_REST}",
    "EMPTY": _LOOKS,
}
# The service takes its HID descriptor for DFU's functional one, so the blocks that it announces are of another size.
_MISREAD = "behind-hid"


def has_to_be_updated(update: ToldUpdate, camera: Mapping[str, Any], has_faults: bool) -> bool:
    """Whether nothing was done to the camera that may keep it from that."""
    return not has_faults and update.number == 1 and camera["personality"] in _UPDATED


def mended(update: ToldUpdate, camera: Mapping[str, Any], has_faults: bool) -> dict[str, Any]:
    """What has to hold of an update in which a rule was broken: the requests up to there were right, the one that had to
    come is known, and in the end the camera has nothing that nobody has made."""
    if has_to_be_updated(update, camera, has_faults):
        return {"result": "updated", "camera": update.camera}
    seen = shorten(spell(event for event in update.events if event["event"] == "transfer"))
    expected: dict[str, Any] = {}
    # Where nothing has come to a camera in DFU mode yet, what does is open.
    if not update.how and (update.bus or update.next):
        right = "" if seen == "none" else seen
        ahead = f"{update.next}? {_AFTER[update.next]}" if update.next else ""
        expected["transfers"] = f"{right} {ahead}".strip() or "none"
    # One that counts as updated has to have the image.
    firmware = ["image"] if update.how == "updated" else ["none", "old", "image"]
    if "boot_check" in camera.get("traits", {}):
        firmware = ["none", "old", "image", "wrong"]
    expected["cameras"] = [*[None] * update.camera, {"firmware": firmware}]
    return expected


def expectation(
    update: ToldUpdate, camera: Mapping[str, Any], image_size: int, faults: Sequence[Mapping[str, Any]]
) -> dict[str, Any]:
    """Of an update that came to its end and broke no rule."""
    transfers = [event for event in update.events if event["event"] == "transfer"]
    expected: dict[str, Any] = {"transfers": shorten(spell(transfers))}
    is_pulled = any(fault["what"] == "unplug" for fault in faults)
    if update.how == "updated" and update.firmware == "image" and update.is_running and not is_pulled:
        expected["result"] = "updated"
    elif update.how in _RESULTS:
        expected["result"] = _RESULTS[update.how]
    if expected.get("result") != "not asked":
        is_opened = update.how in ("failed", "updated")
        expected["commands"] = sum(
            event["event"] == "firmware-command" and event["opcode"] == ENTER_DFU_MODE for event in update.events
        )
        expected["completions"] = int(is_opened)
        if camera["personality"] != _MISREAD:
            size = camera["transfer_size"]
            expected["progress"] = progress(transfers, image_size, size) if is_opened else []
    expected["traces with"], expected["traces without"] = _traces(update)
    now = {"firmware": update.firmware}
    expected["cameras"] = [now] if update.camera == 0 else [None, now]
    if update.camera:
        expected["camera"] = update.camera
    return expected


def shorten(words: str) -> str:
    """A pattern of just these words, each run of the same one told once."""
    runs = [(word, len(list(same))) for word, same in groupby(words.split())]
    return " ".join(word if times == 1 else f"{word}x{times}" for word, times in runs) or "none"


def progress(transfers: list[dict[str, Any]], image_size: int, transfer_size: int) -> list[str]:
    """The texts that the user is told of a download that was begun: the last block counts when more was sent."""
    words = [word.partition("/")[0] for word in spell(transfers).split()]
    taken = words.count("DNLOAD") - (not any(word.startswith("EMPTY") for word in words))
    return [f"start:{image_size // transfer_size}", *(str(block + 1) for block in range(taken))]


def _traces(update: ToldUpdate) -> tuple[list[str], list[str]]:
    began_running = bool(update.commands)
    is_in_dfu_mode = update.how in ("not opened", "failed", "updated")
    said = {
        _NO_CAMERA_IN_DFU_MODE: began_running,
        _CAMERA_IN_DFU_MODE: is_in_dfu_mode,
        _NOT_OPENED: update.how == "not opened",
        _VERSION_UNKNOWN: update.how == "not asked",
        _VERSION: began_running and update.how != "not asked",
    }
    # A camera without firmware comes back with some: its version is read, and what is said of that is nobody's affair.
    open_ends = () if began_running else (_NO_CAMERA_IN_DFU_MODE, _VERSION)
    return [trace for trace, is_said in said.items() if is_said], [
        trace for trace, is_said in said.items() if not is_said and trace not in open_ends
    ]
