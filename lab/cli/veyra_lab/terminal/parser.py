"""What the command lines have in common."""

import argparse
import sys
from pathlib import Path
from typing import Any, NoReturn

from ..checkout import BUILD


class Parser(argparse.ArgumentParser):
    """Takes no abbreviations, keeps the line breaks of its texts, and says what is wrong in one line instead of
    argparse's usage and message. Subparsers are of the same kind."""

    def __init__(self, **settings: Any) -> None:
        settings.setdefault("formatter_class", argparse.RawDescriptionHelpFormatter)
        settings.setdefault("allow_abbrev", False)
        super().__init__(**settings)

    def error(self, message: str) -> NoReturn:
        line = " ".join(message.split())
        self.exit(2, f"{self.prog}: {line} (--help shows the options)\n")


def give_up(program: str, error: BaseException, status: int = 1) -> int:
    """Says in one line why a program ends early; its exit status, 130 when it was interrupted."""
    interrupted = isinstance(error, KeyboardInterrupt)
    said = "; ".join(["interrupted" if interrupted else _words_of(error), *getattr(error, "__notes__", ())])
    print(f"{program}: {' '.join(said.split())}", file=sys.stderr)
    return 130 if interrupted else status


def _words_of(error: BaseException) -> str:
    """Of a file: its name and what is wrong, without the number."""
    if isinstance(error, OSError) and error.strerror:
        return f"{error.filename}: {error.strerror}" if error.filename else error.strerror
    return str(error)


def readable(text: str) -> Path:
    """The argument's type of a file that is going to be read."""
    try:
        Path(text).open("rb").close()
    except OSError as error:
        raise argparse.ArgumentTypeError(f"'{text}' cannot be read: {error.strerror}") from None
    return Path(text)


def writable(text: str) -> Path:
    """The argument's type of a file that is going to be written: refused now rather than minutes later."""
    path = Path(text).absolute()
    try:
        was_there = path.exists()
        path.open("a", encoding="utf-8").close()
        if not was_there:
            path.unlink()
    except OSError as error:
        raise argparse.ArgumentTypeError(f"'{text}' cannot be written: {error.strerror}") from None
    return path


def add_transcript(parser: argparse.ArgumentParser) -> None:
    """The option that names the transcript."""
    parser.add_argument(
        "--transcript",
        type=writable,
        metavar="FILE",
        help="keep a record of every crossing between service, camera and user, one JSON object a line",
    )


def _absolute(text: str) -> Path:
    return Path(text).resolve()


def add_places(parser: argparse.ArgumentParser) -> None:
    """The options that name the programs and the machine."""
    parser.add_argument(
        "--programs",
        type=_absolute,
        default=BUILD / "windows-release",
        metavar="FOLDER",
        help="the build folder (default: build/windows-release)",
    )
    parser.add_argument(
        "--machine",
        type=_absolute,
        default=BUILD / "wine-scenarios",
        metavar="FOLDER",
        help="the Windows machine, made when it is not there (default: build/wine-scenarios)",
    )
