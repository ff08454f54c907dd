"""The process of a virtual machine."""

import os
import signal
import socket
import subprocess
from collections.abc import Sequence
from dataclasses import dataclass
from pathlib import Path

from .errors import GuestError
from .qmp import Qmp
from .tools import tool

PROGRAM = "qemu-system-x86_64"
TCG, KVM = "tcg", "kvm"
_ENDING_PATIENCE = 10
_SHOWN_LINES = 6
_PANIC = "Kernel panic"


@dataclass(frozen=True)
class Logs:
    """Where one machine leaves what it says, each file anew at its start."""

    folder: Path
    name: str = "guest"

    @property
    def console(self) -> Path:
        """The machine's serial console."""
        return self.folder / f"{self.name}-console.log"

    @property
    def kernel(self) -> Path:
        """The whole log of the guest's kernel, when the machine ended well."""
        return self.folder / f"{self.name}-kernel.log"

    @property
    def qemu(self) -> Path:
        """QEMU's own words."""
        return self.folder / f"{self.name}-qemu.log"

    def begin(self) -> None:
        """Forgets those of an earlier start."""
        self.folder.mkdir(parents=True, exist_ok=True)
        self.kernel.unlink(missing_ok=True)
        for path in (self.console, self.qemu):
            path.write_bytes(b"")

    def last_words(self, path: Path) -> str:
        """The last lines of one of them, in one line; without what a kernel's panic writes behind its reason."""
        lines = path.read_text(encoding="utf-8", errors="replace").splitlines()
        said = [line.strip() for line in lines if line.strip()]
        panics = [number for number, line in enumerate(said) if _PANIC in line]
        if panics:
            said = said[: panics[0] + 1]
        return " | ".join(said[-_SHOWN_LINES:]) or "nothing"


class Qemu:
    """QEMU, running a machine that is described in words of its command line. It ends with end(), or, whatever becomes
    of this program, with the thread that has started it."""

    def __init__(self, machine: Sequence[str], logs: Logs) -> None:
        self._logs = logs
        logs.begin()
        ours, theirs = socket.socketpair()
        with theirs, logs.qemu.open("wb") as said:
            try:
                self._process = subprocess.Popen(
                    [*_beginning(theirs.fileno(), logs.console), *machine],
                    stdin=subprocess.DEVNULL, stdout=said, stderr=said,
                    # A session of its own keeps Ctrl-C for this program, which has to clean up.
                    pass_fds=(theirs.fileno(),), start_new_session=True,
                )
            except BaseException:
                ours.close()
                raise
        self.qmp = Qmp(ours)

    @property
    def pid(self) -> int:
        """The process's number."""
        return self._process.pid

    @property
    def status(self) -> int | None:
        """How it ended: 0 when the machine was switched off; None while it runs."""
        return self._process.poll()

    def greet(self) -> None:
        """To be called first: from then on it takes commands. GuestError, with its words, when it refused the
        machine."""
        try:
            self.qmp.greet()
        except GuestError:
            # What it refused it has said before its end.
            self.wait(_ENDING_PATIENCE)
            self.check()
            raise

    def check(self) -> None:
        """GuestError when it has ended, with its last words."""
        if self.status is not None:
            raise GuestError(
                f"the machine ended with {self.status}; QEMU: {self._logs.last_words(self._logs.qemu)};"
                f" its console: {self._logs.last_words(self._logs.console)}"
            )

    def wait(self, seconds: float) -> bool:
        """Waits for its end; whether it has ended in time."""
        try:
            self._process.wait(seconds)
        except subprocess.TimeoutExpired:
            return False
        return True

    def end(self) -> None:
        """Ends it, in whatever state it is, and waits for that."""
        try:
            if self.status is None:
                os.killpg(self._process.pid, signal.SIGKILL)
            if not self.wait(_ENDING_PATIENCE):
                raise GuestError("QEMU does not end, not even when it is killed")
        finally:
            self.qmp.close()


# The xHCI bus of every machine, called "usb": eight ports, at each of which any speed goes.
USB_BUS = ("-device", "qemu-xhci,id=usb,p2=8,p3=8")


def processor(accelerator: str) -> str:
    """The one that an accelerator is given. A kernel that uses five levels of page tables boots slower where a program
    looks each of them up."""
    return "host" if accelerator == KVM else "max,la57=off"


def option(path: Path) -> str:
    """A path within an option of QEMU's, in which commas are doubled."""
    return str(path).replace(",", ",,")


def _beginning(qmp: int, console: Path) -> Sequence[str]:
    return [
        tool("setpriv"), "--pdeathsig", "KILL",
        tool(PROGRAM), "-nodefaults", "-no-user-config", "-machine", "q35",
        "-chardev", f"socket,id=qmp,fd={qmp}", "-mon", "chardev=qmp,mode=control",
        "-chardev", f"file,id=console,path={option(console)}", "-serial", "chardev:console",
    ]
