"""One word chooses the bus."""

import argparse
from collections.abc import Iterator
from contextlib import contextmanager

from ..wire.peer import Peer
from .bus import CameraBus
from .usb import UsbBus, usb_bus
from .virtual import VirtualBus

BUSES = (VirtualBus.name, UsbBus.name)


def add_bus(parser: argparse.ArgumentParser) -> None:
    """Adds the option --bus to a command line."""
    parser.add_argument(
        "--bus",
        choices=BUSES,
        default=VirtualBus.name,
        help="where the cameras are plugged in: virtual, a bus in the service's process, in virtual time; usb, that of a"
        " Linux guest under QEMU, whose kernel drives them in real time (default: %(default)s)",
    )


@contextmanager
def opened(bus: str, peer: Peer, whose: str) -> Iterator[CameraBus]:
    """The bus of that name, in use until the end; `whose` is what a guest's logs are called. SetUpError or GuestError
    when there is none."""
    if bus == UsbBus.name:
        with usb_bus(peer, whose) as usb:
            yield usb
    else:
        yield VirtualBus(peer)
