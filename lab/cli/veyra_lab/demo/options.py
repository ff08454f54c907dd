"""The demo's command line, checked whole before anything on the machine is touched."""

import argparse
import os
import re
from collections.abc import Sequence
from dataclasses import dataclass
from pathlib import Path

from ..buses.choice import add_bus
from ..buses.usb import MOST_TRANSFER_BYTES, UsbBus
from ..terminal.parser import Parser, add_transcript, writable
from ..windows.image import SMALLEST_IMAGE
from . import answer

DESCRIPTION = """\
Shows one whole firmware update: installs the camera service in a Windows machine of its own (Wine), plugs a virtual
camera in, answers the service's question, watches the download, compares the camera's flash with the image, and
removes everything again. What is missing on this machine is installed first, and the programs are built."""

CLOSING = """\
The last lines say what came of it: the camera's firmware before and after, the digests of image and flash, the number
of control transfers, and all of it in one sentence. When something failed, that sentence begins with the reason and
goes to standard error. Exit status: 0 when the flash equals the image byte for byte and every expectation held,
1 when not, 2 when the command line is wrong, 130 when interrupted. When the answer is no, the flash has to stay as it
was instead.

With --answer ask, the end of the input (Ctrl-D) means no. --answer window starts the toast controller that ships: a
task dialog on your display asks, shows the download and tells its end; closing it means no. Ctrl-C ends the demo and
cleans up, as at any time.

Examples:
  scripts/demo
  scripts/demo --answer ask --camera-version 6.0.0.0
  scripts/demo --answer window
  scripts/demo --bus usb
  scripts/demo --report update.html"""


@dataclass(frozen=True)
class Options:
    """What the person asked for."""

    image: Path | None
    camera_version: str
    transfer_size: int
    accept: bool
    # Puts the service's question to a person instead; None when `accept` decides.
    ask: answer.Ask | None
    # The toast controller that ships puts it to a person, in its window.
    window: bool
    transcript: Path | None
    # Where the page goes that shows it.
    report: Path | None
    bus: str


def _camera_version(text: str) -> str:
    if not re.fullmatch(r"[0-9]{1,3}(\.[0-9]{1,3}){3}", text):
        raise argparse.ArgumentTypeError(f"'{text}' is not a version of the form A.B.C.D")
    numbers = [int(number) for number in text.split(".")]
    if max(numbers) > 255:
        raise argparse.ArgumentTypeError(f"'{text}': each number of a version is 0 to 255")
    return ".".join(str(number) for number in numbers)


def _transfer_size(text: str) -> int:
    if not re.fullmatch(r"[0-9]{1,5}", text) or not 1 <= int(text) <= 65535:
        raise argparse.ArgumentTypeError(f"'{text}' is not a number from 1 to 65535")
    return int(text)


def _image(text: str) -> Path:
    path = Path(text)
    if not path.exists():
        raise argparse.ArgumentTypeError(f"'{text}' does not exist")
    if not path.is_file():
        raise argparse.ArgumentTypeError(f"'{text}' is not a file")
    if not os.access(path, os.R_OK):
        raise argparse.ArgumentTypeError(f"'{text}' cannot be read")
    size = path.stat().st_size
    if size < SMALLEST_IMAGE:
        raise argparse.ArgumentTypeError(
            f"'{text}' has {size} bytes; an image has at least {SMALLEST_IMAGE}, its version ends there"
        )
    return path.resolve()


def _parser() -> Parser:
    parser = Parser(prog="scripts/demo", description=DESCRIPTION, epilog=CLOSING)
    parser.add_argument(
        "--image",
        type=_image,
        metavar="FILE",
        help="firmware image to download; without it one of 256 KiB with version 5.10.3.0 is made, with --bus usb or"
        " --answer window 17 bytes longer",
    )
    parser.add_argument(
        "--camera-version",
        type=_camera_version,
        default="5.10.2.0",
        metavar="A.B.C.D",
        help="firmware version that the camera comes with, each number 0 to 255 (default: %(default)s)",
    )
    parser.add_argument(
        "--transfer-size",
        type=_transfer_size,
        default=1024,
        metavar="N",
        help="bytes that the camera takes in one block, 1 to 65535 (default: %(default)s)",
    )
    parser.add_argument(
        "--answer",
        choices=("accept", "decline", "ask", "window"),
        default="accept",
        help="what the user says to the service's question; ask puts it to you at the terminal, window has the toast"
        " controller that ships ask you, on your display (default: %(default)s)",
    )
    add_bus(parser)
    add_transcript(parser)
    parser.add_argument(
        "--report", type=writable, metavar="FILE.html", help="make a page that shows what happened (docs/report.md)"
    )
    return parser


def parse(arguments: Sequence[str]) -> Options:
    """The options, or the end of the process: status 2 with one line on standard error, 0 after --help."""
    parser = _parser()
    parsed = parser.parse_args(arguments)
    if parsed.report is not None and parsed.report == parsed.transcript:
        parser.error(f"--report and --transcript name the same file, {parsed.report}")
    if parsed.bus == UsbBus.name and parsed.transfer_size > MOST_TRANSFER_BYTES:
        most = f"with --bus usb, QEMU moves {MOST_TRANSFER_BYTES} bytes at most"
        parser.error(f"--transfer-size {parsed.transfer_size}: {most}")
    try:
        ask = answer.terminal() if parsed.answer == "ask" else None
        if parsed.answer == "window":
            answer.check_display()
    except answer.AnswerError as error:
        parser.error(str(error))
    return Options(
        image=parsed.image,
        camera_version=parsed.camera_version,
        transfer_size=parsed.transfer_size,
        accept=parsed.answer != "decline",
        ask=ask,
        window=parsed.answer == "window",
        transcript=parsed.transcript,
        report=parsed.report,
        bus=parsed.bus,
    )
