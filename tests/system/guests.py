"""What the tests of the guest share: whether it can run here, a boot, and a camera on its bus."""

import os
from collections.abc import Iterator
from contextlib import contextmanager
from pathlib import Path
from typing import Any, NoReturn

import pytest
from support import CHECKOUT
from veyra_lab.guest.accelerator import accelerator
from veyra_lab.guest.dfu_util import DfuUtil
from veyra_lab.guest.errors import GuestError
from veyra_lab.guest.image import Image, image_of
from veyra_lab.guest.kernel import debian_kernel
from veyra_lab.guest.kv400 import Kv400
from veyra_lab.guest.machine import GuestMachine
from veyra_lab.guest.qemu import Logs
from veyra_lab.guest.served_cameras import ServedCameras
from veyra_lab.guest.tools import tool
from veyra_lab.wire.peer import Peer


# What Linux says of a device that had a BOS before a reset of its port and has another descriptor, and none, behind it.
_COMES_BACK_AS_ANOTHER = "unable to get BOS descriptor"


def cannot_run(error: GuestError) -> NoReturn:
    """Where a run is meant to find out whether all is well, a guest that does not run is a failure."""
    if os.environ.get("CI"):
        raise error
    pytest.skip(str(error))


def is_there(pid: int) -> bool:
    """Whether the process runs; not, when it only waits to be asked for its status."""
    try:
        return Path(f"/proc/{pid}/stat").read_text(encoding="utf-8").rpartition(")")[2].split()[0] != "Z"
    except OSError:
        return False


def guest_image() -> Image:
    """What the guest boots; the test is skipped where that cannot be made."""
    try:
        tool("qemu-system-x86_64")
        return image_of(debian_kernel())
    except GuestError as error:
        cannot_run(error)


def new_peer() -> Peer:
    return Peer({}, lambda event: None, lambda event: None)


class ServedCamera:
    """The one camera that the guest's bus has a port for: its own side, and how the guest's kernel sees it."""

    def __init__(self, running: "Running", cameras: ServedCameras) -> None:
        self._cameras = cameras
        self._running = running
        self.dfu_util = DfuUtil(running.guest.system)

    def plugged(self) -> Kv400:
        """Plugs it in for the time of a context."""
        return Kv400(self._running.guest.usb, self._running.peer, self._cameras)

    @contextmanager
    def in_dfu_mode(self) -> Iterator[Kv400]:
        """The same, and sends it to DFU mode."""
        with self.plugged() as kv400:
            kv400.enter_dfu_mode()
            yield kv400

    @property
    def flash(self) -> bytes:
        """Its whole flash."""
        return self._cameras.flash(0)


class Running:
    """A guest that has booted, and the peer at the other end of its wire."""

    def __init__(self, guest: GuestMachine, on: Peer) -> None:
        self.guest = guest
        self.peer = on

    @contextmanager
    def camera(self, **fields: Any) -> Iterator[ServedCamera]:
        """A camera with these fields of a stage, unplugged. The kernel may complain of nothing that it does."""
        mark = self.guest.system.kernel_mark()
        with ServedCameras(self.guest, self.peer, [fields]) as cameras:
            yield ServedCamera(self, cameras)
        assert [line for line in self.guest.kernel_complaints(mark) if _COMES_BACK_AS_ANOTHER not in line] == []


@contextmanager
def booted(image: Image, name: str) -> Iterator[Running]:
    """A boot; its logs have the name. The test is skipped where it does not succeed."""
    with new_peer() as on:
        guest = GuestMachine(image, on, Logs(CHECKOUT / "build" / "guest", name), accelerator(image))
        try:
            guest.__enter__()
        except GuestError as error:
            cannot_run(error)
        try:
            yield Running(guest, on)
        finally:
            guest.__exit__(None, None, None)
