"""Line 10: seconds of a whole download on a USB bus that a Linux guest's kernel drives."""

from collections.abc import Iterator
from typing import Any

from ...buses.usb import MOST_TRANSFER_BYTES, UsbBus
from ..table import Row
from .contenders import Contenders
from .other_host import Download, OtherHost, download_of
from .transfers import BUSY_FIRST
from .updates import image_of

LINE = 10
_SIZE = 1 << 20
_BLOCK = 1024
# What the service waits between two looks at a camera that is busy, whatever the camera asks for.
_POLL_SECONDS = 0.2
_PATIENCE = 45.0


def measure(contenders: Contenders, other_host: OtherHost) -> Iterator[Row]:
    """The service's seconds and dfu-util's, by the same camera's record, from the first DFU request to the last."""
    image = image_of(_SIZE)
    ready: dict[str, Any] = {"transfer_size": _BLOCK, "manifests_at_once": True}
    yield _row(
        f"download of 1 MiB on a real bus, {_BLOCK:,} bytes a block",
        _ours(contenders, other_host, image, ready),
        other_host.download(image, **ready),
        "From the first DFU request to the last, as the camera has recorded them. dfu-util runs in the guest; each of the"
        " service's transfers comes to it through Wine, the laboratory's program and the guest's helper.",
    )
    blocks = _SIZE // MOST_TRANSFER_BYTES
    busy: dict[str, Any] = {**BUSY_FIRST, "transfer_size": MOST_TRANSFER_BYTES}
    yield _row(
        f"the same, camera busy after each of {blocks} blocks of 4 KiB",
        _ours(contenders, other_host, image, busy),
        other_host.download(image, **busy),
        f"The service looks again after {_POLL_SECONDS * 1000:.0f} ms, whatever the camera asks for:"
        f" {blocks * _POLL_SECONDS:.1f} s of its time are that.",
    )


def _ours(contenders: Contenders, other_host: OtherHost, image: bytes, camera: dict[str, Any]) -> Download:
    """An update by the product. AssertionError when the image is not in the flash then."""
    contenders.installation.put_image(image)
    bus = UsbBus(other_host.guest, contenders.peer)
    try:
        contenders.peer.set_stage(bus.stage({"cameras": [camera]}))
        bus.place([camera])
        contenders.product.start()
        bus.plug(0)
        bus.settle(_PATIENCE)
        since = contenders.peer.mark()
        contenders.camera.accept()
        bus.settle(_PATIENCE)
        if bus.flash(0) != image:
            raise AssertionError("the service did not update the camera on the guest's bus")
        events = contenders.peer.events_since(since)
        bus.unplug(0)
        bus.settle(_PATIENCE)
        contenders.product.stop()
    finally:
        contenders.product.end()
        bus.clear()
    return download_of(events)


def _row(what: str, ours: Download, reference: Download, note: str) -> Row:
    return Row(LINE, what, ours.seconds, reference.seconds, "s", "dfu-util", note=note)
