"""What is in a camera's flash: the image, what it came with, a part of the image, or neither."""

import zlib
from collections.abc import Iterator, Sequence
from typing import Any

from .observed import CameraNow, Observed

_OLD_FLASH_SIZE = 4096
_DEFAULT_VERSION = "5.10.2.0"


def old_flash(camera: dict[str, Any]) -> bytes:
    """The flash with which a virtual camera of this stage begins."""
    flash = bytearray((offset * 31 + 7) & 0xFF for offset in range(_OLD_FLASH_SIZE))
    flash[398:402] = bytes(reversed([int(number) for number in camera.get("version", _DEFAULT_VERSION).split(".")]))
    return bytes(flash)


def check_flash(observed: Observed, number: int, wanted: str, now: CameraNow) -> Iterator[str]:
    old, image = old_flash(observed.cameras[number]), observed.image or b""
    if wanted == "old" and now.flash != old:
        yield f"flash of camera {number}: expected what it came with, seen {_describe(now.flash, old, image)}"
    if wanted == "image" and now.flash != image:
        yield f"flash of camera {number}: expected the image, seen {_describe(now.flash, old, image)}"
    if wanted == "partial" and not 0 < _common(now.flash, image) < len(image):
        yield f"flash of camera {number}: expected a part of the image, seen {_describe(now.flash, old, image)}"
    if wanted == "other" and now.flash in (old, image):
        yield f"flash of camera {number}: expected neither, seen {_describe(now.flash, old, image)}"


def check_firmware(observed: Observed, number: int, wanted: str | list[str], now: CameraNow) -> Iterator[str]:
    known = [("image", observed.image or b""), ("old", old_flash(observed.cameras[number]))]
    seen = _firmware(now.survivor, [*known, *(("old", image) for image in observed.earlier)])
    allowed = [wanted] if isinstance(wanted, str) else wanted
    if seen not in allowed:
        yield f"firmware of camera {number} after a power failure: expected {' or '.join(allowed)}, seen {seen}"


def _firmware(survivor: dict[str, Any], known: Sequence[tuple[str, bytes]]) -> str:
    if not survivor["valid"]:
        return "none"
    for name, content in known:
        if (len(content), zlib.crc32(content)) == (survivor["bytes"], survivor["checksum"]):
            return name
    return "wrong"


def _describe(flash: bytes, old: bytes, image: bytes) -> str:
    if flash == old:
        return "what it came with"
    if flash == image:
        return "the image"
    return f"{len(flash)} bytes of which the first {_common(flash, image)} are the image's"


def _common(one: bytes, other: bytes) -> int:
    return next((at for at, (a, b) in enumerate(zip(one, other)) if a != b), min(len(one), len(other)))
