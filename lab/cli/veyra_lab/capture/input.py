"""A capture as a camera that answers as the captured device did."""

from collections.abc import Sequence
from dataclasses import dataclass
from typing import Any

from ..windows.image import SMALLEST_IMAGE
from .answers import is_block, is_closing
from .boot_loader import Settings
from .descriptor_pins import pin_descriptors
from .descriptors import own_device
from .errors import CaptureError
from .inference import infer
from .pins import pin
from .reading import Captured
from .stays import Stay, stays_of
from .transfer import End


@dataclass(frozen=True)
class FoundCamera:
    """What was made of a capture. `words` say, a line each, what it is, what is assumed and what cannot be expressed."""

    stay: Stay
    settings: Settings
    faults: Sequence[dict[str, Any]]
    image: bytes
    words: Sequence[str]


def camera_of(captured: Captured, device: str | None = None) -> FoundCamera:
    """The camera of the device with this name, as "1.5"; of the one that took most bytes when none is named. CaptureError
    when there is none, or its image is longer than a machine's may be."""
    stays = [stay for stay in stays_of(captured.transfers) if stay.is_dfu and stay.requests]
    stay = _chosen(stays, device)
    found = infer(stay)
    pinned = pin(stay.requests, found.settings)
    image = stay.image()
    requests = stay.requests
    words = [
        f"device {stay.name}{f' ({stay.identity})' if stay.identity else ''}: {len(requests):,} requests,"
        f" {len(image):,} bytes downloaded in {sum(map(is_block, requests)):,} blocks",
        *captured.words,
        *(
            f"left out: device {other.name}, {len(other.requests):,} requests, {other.downloaded:,} bytes"
            for other in stays[:20]
            if other is not stay
        ),
        *_words_about_descriptors(stay),
        *found.words,
        *pinned.words,
    ]
    if len(image) < SMALLEST_IMAGE:
        words.append("what was downloaded has no place for a version: the scenario downloads an image of its own")
    elif not any(is_closing(each) and each.end is End.OK for each in requests):
        words.append("the download was not completed: the image is what was sent of it")
    if any(each.is_cut for each in requests if is_block(each)):
        words.append("the capture does not have all of the image: what is missing is left out of it")
    return FoundCamera(stay, found.settings, [*pin_descriptors(stay), *pinned.faults], image, words)


def _chosen(stays: Sequence[Stay], device: str | None) -> Stay:
    if not stays:
        raise CaptureError("the capture has no device in DFU mode that was asked for anything")
    if device is None:
        return max(stays, key=lambda stay: stay.downloaded)
    for stay in stays:
        if stay.name == device:
            return stay
    names = ", ".join(stay.name for stay in stays[:10])
    raise CaptureError(f"no device {device} was in DFU mode; there is {names}")


def _words_about_descriptors(stay: Stay) -> list[str]:
    if not stay.device_descriptor:
        return ["not in the capture: the device descriptor; the camera has a KV400's"]
    if stay.device_descriptor != own_device():
        told = stay.device_descriptor.hex(" ")
        return [f"not expressed: the device descriptor {told}; the camera has a KV400's"]
    return []
