"""Whole updates of a camera that is always ready unless it is told otherwise, as the measurements need them."""

import random
from typing import Any

from ...windows.image import with_version
from ...wire.events import Event
from .contenders import Contenders

_VERSION = "6.0.0.0"


def image_of(size: int) -> bytes:
    """Bytes without a pattern, the same in every run, with a version that the camera does not have."""
    return with_version(random.Random(size).randbytes(size), _VERSION)


def update(contenders: Contenders, image: bytes, transfer_size: int, **camera: Any) -> Event:
    """One update by the running product, of the camera with these fields more. Its state at the end, before it is
    unplugged."""
    contenders.installation.put_image(image)
    contenders.camera.put(transfer_size=transfer_size, **camera)
    contenders.camera.plug()
    contenders.product.settle()
    contenders.camera.accept()
    contenders.product.settle()
    state = contenders.camera.state()
    contenders.camera.unplug()
    contenders.product.settle()
    if state["version"] != _VERSION or state["flash_bytes"] != len(image):
        raise AssertionError(f"the camera was not updated: {state}")
    return state
