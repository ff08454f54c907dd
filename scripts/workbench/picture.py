"""The README's picture: the top of a report of a real run. scripts/picture."""

import argparse
import subprocess
import sys
import tempfile
from collections.abc import Sequence
from pathlib import Path

from veyra_lab.checkout import CHECKOUT
from veyra_lab.report.transcript import HOW_TO_MAKE_ONE, is_transcript
from veyra_lab.terminal.parser import Parser, give_up, readable, writable
from veyra_lab.terminal.set_up import SetUpError, call_setup

from .interruption import status_of

_DESCRIPTION = """\
Makes the picture in the README: runs the demo, has scripts/lab report make its page, and photographs the top of it in
Chromium. With --transcript it is the page of a run that was recorded before.

What is missing on this machine is installed first. Exit status: 0 when the picture is made, 1 when not, 2 for wrong
usage."""

_WIDTH = 1180
_HEIGHT = 900
_COLOURS = 128


class PictureError(Exception):
    """A step did not do what it should."""


def _call(command: Sequence[str | Path], seconds: float = 900) -> None:
    try:
        done = subprocess.run(
            command,
            capture_output=True, text=True, errors="replace", stdin=subprocess.DEVNULL, timeout=seconds, check=False,
        )  # fmt: skip
    except subprocess.TimeoutExpired:
        raise PictureError(f"{command[0]} did not end within {seconds:.0f} s") from None
    if done.returncode != 0:
        words = (done.stderr.strip() or done.stdout.strip() or "without a word").splitlines()[-1]
        raise PictureError(f"{command[0]} ended with {done.returncode}: {words}")


def _photograph(page: Path, picture: Path, folder: Path) -> None:
    """Chromium's own photograph of a window of one size, in the light; few colours make a small file."""
    photograph = folder / "photograph.png"
    _call([
        "chromium", "--headless", "--no-sandbox", "--disable-gpu", "--hide-scrollbars", "--disable-background-networking",
        "--blink-settings=preferredColorScheme=1", f"--user-data-dir={folder / 'profile'}",
        f"--window-size={_WIDTH},{_HEIGHT}", f"--screenshot={photograph}", page.as_uri(),
    ], seconds=120)  # fmt: skip
    _call(["convert", photograph, "-strip", "+dither", "-colors", str(_COLOURS), f"png8:{picture}"])


def _transcript(text: str) -> Path:
    path = readable(text)
    try:
        begins_as_one = is_transcript(path)
    except OSError as error:
        raise argparse.ArgumentTypeError(f"'{text}' cannot be read: {error.strerror}") from None
    if not begins_as_one:
        raise argparse.ArgumentTypeError(f"'{text}' is no transcript; {HOW_TO_MAKE_ONE}")
    return path


def main() -> int:
    parser = Parser(prog="scripts/picture", description=_DESCRIPTION)
    parser.add_argument(
        "--transcript", type=_transcript, metavar="FILE", help="of a run that was recorded (default: run the demo)"
    )
    parser.add_argument(
        "--output", type=writable, metavar="FILE", default=CHECKOUT / "docs" / "report.png",
        help="where the picture goes (default: docs/report.png)",
    )
    options = parser.parse_args()
    scripts = CHECKOUT / "scripts"
    try:
        call_setup("packages", "picture")
        with tempfile.TemporaryDirectory() as name:
            folder = Path(name)
            transcript = options.transcript or folder / "run.jsonl"
            if not options.transcript:
                _call([scripts / "demo", "--transcript", transcript])
            page = folder / "report.html"
            _call([scripts / "lab", "report", transcript, "-o", page])
            _photograph(page, options.output, folder)
    except (SetUpError, PictureError, OSError) as error:
        return give_up("scripts/picture", error)
    print(options.output)
    return 0


if __name__ == "__main__":
    sys.exit(status_of(main, "scripts/picture"))
