"""Keeps two runs from sharing one machine."""

import fcntl
import signal
from collections.abc import Iterator
from contextlib import contextmanager
from pathlib import Path
from typing import NoReturn

from .machine import MachineError


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
