"""Programs of a Windows machine that show themselves on a display."""

import os
import signal
import subprocess
import tempfile
import time
from contextlib import suppress

from .machine import WINE, Machine, MachineError

# The process that draws a desktop; it may stay when the programs that have windows on it have gone.
_DESKTOP = "explorer.exe"
_ENDING_PATIENCE = 20
_SERVING_PATIENCE = 60
# More than a server traces before it offers its class.
_TRACE_BYTES = 1 << 24


def serve_on_display(machine: Machine, *command: str) -> subprocess.Popen[bytes]:
    """Starts a COM server whose windows go to the display that DISPLAY names, and returns when it offers its class. No
    other program of the machine has a display, and the desktop that one of them may have left has none either: it is
    ended before. A MachineError when it does not end, or nothing is offered."""
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
        deadline = time.monotonic() + _SERVING_PATIENCE
        while b":CoRegisterClassObject " not in os.pread(trace.fileno(), _TRACE_BYTES, 0):
            if server.poll() is not None or time.monotonic() > deadline:
                server.kill()
                raise MachineError(f"{command[0]} offers nothing, exit status {server.wait()}")
            time.sleep(0.05)
    return server


def _end_desktop(machine: Machine) -> None:
    deadline = time.monotonic() + _ENDING_PATIENCE
    while desktops := machine.processes(_DESKTOP):
        if time.monotonic() > deadline:
            raise MachineError("the desktop of the machine does not end")
        for desktop in desktops:
            with suppress(ProcessLookupError):
                os.kill(desktop, signal.SIGKILL)
        time.sleep(0.05)
