"""A booted machine made ready for scenarios: an end of the wire, and a player."""

import argparse
import fcntl
import signal
from collections.abc import Iterator
from contextlib import contextmanager
from pathlib import Path
from types import TracebackType
from typing import NoReturn

from .machine import Machine, MachineError
from .peer import Event, Peer
from .scenario_player import ScenarioPlayer
from .stage import Programs
from .trace_formats import TraceFormats

CHECKOUT = Path(__file__).resolve().parents[3]
_BUILD = CHECKOUT / "build"


def _absolute(text: str) -> Path:
    return Path(text).resolve()


def add_places(parser: argparse.ArgumentParser) -> None:
    """The options that name the programs and the machine."""
    parser.add_argument(
        "--programs",
        type=_absolute,
        default=_BUILD / "windows-release",
        metavar="FOLDER",
        help="the build folder (default: build/windows-release)",
    )
    parser.add_argument(
        "--machine",
        type=_absolute,
        default=_BUILD / "wine-scenarios",
        metavar="FOLDER",
        help="the Windows machine, made when it is not there (default: build/wine-scenarios)",
    )


def built(folder: Path) -> Programs:
    """The programs of a build folder. MachineError when they are not built."""
    programs = Programs.of(folder)
    for path in (programs.service, programs.rig, programs.toast_server):
        if not path.is_file():
            raise MachineError(f"{path} is missing: scripts/setup build windows-release builds it")
    return programs


def _interrupt(number: int, _frame: object) -> NoReturn:
    raise KeyboardInterrupt(signal.Signals(number).name)


@contextmanager
def sole_use(prefix: Path) -> Iterator[None]:
    """Two runs must not share one machine. MachineError when another has it. A run that is told to end is interrupted,
    so that it leaves nothing running."""
    for number in (signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, _interrupt)
    prefix.parent.mkdir(parents=True, exist_ok=True)
    with prefix.with_name(f"{prefix.name}.lock").open("w") as lock:
        try:
            fcntl.flock(lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
        except BlockingIOError:
            raise MachineError(f"another run uses the machine {prefix}") from None
        yield


class ProvingGround:
    """Use it as a context, which gives the player; on exit everything is taken away again."""

    def __init__(
        self, machine: Machine, programs: Programs, transcript: Path | None = None, *, always_fresh: bool = False
    ) -> None:
        self._formats = TraceFormats(CHECKOUT / "trace")
        self._peer = Peer({}, self._add_words, lambda event: None, transcript)
        self._player = ScenarioPlayer(machine, self._peer, programs, always_fresh=always_fresh)

    def __enter__(self) -> ScenarioPlayer:
        self._peer.__enter__()
        try:
            return self._player.__enter__()
        except BaseException:
            self._peer.__exit__(None, None, None)
            raise

    def __exit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None
    ) -> None:
        try:
            self._player.__exit__(kind, error, trace)
        finally:
            self._peer.__exit__(kind, error, trace)

    def _add_words(self, event: Event) -> None:
        if event["event"] == "trace":
            event["text"] = self._formats.text(event["group"], event["number"], event["arguments"])
