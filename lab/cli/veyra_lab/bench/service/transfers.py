"""Line 1: control transfers of one update."""

import os
import subprocess
import tempfile
from collections.abc import Iterator
from pathlib import Path

from ..table import Row, exactly
from .contenders import Contenders
from .updates import image_of, update

LINE = 1
_BLOCK = 1024
_BLOCKS = 1024


def measure(contenders: Contenders, stand_in: Path) -> Iterator[Row]:
    """The service's transfers and dfu-util's, each counted by the camera that they reach. `stand_in` is the folder of
    the libusb whose one device is that camera."""
    image = image_of(_BLOCK * _BLOCKS)
    contenders.start(contenders.product, skip_waits=True)
    ours = update(contenders, image, _BLOCK)["transfers"]
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


def dfu_util_transfers(image: bytes, stand_in: Path) -> int:
    """Control transfers of dfu-util's download of the image to the same camera."""
    with tempfile.TemporaryDirectory() as folder:
        path, flash, count = (Path(folder) / name for name in ("image.bin", "flash.bin", "transfers"))
        path.write_bytes(image)
        environment = os.environ | {
            "LD_LIBRARY_PATH": str(stand_in),
            "VEYRA_PERSONALITY": "kv400",
            "VEYRA_MANIFESTS": "at once",
            "VEYRA_TRANSFER_SIZE": str(_BLOCK),
            "VEYRA_FLASH": str(flash),
            "VEYRA_TRANSFERS": str(count),
        }
        command = ["dfu-util", "--device", "2f1a:7e01", "--download", str(path)]
        result = subprocess.run(command, env=environment, capture_output=True, text=True, timeout=60, check=False)
        if not flash.exists() or flash.read_bytes() != image:
            raise AssertionError(f"dfu-util did not update the camera: {result.stdout}{result.stderr}")
        return int(count.read_text())
