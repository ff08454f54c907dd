"""The Windows machine that the laboratory runs in: one Wine prefix of its own and the server that keeps it alive."""

import os
import re
import shutil
import subprocess
import tempfile
import time
from collections.abc import Sequence
from dataclasses import dataclass
from pathlib import Path, PureWindowsPath
from types import TracebackType
from typing import IO

from ..checkout import CHECKOUT

SERVICES_KEY = r"HKEY_LOCAL_MACHINE\SYSTEM\CurrentControlSet\Services"
_AEDEBUG_KEY = r"HKEY_LOCAL_MACHINE\Software\Microsoft\Windows NT\CurrentVersion\AeDebug"
_NOTIFICATIONS_KEY = r"HKEY_CURRENT_USER\SOFTWARE\Microsoft\Windows\CurrentVersion\Notifications\Settings"
_ENDING_PATIENCE = 20
# A thread of Wine 10 that still asks its server when another has ended the process says so behind the program's output.
_WINES_LAST_WORDS = re.compile(r"^wine client error:[0-9a-f]+: .*\n?", re.MULTILINE)
_CRASH_FOLDER = r"C:\windows\temp\crashes"
WINE = CHECKOUT / "scripts" / "wine"


class MachineError(Exception):
    """Wine did not do what every run needs."""


@dataclass(frozen=True)
class Outcome:
    """How a program ended, and what it wrote to standard output and error together."""

    status: int
    text: str


def registry_string(text: str) -> str:
    """A text as it stands in a registry script."""
    escaped = text.replace("\\", "\\\\").replace('"', '\\"')
    return f'"{escaped}"'


def windows_path(path: Path) -> str:
    """A file of the host as the machine's programs name it."""
    return "Z:" + str(path.resolve()).replace("/", "\\")


def _words(path: Path) -> list[str]:
    """The texts of a file of the kernel's; none of a process that has just ended."""
    try:
        return path.read_bytes().decode("utf-8", "replace").rstrip("\0").split("\0")
    except OSError:
        return [""]


def processes_of(prefix: Path) -> dict[int, list[str]]:
    """The words of the command lines of all processes that belong to a prefix, programs and the server itself, by the
    host's numbers."""
    return {
        int(folder.name): _words(folder / "cmdline")
        for folder in Path("/proc").iterdir()
        if folder.name.isdigit() and f"WINEPREFIX={prefix}" in _words(folder / "environ")
    }


