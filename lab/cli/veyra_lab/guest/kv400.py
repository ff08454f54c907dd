"""A served camera as the guest's kernel has it, and how a host sends it to DFU mode."""

import struct
from types import TracebackType

from ..wire.events import CAMERA_PRODUCTS, CAMERA_VENDOR, ENTER_DFU_MODE, USBREDIR, Event
from ..wire.peer import Peer
from .served_cameras import ServedCameras
from .usb_host import UsbHost

# The extension unit behind the camera's processing unit, and its control for the firmware's commands.
_UNIT = 3
_COMMAND_CONTROL = 1
_FRAME_SIZE = 1024
# A frame tells the length of what stands behind its magic bytes: the opcode and four parameters, without data.
_ENTER_DFU_MODE = struct.pack("<H2sI4I", 20, b"\xab\xcd", ENTER_DFU_MODE, 1, 0, 0, 0).ljust(_FRAME_SIZE, b"\0")


class Kv400:
    """One of the served cameras, which is plugged in for the time of this context; `path` is where the kernel has it.
    PeerError when it does not come or leave, KernelRefusal when the kernel cannot reach it."""

    def __init__(self, usb: UsbHost, peer: Peer, cameras: ServedCameras, number: int = 0) -> None:
        self._usb = usb
        self._peer = peer
        self._cameras = cameras
        self._number = number
        self.path = ""

    def __enter__(self) -> "Kv400":
        self._cameras.plug(self._number)
        self.settle()
        return self

    def __exit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None
    ) -> None:
        if error is not None:
            self._cameras.unplug(self._number)
            return
        # A kernel that is still busy with its arrival would tell of it later, when the next camera is waited for.
        mode = self.settle()
        since = self._peer.mark()
        self._cameras.unplug(self._number)
        self._usb.wait_for("removal", CAMERA_VENDOR, CAMERA_PRODUCTS[mode], since)

    def settle(self) -> str:
        """Waits until the kernel has the camera in the mode in which it is, or to which it is on its way; the mode,
        "running" or "dfu"."""
        since = self._last_change()
        self._peer.follow(self._is_change, "the camera's return to the bus", since=since, quiet=20)
        mode: str = self._cameras.state(self._number)["mode"]
        self.path = self._usb.wait_for("ready", CAMERA_VENDOR, CAMERA_PRODUCTS[mode], since)
        return mode

    def enter_dfu_mode(self) -> None:
        """Sends the firmware's command for it, through the UVC driver, and waits until the boot loader is there."""
        since = self._peer.mark()
        self._usb.write_unit(self.path, _UNIT, _COMMAND_CONTROL, _ENTER_DFU_MODE)
        self.path = self._usb.wait_for("ready", CAMERA_VENDOR, CAMERA_PRODUCTS["dfu"], since)

    def _last_change(self) -> int:
        """Where the record tells last that it came or left."""
        events = self._peer.events()
        return max(place for place, event in enumerate(events) if self._is_change(event, "left"))

    def _is_change(self, event: Event, *more: str) -> bool:
        """Whether the event tells that it has come to the bus, or of one of these changes more."""
        return (
            event["source"] == USBREDIR
            and event["event"] == "camera"
            and event["camera"] == self._number
            and event["change"] in ("plugged", "running", "dfu", *more)
        )
