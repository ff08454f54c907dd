"""The scenario of a camera that was made of a capture, and the image beside it."""

import json
import os
from collections.abc import Iterator, Sequence
from pathlib import Path
from typing import Any

from ..scenarios.schema import SCENARIOS, check_filled
from ..windows.image import SMALLEST_IMAGE, version_of
from .answers import is_closing
from .boot_loader import Settings
from .input import FoundCamera
from .transfer import End, Request, Transfer

_OLD_VERSION = "0.0.0.1"
_OTHER_OLD_VERSION = "0.0.0.2"
_MOST_WORDS = 600
_LONGEST_UNIT = 8


def write_camera(found: FoundCamera, name: str, path: Path) -> dict[Path, bytes]:
    """The files that have to be written: the scenario's, and that of the image, if there is one. `name` is the
    capture's."""
    image_path = path.with_suffix(".bin")
    content: dict[str, Any] = {
        "$schema": os.path.relpath(SCENARIOS / "scenario.schema.json", path.absolute().parent),
        "description": f"The device of {name}: {'; '.join(found.words)}.",
        "stage": {"cameras": [_camera(found)]},
        "steps": list(_steps(found)),
    }
    if _version(found.image):
        content["stage"]["image"] = {"file": image_path.name}
    check_filled({key: value for key, value in content.items() if key != "$schema"})
    files = {image_path: found.image} if found.image else {}
    return {**files, path: json.dumps(content, indent=2).encode() + b"\n"}


def _camera(found: FoundCamera) -> dict[str, Any]:
    settings, usual = found.settings, Settings()
    camera: dict[str, Any] = {"version": _OLD_VERSION}
    if _version(found.image) == _OLD_VERSION:
        camera["version"] = _OTHER_OLD_VERSION
    for field in ("transfer_size", "block_ms", "manifest_ms", "reset_ms", "manifests_at_once"):
        if getattr(settings, field) != getattr(usual, field):
            camera[field] = getattr(settings, field)
    if found.stay.configuration:
        camera["configuration_descriptor"] = found.stay.configuration.hex(" ")
    if settings.traits:
        camera["traits"] = settings.traits
    if found.faults:
        camera["faults"] = list(found.faults)
    return camera


def _version(image: bytes) -> str:
    return version_of(image) if len(image) >= SMALLEST_IMAGE else ""


def _steps(found: FoundCamera) -> Iterator[Any]:
    yield {"plug": 0}
    yield {"wait for": "question"}
    yield "settle"
    yield {"answer": 1}
    pattern = service_pattern(found.stay.requests)
    if not pattern or not _goes_on_alike(found):
        yield "settle"
        return
    yield {"wait for": "download end"}
    yield {"expect": {"transfers": pattern}}


def _goes_on_alike(found: FoundCamera) -> bool:
    """Whether the service has a reason to send the same again: it has the image, and something has ended the sequence."""
    transfers = [each for each in _first_opening(found.stay.requests) if each.is_dfu]
    ends = transfers[-1].end is not End.OK or any(map(is_closing, transfers))
    return ends and (bool(_version(found.image)) or not any(each.name == "DNLOAD" for each in transfers))


def service_pattern(requests: Sequence[Transfer]) -> str:
    """The sequence of the requests as a scenario expects it, if it is one that this service sends; otherwise none."""
    transfers = [each for each in _first_opening(requests) if each.is_dfu]
    opening = [Request.GETSTATE, Request.DETACH, Request.GETSTATE, Request.UPLOAD, Request.DNLOAD]
    if not transfers or [each.request for each in transfers[:5]] != opening[: len(transfers)]:
        return ""
    words = [_word(each) for each in transfers]
    pattern = " ".join(_folded(words))
    return pattern if pattern.count(" ") < _MOST_WORDS else ""


def _first_opening(requests: Sequence[Transfer]) -> Iterator[Transfer]:
    """Up to the next choice of the interface's setting: the service opens a device anew at each arrival of another."""
    is_used = False
    for each in requests:
        if is_used and not each.is_dfu:
            return
        is_used |= each.is_dfu
        yield each


def _word(transfer: Transfer) -> str:
    name = "EMPTY" if is_closing(transfer) else transfer.name
    return name if transfer.end is End.OK else f"{name}!"


def _folded(words: Sequence[str]) -> Iterator[str]:
    """The words, with those that come again and again told once: "(DNLOAD GETSTATUS)x5"."""
    place = 0
    while place < len(words):
        size, times = max(
            ((size, _times(words, place, size)) for size in range(1, _LONGEST_UNIT + 1)),
            key=lambda each: each[0] * (each[1] - 1),
        )
        if times < 2:
            size, times = 1, 1
        unit = " ".join(words[place : place + size])
        yield unit if times == 1 else f"{unit}x{times}" if size == 1 else f"({unit})x{times}"
        place += size * times


def _times(words: Sequence[str], place: int, size: int) -> int:
    """How often the next `size` words come one after the other."""
    times = 1
    while words[place + times * size : place + (times + 1) * size] == words[place : place + size]:
        times += 1
    return times
