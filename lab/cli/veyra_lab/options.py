"""The demo's command line, checked whole before anything on the machine is touched."""

import argparse
import os
import re
from collections.abc import Sequence
from dataclasses import dataclass
from pathlib import Path
from typing import NoReturn

from .image import SMALLEST_IMAGE

DESCRIPTION = """\
Shows one whole firmware update: installs the camera service in a Windows machine of its own (Wine), plugs a virtual
camera in, answers the service's question, watches the download, compares the camera's flash with the image, and
removes everything again. What is missing on this machine is installed first, and the programs are built."""

CLOSING = """\
The last lines say what came of it: the camera's firmware before and after, the digests of image and flash, and the
number of control transfers. Exit status: 0 when the flash equals the image byte for byte and every expectation held,
1 when not, 2 when the command line is wrong. With --answer decline the flash has to stay as it was instead."""


@dataclass(frozen=True)
class Options:
    """What the person asked for."""

    image: Path | None
    camera_version: str
    transfer_size: int
    accept: bool
    transcript: Path | None


class _Parser(argparse.ArgumentParser):
    """Says what is wrong in one line instead of argparse's usage and message."""

    def error(self, message: str) -> NoReturn:
        line = " ".join(message.split())
        self.exit(2, f"{self.prog}: {line} (--help shows the options)\n")


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


def _transcript(text: str) -> Path:
    path = Path(text)
    if path.is_dir():
        raise argparse.ArgumentTypeError(f"'{text}' is a folder")
    target = path if path.exists() else path.parent
    if not target.exists() or not os.access(target, os.W_OK):
        raise argparse.ArgumentTypeError(f"'{text}' cannot be written")
    return path.resolve()


def _parser() -> argparse.ArgumentParser:
    parser = _Parser(
        prog="scripts/demo",
        description=DESCRIPTION,
        epilog=CLOSING,
        formatter_class=argparse.RawDescriptionHelpFormatter,
        allow_abbrev=False,
    )
    parser.add_argument(
        "--image",
        type=_image,
        metavar="FILE",
        help="firmware image to download; without it one of 256 KiB with version 5.10.3.0 is made",
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
        choices=("accept", "decline"),
        default="accept",
        help="what the user says to the service's question (default: %(default)s)",
    )
    parser.add_argument(
        "--transcript",
        type=_transcript,
        metavar="FILE",
        help="keep a record of every crossing between service, camera and user, one JSON object a line",
    )
    return parser


def parse(arguments: Sequence[str]) -> Options:
    """The options, or the end of the process: status 2 with one line on standard error, 0 after --help."""
    parsed = _parser().parse_args(arguments)
    return Options(
        image=parsed.image,
        camera_version=parsed.camera_version,
        transfer_size=parsed.transfer_size,
        accept=parsed.answer == "accept",
        transcript=parsed.transcript,
    )
