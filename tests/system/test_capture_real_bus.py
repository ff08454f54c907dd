"""A capture that nobody here has made: of a real download on the guest's bus, by Linux' usbmon and Debian's dumpcap.

VEYRA_CAPTURES names a folder in which it is kept: tests/system/captures has one of these."""

import os
from collections.abc import Iterator
from pathlib import Path

import pytest
from guests import Running, booted, guest_image
from support import slow
from test_capture import RANDOM_IMAGE, check_camera_of_dfu_util
from veyra_lab.guest.image import Image, image_of
from veyra_lab.guest.programs import PROGRAMS

pytestmark = slow

_CAPTURER = ("dumpcap", "setsid", "sh", "sleep")
# The device file of the first bus is there once the module is; the capturing program is ready when its file is.
_BEGIN = "setsid dumpcap -q -i usbmon1 -w /tmp/bus.pcapng >/tmp/dumpcap.log 2>&1 & echo $! >/tmp/pid; sleep 2"
_END = "read pid </tmp/pid; kill -INT $pid; sleep 2"


@pytest.fixture(scope="module")
def image() -> Image:
    return image_of(guest_image().kernel, programs=(*PROGRAMS, *_CAPTURER))


@pytest.fixture(scope="module")
def running(image: Image) -> Iterator[Running]:
    with booted(image, "capture") as running:
        yield running


def test_a_capture_of_a_real_download_is_read_as_its_camera(running: Running, tmp_path: Path) -> None:
    system = running.guest.system
    system.load("usbmon")
    with running.camera(block_ms=40, manifest_ms=200, reset_ms=10_000, transfer_size=512) as camera:
        begun = system.run("sh", "-c", _BEGIN)
        assert begun.status == 0, begun.output
        with camera.in_dfu_mode():
            downloaded = camera.dfu_util.download(RANDOM_IMAGE)
            assert "Done!" in downloaded.output
        assert camera.flash == RANDOM_IMAGE
        assert system.run("sh", "-c", _END).status == 0
    capture = Path(os.environ.get("VEYRA_CAPTURES", tmp_path)) / "dfu-util.pcapng"
    capture.write_bytes(system.read_file("bus.pcapng"))
    check_camera_of_dfu_util(capture, times=3)
