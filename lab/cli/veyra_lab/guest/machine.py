"""The guest: booted, served, and ended."""

import time
from contextlib import suppress
from types import TracebackType

from ..wire.events import GUEST, PeerError
from ..wire.peer import Peer
from .bus import Bus
from .errors import GuestError
from .image import Image
from .network import NETWORK
from .qemu import TCG, USB_BUS, Logs, Qemu, processor
from .system import System, complaints_of
from .usb_host import UsbHost

_PORT_NAME = "veyra.guest"
_MEMORY_MIB = 256
# A panic ends the machine at once. Of the kernel's log the console shows warnings and what is worse.
_KERNEL_WORDS = "console=ttyS0 loglevel=5 panic=-1 mitigations=off"
_BOOT_LIMIT = 120.0
_ENDING_PATIENCE = 10.0
_PAUSE = 0.01


class GuestMachine:
    """A virtual machine whose kernel drives what is plugged into its bus. Use it as a context: it is booted on entry,
    and on exit its process has ended. GuestError when it does not boot within `limit` seconds. What the guest tells
    goes to the peer, as events of the source "guest". With `network` it has a card for network.set_up().

    `usb` asks its kernel, `bus` plugs devices in, `system` is about the guest itself."""

    def __init__(
        self, image: Image, peer: Peer, logs: Logs, accelerator: str = TCG, limit: float = _BOOT_LIMIT, *,
        network: bool = False,
    ) -> None:
        self._image = image
        self._peer = peer
        self._logs = logs
        self._accelerator = accelerator
        self._limit = limit
        self._network = network
        self._qemu: Qemu | None = None
        self.usb = UsbHost(peer)
        self.system = System(peer)
        self.kernel = ""
        self.seconds_to_first_answer = 0.0

    @property
    def bus(self) -> Bus:
        """The USB bus from outside."""
        return Bus(self._running().qmp)

    @property
    def pid(self) -> int:
        """The number of QEMU's process."""
        return self._running().pid

    def __enter__(self) -> "GuestMachine":
        began = time.monotonic()
        since = self._peer.mark()
        qemu = Qemu(self._words(), self._logs)
        try:
            qemu.greet()
            self.kernel = self._kernel_that_says_hello(qemu, since, began + self._limit)
        except BaseException:
            qemu.end()
            raise
        self.seconds_to_first_answer = time.monotonic() - began
        self._qemu = qemu
        return self

    def __exit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None
    ) -> None:
        qemu = self._running()
        try:
            # A guest that hangs or is gone has nothing more to say: whoever used it has been told.
            with suppress(PeerError, GuestError):
                self._keep_kernel_log()
                self._peer.command(GUEST, "power-off", quiet=_ENDING_PATIENCE)
                qemu.wait(_ENDING_PATIENCE)
        finally:
            self._qemu = None
            qemu.end()

    def kernel_complaints(self, since: int = 0) -> list[str]:
        """What the guest's USB core, its host controllers' drivers and its UVC driver have noticed, warned of, or worse, from
        this line of the kernel's log on."""
        return complaints_of(self.system.kernel_log(since))

    def _running(self) -> Qemu:
        if self._qemu is None:
            raise GuestError("the guest does not run")
        return self._qemu

    def _words(self) -> list[str]:
        return [
            "-no-reboot", "-display", "none", "-accel", self._accelerator, "-cpu", processor(self._accelerator),
            "-m", str(_MEMORY_MIB),
            "-kernel", str(self._image.kernel.elf), "-initrd", str(self._image.initramfs), "-append", _KERNEL_WORDS,
            "-chardev", f"socket,id=wire,host=127.0.0.1,port={self._peer.port},nodelay=on",
            "-device", "virtio-serial-pci", "-device", f"virtserialport,chardev=wire,name={_PORT_NAME}",
            *USB_BUS, *(NETWORK if self._network else ()),
        ]

    def _kernel_that_says_hello(self, qemu: Qemu, since: int, deadline: float) -> str:
        while True:
            for event in self._peer.events_since(since):
                if event["event"] == "hello" and event["source"] == GUEST:
                    kernel: str = event["kernel"]
                    return kernel
            qemu.check()
            if time.monotonic() > deadline:
                said = self._logs.last_words(self._logs.console)
                raise GuestError(f"the guest did not boot within {self._limit:.0f} s; its console: {said}")
            time.sleep(_PAUSE)

    def _keep_kernel_log(self) -> None:
        lines = self.system.kernel_log(quiet=_ENDING_PATIENCE)
        self._logs.kernel.write_text("".join(f"{line}\n" for line in lines), encoding="utf-8")
