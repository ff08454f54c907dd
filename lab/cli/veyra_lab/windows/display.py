"""Programs of a Windows machine that show themselves on a display."""

import os
import signal
import subprocess
import tempfile
import time
from collections.abc import Callable
from contextlib import suppress
from pathlib import Path

from .machine import WINE, Machine, MachineError

# The process that draws a desktop; it may stay when the programs that have windows on it have gone.
_DESKTOP = "explorer.exe"
_ENDING_PATIENCE = 20
_SERVING_PATIENCE = 60
_ATTEMPTS = 5
_OFFERS = b":CoRegisterClassObject "
# More than a server traces before it offers its class.
_TRACE_BYTES = 1 << 24


def serve_on_display(machine: Machine, *command: str) -> subprocess.Popen[bytes]:
    """Starts a COM server whose windows go to the display that DISPLAY names, and returns when it offers its class. No
    other program of the machine has a display, and the desktop that one of them has opened has none either: it is ended
    before, and once more when one comes between. A MachineError when it does not end, or nothing is offered."""
    for _ in range(_ATTEMPTS):
        _end_desktop(machine)
        with tempfile.TemporaryFile() as trace:
            server = subprocess.Popen(
                [str(WINE), *command],
                # Wine's own trace tells when the class is offered.
                env={**machine.environment, "DISPLAY": os.environ["DISPLAY"], "WINEDEBUG": "-all,trace+ole"},
                stdin=subprocess.DEVNULL,
                stdout=subprocess.DEVNULL,
                stderr=trace,
                start_new_session=True,
            )
            # Its desktop is there before it offers anything.
            if _await(server, lambda: bool(machine.processes(_DESKTOP))) and not _has_display(machine):
                server.kill()
                server.wait()
                continue
            if _await(server, lambda: _OFFERS in os.pread(trace.fileno(), _TRACE_BYTES, 0)):
                return server
            server.kill()
            raise MachineError(f"{command[0]} offers nothing, exit status {server.wait()}")
    raise MachineError("programs of the machine open a desktop without a display again and again")


def _await(server: subprocess.Popen[bytes], holds: Callable[[], bool]) -> bool:
    """Waits for it; False when it does not come to hold."""
    deadline = time.monotonic() + _SERVING_PATIENCE
    while not holds():
        if server.poll() is not None or time.monotonic() > deadline:
            return False
        time.sleep(0.05)
    return True


def _has_display(machine: Machine) -> bool:
    """Whether each desktop was opened by a program that has one."""
    for desktop in machine.processes(_DESKTOP):
        with suppress(OSError):
            if b"DISPLAY=" not in Path(f"/proc/{desktop}/environ").read_bytes():
                return False
    return True


def _end_desktop(machine: Machine) -> None:
    deadline = time.monotonic() + _ENDING_PATIENCE
    while desktops := machine.processes(_DESKTOP):
        if time.monotonic() > deadline:
            raise MachineError("the desktop of the machine does not end")
        for desktop in desktops:
            with suppress(ProcessLookupError):
                os.kill(desktop, signal.SIGKILL)
        time.sleep(0.05)
