"""What a transcript tells of itself: date, machine, service, images, cameras, waits that were skipped."""

from collections.abc import Iterable
from dataclasses import dataclass, field
from typing import Any

from .transcript import Event, number, text

_MOST = 6


@dataclass
class Particulars:
    """Texts for a person; empty or 0 where the transcript tells nothing."""

    date: str = ""
    machine: str = ""
    service: str = ""
    images: list[str] = field(default_factory=list)
    cameras: list[str] = field(default_factory=list)
    # How many there were beside those that are listed.
    more_images: int = 0
    more_cameras: int = 0
    skipped_waits: int = 0
    skipped_seconds: float = 0.0

    @property
    def is_empty(self) -> bool:
        """Whether there is nothing to show."""
        return not (self.date or self.machine or self.service or self.images or self.cameras or self.skipped_waits)


def particulars(events: Iterable[Event]) -> Particulars:
    """All of it."""
    found = Particulars()
    images: dict[str, None] = {}
    cameras: dict[str, None] = {}
    for event in events:
        kind = event["event"]
        if kind == "run":
            found.date, found.machine = text(event, "date").replace("T", " "), text(event, "machine")
            found.service = _file(event.get("service"))
        elif kind == "image" and event.get("missing") is not True:
            images.setdefault(_file(event))
        elif kind in ("stage", "scenario"):
            told = event.get("cameras")
            for camera in told if isinstance(told, list) else []:
                cameras.setdefault(_camera(camera))
        elif kind == "wait":
            found.skipped_waits += 1
            found.skipped_seconds += (number(event, "ms") or 0) / 1000
    found.images, found.more_images = [*images][:_MOST], max(0, len(images) - _MOST)
    found.cameras, found.more_cameras = [*cameras][:_MOST], max(0, len(cameras) - _MOST)
    return found


def _file(fields: Any) -> str:
    """A program or an image: name, version, size, digest."""
    if not isinstance(fields, dict):
        return ""
    size, version = number(fields, "size"), text(fields, "version")
    parts = [text(fields, "name"), f"version {version}" if version else ""]
    parts += ["" if size is None else f"{size:,} bytes"]
    parts += [f"SHA-256 {text(fields, 'sha256')}" if fields.get("sha256") else ""]
    return ", ".join(part for part in parts if part)


def _camera(fields: Any) -> str:
    if not isinstance(fields, dict):
        return ""
    size, version = number(fields, "transfer_size"), text(fields, "version")
    parts = [f"KV400, firmware {version or '5.10.2.0'}"]
    parts += [f"boot loader “{text(fields, 'personality')}”" if fields.get("personality") else ""]
    parts += ["" if size is None else f"{size:,} bytes a transfer"]
    return ", ".join(part for part in parts if part)
