"""Firmware images: the one the demo makes, and the version that any image carries."""

import hashlib
from pathlib import Path

VERSION_OFFSET = 398
SMALLEST_IMAGE = VERSION_OFFSET + 4
DEFAULT_IMAGE_SIZE = 256 * 1024
# Its last block is a short one.
ODD_IMAGE_SIZE = DEFAULT_IMAGE_SIZE + 17
DEFAULT_IMAGE_VERSION = "5.10.3.0"


def with_version(content: bytes, version: str) -> bytes:
    """The content with the version's four numbers written where the service and the camera look for them."""
    stored = bytes(reversed([int(number) for number in version.split(".")]))
    return content[:VERSION_OFFSET] + stored + content[SMALLEST_IMAGE:]


def version_of(content: bytes) -> str:
    """The version text of an image of at least SMALLEST_IMAGE bytes, most significant number first."""
    stored = content[VERSION_OFFSET:SMALLEST_IMAGE]
    return ".".join(str(number) for number in reversed(stored))


def default_image(size: int = DEFAULT_IMAGE_SIZE) -> bytes:
    """The demo's own image: the same bytes on every machine, with no pattern that a shifted block could hide in."""
    noise = hashlib.shake_256(b"KV400 demonstration image").digest(size)
    return with_version(noise, DEFAULT_IMAGE_VERSION)


def sha256(content: bytes) -> str:
    """The digest that the closing lines show."""
    return hashlib.sha256(content).hexdigest()


def read_image(path: Path | None, default_size: int = DEFAULT_IMAGE_SIZE) -> bytes:
    """The image to download: the file's bytes, or the demo's own of that size when no file is named."""
    return default_image(default_size) if path is None else path.read_bytes()
