"""The virtual machine that starts from the owner's disk."""

from collections.abc import Sequence
from dataclasses import dataclass
from pathlib import Path

from ..guest.qemu import USB_BUS, option, processor
from .disk import Disk
from .firmware import firmware_of, firmware_words
from .package import make_disc
from .picture import Picture

LAYER = "disk.qcow2"
# One port of the bus is the tablet's, with which the mouse is where the person points.
MOST_CAMERAS = 7
_TABLET_PORT = MOST_CAMERAS + 1


@dataclass(frozen=True)
class Hardware:
    """What the machine has besides its disk, its package and its cameras. Everything in it is driven by what Windows
    brings along."""

    accelerator: str
    firmware: str
    memory_mib: int
    processors: int
    has_network: bool
    picture: Picture

    def words(self) -> list[str]:
        """The words of QEMU's command line, without the firmware."""
        network = ("-netdev", "user,id=network", "-device", "e1000e,netdev=network") if self.has_network else ()
        return [
            "-accel", self.accelerator, "-cpu", processor(self.accelerator), "-m", str(self.memory_mib),
            # Some of the Windows use no more than one or two sockets.
            "-smp", f"{self.processors},sockets=1,cores={self.processors}",
            # Windows takes the clock for its local time.
            "-rtc", "base=localtime",
            "-vga", "std", *self.picture.words, *network,
            *USB_BUS, "-device", f"usb-tablet,bus=usb.0,port={_TABLET_PORT}",
        ]


def made_for(disk: Disk, folder: Path) -> str:
    """The firmware that a disk was made for; `folder` takes what has to be read. Unusable when nothing starts from such
    a disk."""
    return firmware_of(disk.head(folder / "head"))


def machine_words(disk: Disk, package: Path, cameras: Sequence[Path], hardware: Hardware, folder: Path) -> list[str]:
    """The words of QEMU's command line for a machine with the disk, a DVD of the package, and a camera of each socket
    on its bus. What the machine writes lies in the folder; the disk itself it cannot write. GuestError when a tool
    fails."""
    layer, disc = folder / LAYER, folder / "package.iso"
    disk.layer(layer)
    make_disc(package, disc)
    words = [
        *hardware.words(), *firmware_words(hardware.firmware, folder),
        "-drive", f"if=none,id=disk,format=qcow2,file={option(layer)}",
        "-device", "ide-hd,drive=disk,bus=ide.0,bootindex=0",
        "-drive", f"if=none,id=package,format=raw,media=cdrom,readonly=on,file={option(disc)}",
        "-device", "ide-cd,drive=package,bus=ide.1",
    ]
    for number, socket in enumerate(cameras):
        words += [
            "-chardev", f"socket,id=camera-{number},path={option(socket)}",
            "-device", f"usb-redir,chardev=camera-{number},bus=usb.0,port={number + 1}",
        ]
    return words
