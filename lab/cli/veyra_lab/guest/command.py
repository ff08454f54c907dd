"""scripts/lab guest: boots the guest, and shows what its kernel sees."""

import argparse
import re
from typing import Any

from ..terminal.parser import add_transcript, give_up
from ..terminal.screen import Screen
from ..terminal.set_up import SetUpError
from ..wire.events import PeerError
from ..wire.peer import Peer
from .accelerator import accelerator
from .errors import GuestError
from .machine import GuestMachine
from .qemu import Logs
from .up_to_date import LOG_FOLDER, up_to_date_image

_DEVICE = re.compile(r"Bus \d+ Device \d+: .*")

_CLOSING = """\
Exit status: 0 when the guest has booted and answered, 1 when not, 2 when the command line is wrong. What the guest
said lies in build/guest/: guest-console.log, guest-kernel.log, guest-qemu.log."""


def register(subparsers: Any) -> None:
    """Adds the command "guest" to the laboratory's command line."""
    parser = subparsers.add_parser(
        "guest",
        help="boot the Linux guest and look at its USB bus",
        description="Boots the virtual machine whose Linux kernel drives what is plugged into its USB bus, and shows"
        " the kernel's version, the seconds to its first answer, and what lsusb sees there.",
        epilog=_CLOSING,
    )
    add_transcript(parser)
    parser.set_defaults(run=_run)


def _run(options: argparse.Namespace) -> int:
    screen = Screen()
    try:
        image = up_to_date_image()
        how = accelerator(image)
        with Peer({}, lambda event: None, lambda event: None, options.transcript) as peer:
            screen.step(f"booting {image.kernel.package} ({how})")
            with GuestMachine(image, peer, Logs(LOG_FOLDER), how) as guest:
                screen.note(f"Linux {guest.kernel} answered after {guest.seconds_to_first_answer:.1f} s")
                screen.step("lsusb")
                # It also complains, on the same line, that the image does not have udev's names of vendors.
                for line in _DEVICE.findall(guest.system.run("lsusb").output):
                    screen.note(line)
                for complaint in guest.kernel_complaints():
                    screen.note(f"the kernel complains: {complaint}")
    except (SetUpError, GuestError, PeerError, OSError) as error:
        return give_up("scripts/lab", error)
    return 0