class Machine:
    """Use it as a context: it is booted on entry, and on exit every process in it is ended and waited for. `environment` is
    that of its processes, for whoever starts one without run()."""

    def __init__(self, prefix: Path) -> None:
        self.prefix = prefix
        self._wine = str(WINE)
        self._server = shutil.which("wineserver") or "/usr/lib/wine/wineserver"
        self.environment = {
            **{name: text for name, text in os.environ.items() if name not in ("DISPLAY", "WAYLAND_DISPLAY")},
            "WINEPREFIX": str(prefix),
            "WINEARCH": "win64",
            "WINEDEBUG": "-all",
            # winemenubuilder would write to the host's menus, and to the registry some time after the boot.
            "WINEDLLOVERRIDES": "winedbg.exe=d;winemenubuilder.exe=d;mscoree=d;mshtml=d",
        }

    @property
    def is_made(self) -> bool:
        """Whether the prefix was made to its end; one that was given up half-way counts as none."""
        return self._ready_mark.exists()

    @property
    def _ready_mark(self) -> Path:
        return self.prefix / "made-by-the-laboratory"

    def __enter__(self) -> "Machine":
        try:
            if not self.is_made:
                shutil.rmtree(self.prefix, ignore_errors=True)
            self.prefix.mkdir(parents=True, exist_ok=True)
            if not self.is_made:
                self._make()
            self._boot()
        except BaseException:
            self._kill_server()
            raise
        return self

    def __exit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None
    ) -> None:
        self._kill_server()

    def reboot(self) -> None:
        """Ends every process in it, and boots it anew."""
        self._boot()

    def run(self, *command: str, timeout: float = 60) -> Outcome:
        """Runs a program to its end. Its output goes through a file, since whatever it starts may outlive it and would
        hold a pipe open. A program that has only a name is one of the system's."""
        program, *arguments = command
        if not PureWindowsPath(program).is_absolute():
            # By its name alone it would be started by a program of Wine's own, in a console of its own: three for one.
            program = rf"C:\windows\system32\{program}.exe"
        with tempfile.TemporaryFile() as output:
            status = self._spawn((program, *arguments), output, timeout)
            output.seek(0)
            text = output.read().decode("utf-8", "replace").replace("\r\n", "\n")
        return Outcome(status, _WINES_LAST_WORDS.sub("", text))

    def processes(self, program: str) -> list[int]:
        """The host's numbers of the processes that run a program in this machine: "service.exe"."""
        return [number for number, words in processes_of(self.prefix).items() if f"\\{program}" in words[0]]

    def file(self, path: str) -> Path:
        """Where a file of drive C lies on the host: file(r"C:\\windows\\system32\\x.exe")."""
        parts = PureWindowsPath(path).parts
        if parts[0].lower() != "c:\\":
            raise ValueError(f"not on drive C: {path}")
        return self.prefix.joinpath("drive_c", *parts[1:])

    def crashes(self) -> list[str]:
        """Names of the notes that processes left which ended by an exception that nobody handled."""
        return sorted(note.name for note in self.file(_CRASH_FOLDER).glob("*"))

    def forget_crashes(self) -> None:
        """Removes the notes of earlier runs."""
        for note in self.file(_CRASH_FOLDER).glob("*"):
            note.unlink()

    # The registry.

    def change_registry(self, keys: dict[str, dict[str, str | None]], removed: Sequence[str] = ()) -> None:
        """Removes keys, then writes values, in one go. A value is in a registry script's notation; None removes it."""
        lines = ["Windows Registry Editor Version 5.00", ""]
        for key in removed:
            lines += [f"[-{key}]", ""]
        for key, values in keys.items():
            lines.append(f"[{key}]")
            lines += [f"{registry_string(name)}={'-' if value is None else value}" for name, value in values.items()]
            lines.append("")
        with tempfile.NamedTemporaryFile(suffix=".reg") as script:
            script.write("\r\n".join(lines).encode("utf-16"))
            script.flush()
            command = ("reg", "import", windows_path(Path(script.name)))
            # Where scripts/wine cannot fix the addresses, reg now and then does not start; the same again does no harm.
            if self.run(*command).status != 0:
                self.demand(*command)

    def registry_values(self, key: str) -> dict[str, tuple[str, str]] | None:
        """Type and text of each value of a key, or None when there is no such key."""
        answer = self.run("reg", "query", key)
        if answer.status != 0:
            return None
        values = {}
        for line in answer.text.splitlines():
            parts = line.strip().split("    ", 2)
            if line.startswith("    ") and len(parts) >= 2:
                values[parts[0]] = (parts[1], parts[2] if len(parts) == 3 else "")
        return values

    # Services.

    def service_state(self, name: str) -> str | None:
        """The state's word ("RUNNING"); None when there is no such service, neither for the service control manager nor
        in the registry, and "DELETED" when only its key is still there."""
        for line in self.run("sc", "query", name).text.splitlines():
            label, _, value = line.partition(":")
            if label.strip() == "STATE":
                return value.split()[-1]
        return "DELETED" if self.registry_values(rf"{SERVICES_KEY}\{name}") else None

    def wait_for_service_state(self, name: str, wanted: str | None, seconds: float) -> str | None:
        """Waits until the service is in the wanted state (None: gone) and returns the state seen last."""
        deadline = time.monotonic() + seconds
        while (state := self.service_state(name)) != wanted and time.monotonic() < deadline:
            time.sleep(0.1)
        return state

    def end_service(self, name: str) -> None:
        """Stops a service, in whatever state it is."""
        self.run("sc", "stop", name)
        if self.wait_for_service_state(name, "STOPPED", seconds=3) != "STOPPED":
            # It is in the middle of something, and nobody waits for that any more.
            self.run("taskkill", "/F", "/IM", f"{name}.exe")
            self.wait_for_service_state(name, "STOPPED", seconds=5)

    def demand(self, *command: str) -> str:
        """Runs a program that has to succeed, and returns what it wrote."""
        answer = self.run(*command)
        if answer.status != 0:
            raise MachineError(f"{' '.join(command)} failed with {answer.status}: {answer.text.strip()}")
        return answer.text

    # Wine itself.

    def _make(self) -> None:
        """Makes the prefix. The boot that makes it ends here: RpcSs, which every COM call needs, cannot be started a
        second time in it, and a COM client then waits for ever."""
        self._boot("-i")
        self._furnish()
        self._ready_mark.touch()

    def _boot(self, *options: str) -> None:
        self._kill_server()
        # The server outlives this call and its own idle time; without -p it ends the services after a few seconds.
        self._call_server("-p")
        self._spawn(("wineboot", *options), subprocess.DEVNULL, 180)

    def _furnish(self) -> None:
        """Adds a key that Windows has and Wine lacks, and has a crashing process leave a note: Wine would start its
        debugger otherwise, and hide the crash."""
        self.file(_CRASH_FOLDER).mkdir(parents=True, exist_ok=True)
        note = rf"C:\windows\system32\cmd.exe /c echo crashed > {_CRASH_FOLDER}\process-%ld-%ld"
        self.change_registry(
            {
                _AEDEBUG_KEY: {"Debugger": registry_string(note), "Auto": registry_string("1")},
                _NOTIFICATIONS_KEY: {},
            }
        )

    def _spawn(self, command: Sequence[str], output: IO[bytes] | int, timeout: float) -> int:
        # A session of its own keeps Ctrl-C for this program, which has to clean up with these processes alive.
        process = subprocess.Popen(
            [self._wine, *command],
            env=self.environment,
            stdin=subprocess.DEVNULL,
            stdout=output,
            stderr=output,
            start_new_session=True,
        )
        try:
            return process.wait(timeout)
        except subprocess.TimeoutExpired:
            running = "; ".join(" ".join(words) for words in processes_of(self.prefix).values())
            raise MachineError(
                f"{' '.join(command)} did not end within {timeout:.0f} s; the machine runs: {running}"
            ) from None
        finally:
            if process.poll() is None:
                process.kill()
                process.wait()

    def _call_server(self, *arguments: str) -> int:
        return subprocess.run(
            [self._server, *arguments],
            env=self.environment,
            stdin=subprocess.DEVNULL,
            stdout=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL,
            start_new_session=True,
            timeout=60,
            check=False,
        ).returncode

    def _kill_server(self) -> None:
        if self._call_server("-k") == 0:
            self._call_server("-w")
        # The processes are told to end, and end a little after their server.
        deadline = time.monotonic() + _ENDING_PATIENCE
        while processes_of(self.prefix) and time.monotonic() < deadline:
            time.sleep(0.05)
