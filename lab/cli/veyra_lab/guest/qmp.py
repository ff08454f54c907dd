"""QEMU's own control channel: JSON objects, one a line, QMP."""

import json
import socket
import time
from typing import Any

from .errors import GuestError

_LIMIT = 20


class Qmp:
    """The connection with one QEMU. No call waits longer than a limit. GuestError when QEMU refuses, is silent or
    gone."""

    def __init__(self, channel: socket.socket) -> None:
        self._channel = channel
        self._received = b""
        self._events: list[dict[str, Any]] = []

    def greet(self) -> None:
        """To be called first: takes its greeting, after which it takes commands."""
        self._next(time.monotonic() + _LIMIT)
        self.execute("qmp_capabilities")

    def execute(self, command: str, **arguments: Any) -> Any:
        """Has a command carried out; what it returns. A name's '_' is QMP's '-'."""
        words = {name.replace("_", "-"): value for name, value in arguments.items()}
        self._send({"execute": command, "arguments": words})
        deadline = time.monotonic() + _LIMIT
        while True:
            message = self._next(deadline)
            if "error" in message:
                raise GuestError(f"QEMU refused {command}: {message['error'].get('desc', 'no reason given')}")
            if "return" in message:
                return message["return"]
            self._events.append(message)

    def wait_for(self, event: str, **data: Any) -> None:
        """Waits for an event with this data; it may have come already."""
        deadline = time.monotonic() + _LIMIT
        while True:
            for message in self._events:
                told = message.get("data", {})
                if message.get("event") == event and all(told.get(name) == value for name, value in data.items()):
                    self._events.remove(message)
                    return
            self._events.append(self._next(deadline))

    def close(self) -> None:
        """No call may come after it."""
        self._channel.close()

    def _send(self, message: dict[str, Any]) -> None:
        try:
            self._channel.settimeout(_LIMIT)
            self._channel.sendall(json.dumps(message).encode() + b"\n")
        except OSError as error:
            raise GuestError(f"QEMU takes no command: {error}") from error

    def _next(self, deadline: float) -> dict[str, Any]:
        while b"\n" not in self._received:
            try:
                self._channel.settimeout(max(0.001, deadline - time.monotonic()))
                some = self._channel.recv(1 << 16)
            except TimeoutError:
                raise GuestError(f"QEMU was silent for {_LIMIT} s") from None
            except OSError as error:
                raise GuestError(f"QEMU does not answer: {error}") from error
            if not some:
                raise GuestError("QEMU is gone")
            self._received += some
        line, _, self._received = self._received.partition(b"\n")
        message: dict[str, Any] = json.loads(line)
        return message
