"""Line 1: control transfers of one update."""

import os
import subprocess
import tempfile
from collections.abc import Iterator
from pathlib import Path
from typing import Any

from ...wire.events import RIG
from ..table import Row, exactly
from .contenders import Contenders
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


def measure(contenders: Contenders, stand_in: Path) -> Iterator[Row]:
    """The service's transfers and dfu-util's, each counted by the camera that they reach. `stand_in` is the folder of
    the libusb whose one device is that camera."""
    image = image_of(_BLOCK * _BLOCKS)
    contenders.start(contenders.product, skip_waits=True)
    since = contenders.peer.mark()
    ours = update(contenders, image, _BLOCK)["transfers"]
    opening = opening_requests(contenders, since)
    busy = update(contenders, image, _BLOCK, **BUSY_FIRST)["transfers"]
    contenders.product.stop()
    yield exactly(
        LINE,
        f"control transfers of an update, n = {_BLOCKS:,} blocks",
        ours,
        2 * _BLOCKS + 7,
        "transfers",
        against="dfu-util",
        reference=dfu_util_transfers(image, stand_in),
        bar=f"2n + 7 = {2 * _BLOCKS + 7:,}",
    )
    yield exactly(
        LINE,
        "the same, camera busy after each block",
        busy,
        3 * _BLOCKS + 8,
        "transfers",
        against="dfu-util",
        reference=dfu_util_transfers(image, stand_in, "busy-first", manifests="visibly"),
        bar=f"3n + 8 = {3 * _BLOCKS + 8:,}",
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


def dfu_util_transfers(
    image: bytes, stand_in: Path, personality: str = "kv400", manifests: str = "at once"
) -> int:
    """Control transfers of dfu-util's download of the image to the same camera."""
    with tempfile.TemporaryDirectory() as folder:
        path, flash, count = (Path(folder) / name for name in ("image.bin", "flash.bin", "transfers"))
        path.write_bytes(image)
        environment = os.environ | {
            "LD_LIBRARY_PATH": str(stand_in),
            "VEYRA_PERSONALITY": personality,
            "VEYRA_MANIFESTS": manifests,
            "VEYRA_TRANSFER_SIZE": str(_BLOCK),
            "VEYRA_FLASH": str(flash),
            "VEYRA_TRANSFERS": str(count),
        }
        command = ["dfu-util", "--device", "2f1a:7e01", "--download", str(path)]
        result = subprocess.run(command, env=environment, capture_output=True, text=True, timeout=60, check=False)
        if not flash.exists() or flash.read_bytes() != image:
            raise AssertionError(f"dfu-util did not update the camera: {result.stdout}{result.stderr}")
        return int(count.read_text())
