"""One connected process: the bytes that come from it, and the lines that go to it."""

import json
import socket

from .events import TOAST, Event


class Connection:
    """The rig of one process, the toast controller, the guest, or a server of cameras."""

    def __init__(self, channel: socket.socket) -> None:
        self.channel = channel
        self.source = ""
        self.pid = 0
        self.is_on_kernel_bus = False  # a rig whose cameras another kernel drives
        self._pending = b""

    @property
    def is_toast_server(self) -> bool:
        """Whether the toast controller is at its other end."""
        return self.source == TOAST

    def lines(self, received: bytes) -> list[bytes]:
        """The lines that are complete with these bytes; the rest waits for more."""
        *whole, self._pending = (self._pending + received).split(b"\n")
        return whole

    def received(self) -> bytes | None:
        """What has come by now, nothing at all when the other end is gone; None when there is nothing new."""
        try:
            return self.channel.recv(1 << 18, socket.MSG_DONTWAIT)
        except BlockingIOError:
            return None
        except OSError:
            return b""

    def send(self, line: Event) -> None:
        """One line. OSError when the process is gone."""
        self.channel.sendall(json.dumps(line).encode() + b"\n")

    def send_quietly(self, line: Event) -> None:
        """A process that is gone before it hears this is noticed by its connection's end."""
        try:
            self.send(line)
        except OSError:
            pass

    def shut_down(self) -> None:
        """The sign to leave: nothing more comes from here."""
        try:
            self.channel.shutdown(socket.SHUT_WR)
        except OSError:
            pass
