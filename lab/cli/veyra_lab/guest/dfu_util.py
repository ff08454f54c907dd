"""Debian's dfu-util in the guest: a DFU host, on a USB stack, that nobody here wrote."""

from contextlib import suppress

from ..wire.events import CAMERA_PRODUCTS, CAMERA_VENDOR
from .errors import GuestError, KernelRefusal
from .system import FILES, ProgramEnd, System

# The camera while it runs, and the boot loader that it then is.
_DEVICE = ",".join(f"{CAMERA_VENDOR}:{product}" for product in CAMERA_PRODUCTS.values())
_IMAGE = "image.bin"
_READ_BACK = "read-back.bin"
_LIMIT = 300.0


class DfuUtil:
    """Runs it on the one camera that is on the guest's bus, each time to its end. What it said and its exit code are
    for the caller to judge. Every call may end with a KernelRefusal or a PeerError, as helper.ask does."""

    def __init__(self, system: System) -> None:
        self._system = system

    def run(self, *arguments: str) -> ProgramEnd:
        """With these arguments behind those that choose the camera."""
        return self._system.run("dfu-util", "--device", _DEVICE, *arguments, limit=_LIMIT)

    def download(self, image: bytes, *arguments: str) -> ProgramEnd:
        """Has it send an image to the camera."""
        self._system.write_file(_IMAGE, image)
        return self.run("--download", f"{FILES}/{_IMAGE}", *arguments)

    def upload(self) -> bytes:
        """Has it read the camera's flash. GuestError, with its words, when it does not."""
        # It overwrites no file.
        with suppress(KernelRefusal):
            self._system.remove_file(_READ_BACK)
        end = self.run("--upload", f"{FILES}/{_READ_BACK}")
        if end.status != 0:
            raise GuestError(f"dfu-util ended with {end.status}: {end.output}")
        return self._system.read_file(_READ_BACK)
