"""The guest's USB bus from outside: what is plugged in and pulled."""

from contextlib import suppress
from pathlib import Path
from typing import Any

from .errors import GuestError
from .qmp import Qmp


class Bus:
    """Plugs devices into the guest's xHCI bus, each under a name of its own. GuestError when QEMU refuses or is
    gone."""

    def __init__(self, qmp: Qmp) -> None:
        self._qmp = qmp

    def plug(self, driver: str, name: str, **properties: Any) -> None:
        """A device of QEMU's own: "usb-kbd", with its properties."""
        self._qmp.execute("device_add", driver=driver, id=name, bus="usb.0", **properties)

    def unplug(self, name: str) -> None:
        """Pulls a device, and waits until it is off the bus."""
        self._qmp.execute("device_del", id=name)
        self._qmp.wait_for("DEVICE_DELETED", device=name)

    def plug_redirected(self, name: str, server: Path, port: int) -> None:
        """A port whose device is served on a Unix socket, by usbredir. The device comes and goes as the server says; the
        port, and the connection with the server, stay until it is unplugged. Ports count from 1, as the kernel's do."""
        channel = f"{name}-channel"
        address = {"type": "unix", "data": {"path": str(server)}}
        backend = {"type": "socket", "data": {"addr": address, "server": False}}
        self._qmp.execute("chardev-add", id=channel, backend=backend)
        try:
            self.plug("usb-redir", name, chardev=channel, port=str(port))
        except BaseException:
            # A port that is there takes its channel with it when it goes.
            with suppress(GuestError):
                self._qmp.execute("chardev-remove", id=channel)
            raise
