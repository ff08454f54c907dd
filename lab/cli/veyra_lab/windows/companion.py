"""The companion program in the machine."""

import shutil
import subprocess
import tempfile
from collections.abc import Callable, Iterator
from contextlib import contextmanager
from pathlib import Path

from ..checkout import CHECKOUT
from .installation import APP_DEFAULTS_KEY, FOLDER
from .machine import WINE, Machine, MachineError, Outcome, registry_string, windows_path
from .programs import COMPANION

PROGRAM = rf"{FOLDER}\{COMPANION}.exe"
_OVERRIDES = rf"{APP_DEFAULTS_KEY}\{COMPANION}.exe"
_WORDS = rf"{FOLDER}\trace"
_PATIENCE = 60


@contextmanager
def companion_in(machine: Machine, program: Path) -> Iterator[None]:
    """It lies beside the service, which is installed already, with the rig for both."""
    shutil.copyfile(program, machine.file(PROGRAM))
    give_rig(machine)
    try:
        yield
    finally:
        take_rig(machine)


def give_rig(machine: Machine) -> None:
    """From now on it starts with the rig."""
    machine.change_registry({rf"{_OVERRIDES}\DllOverrides": {"winusb": registry_string("native")}})


def take_rig(machine: Machine) -> None:
    """From now on it starts with what is Wine's own."""
    machine.change_registry({}, removed=[_OVERRIDES])


@contextmanager
def words_beside(machine: Machine) -> Iterator[None]:
    """The words of the service's trace lie beside it, as in the package."""
    shutil.copytree(CHECKOUT / "trace", machine.file(_WORDS))
    try:
        yield
    finally:
        shutil.rmtree(machine.file(_WORDS), ignore_errors=True)


def collect(machine: Machine, cabinet: Path, meanwhile: Callable[[], None]) -> Outcome:
    """Has it collect a bundle, of what happens until `meanwhile` returns: Enter is pressed then."""
    with tempfile.TemporaryFile() as output:
        process = subprocess.Popen(
            [str(WINE), PROGRAM, "collect", windows_path(cabinet)],
            env=machine.environment,
            stdin=subprocess.PIPE,
            stdout=output,
            stderr=output,
            start_new_session=True,
        )
        try:
            meanwhile()
            process.communicate(b"\r\n", _PATIENCE)
        except subprocess.TimeoutExpired:
            raise MachineError(f"{COMPANION} collect did not end within {_PATIENCE} s of Enter") from None
        finally:
            if process.poll() is None:
                process.kill()
                process.wait()
        output.seek(0)
        return Outcome(process.returncode, output.read().decode("utf-8", "replace").replace("\r\n", "\n"))
