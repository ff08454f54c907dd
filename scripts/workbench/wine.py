"""The Windows machine of a build folder, in which its test programs run."""

import os
import shutil
import subprocess
from pathlib import Path
from types import TracebackType

from veyra_lab.checkout import CHECKOUT

_WINE = str(CHECKOUT / "scripts" / "wine")


class TestMachine:
    """Use it as a context: inside, the machine is booted, with a server that is kept, so that not every test boots one
    of its own. `environment` is for whoever starts a program in it."""

    def __init__(self, build: Path) -> None:
        self._prefix = build / "wine"
        self._made = self._prefix / "made"
        self.environment = {name: value for name, value in os.environ.items() if not name.endswith("DISPLAY")} | {
            "WINEARCH": "win64",
            "WINEDEBUG": "-all",
            "WINEDLLOVERRIDES": "winedbg.exe=d;mscoree=d;mshtml=d",
            "WINEPREFIX": str(self._prefix),
        }

    def __enter__(self) -> "TestMachine":
        # The boot that makes a machine is no good for tests: in it COM cannot start RpcSs a second time.
        if not self._made.exists():
            shutil.rmtree(self._prefix, ignore_errors=True)
            self._prefix.mkdir(parents=True)
            self._boot("-i")
            self._made.touch()
        self._boot()
        return self

    def __exit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None
    ) -> None:
        self._stop()

    def _boot(self, *options: str) -> None:
        self._stop()
        self._call("wineserver", "-p")
        self._call(_WINE, "wineboot", *options)

    def _stop(self) -> None:
        if self._call("wineserver", "-k") == 0:
            self._call("wineserver", "-w")

    def _call(self, *command: str) -> int:
        """Apart from the caller's streams: what the command leaves running would hold them open."""
        return subprocess.run(
            command,
            env=self.environment,
            stdin=subprocess.DEVNULL,
            stdout=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL,
            start_new_session=True,
            check=False,
        ).returncode
