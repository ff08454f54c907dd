"""The process of the virtual machine."""

import os
import signal
import socket
import subprocess
from collections.abc import Sequence
from dataclasses import dataclass
from pathlib import Path

from .errors import GuestError
from .image import Image
from .qmp import Qmp
from .tools import tool

TCG, KVM = "tcg", "kvm"
_PORT_NAME = "veyra.guest"
_ENDING_PATIENCE = 10
_MEMORY_MIB = 256
# A panic ends the machine at once. Of the kernel's log the console shows warnings and what is worse.
_KERNEL_WORDS = "console=ttyS0 loglevel=5 panic=-1 mitigations=off"
_SHOWN_LINES = 6
_PANIC = "Kernel panic"


@dataclass(frozen=True)
class Logs:
    """Where one machine leaves what it says, each file anew at its start."""

    folder: Path
    name: str = "guest"

    @property
    def console(self) -> Path:
        """The guest's serial console."""
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
        """Empties them."""
        self.folder.mkdir(parents=True, exist_ok=True)
        for path in (self.console, self.kernel, self.qemu):
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
    """A virtual machine with an xHCI bus called "usb" and one virtio-serial port, which is connected with a port of
    127.0.0.1. It ends with end(), or, whatever becomes of this program, with the thread that has started it."""

    def __init__(self, image: Image, accelerator: str, wire_port: int, logs: Logs) -> None:
        self._logs = logs
        logs.begin()
        ours, theirs = socket.socketpair()
        with theirs, logs.qemu.open("wb") as said:
            try:
                self._process = subprocess.Popen(
                    _command(image, accelerator, wire_port, theirs.fileno(), logs.console),
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

    def check(self) -> None:
        """GuestError when it has ended, with its last words."""
        if (status := self._process.poll()) is not None:
            raise GuestError(
                f"the guest's machine ended with {status}; QEMU: {self._logs.last_words(self._logs.qemu)};"
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
        if self._process.poll() is None:
            os.killpg(self._process.pid, signal.SIGKILL)
        self._process.wait(_ENDING_PATIENCE)
        self.qmp.close()


def _command(image: Image, accelerator: str, wire_port: int, qmp: int, console: Path) -> Sequence[str]:
    # A kernel that uses five levels of page tables boots slower when each is looked up by a program.
    processor = "host" if accelerator == KVM else "max,la57=off"
    return [
        tool("setpriv"), "--pdeathsig", "KILL",
        tool("qemu-system-x86_64"), "-nodefaults", "-no-user-config", "-no-reboot", "-display", "none",
        "-machine", "q35", "-accel", accelerator, "-cpu", processor, "-m", str(_MEMORY_MIB),
        "-kernel", str(image.kernel.elf), "-initrd", str(image.initramfs), "-append", _KERNEL_WORDS,
        "-chardev", f"socket,id=qmp,fd={qmp}", "-mon", "chardev=qmp,mode=control",
        "-chardev", f"file,id=console,path={_option(console)}", "-serial", "chardev:console",
        "-chardev", f"socket,id=wire,host=127.0.0.1,port={wire_port},nodelay=on",
        "-device", "virtio-serial-pci", "-device", f"virtserialport,chardev=wire,name={_PORT_NAME}",
        "-device", "qemu-xhci,id=usb,p2=8,p3=8",
    ]


def _option(path: Path) -> str:
    """A path within an option of QEMU's, in which commas are doubled."""
    return str(path).replace(",", ",,")
