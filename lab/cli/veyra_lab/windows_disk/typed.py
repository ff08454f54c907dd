"""What a person types while a machine runs."""

import os
import select
import time


class Typed:
    """The lines of a file descriptor as they come, until its end, and nothing from then on."""

    def __init__(self, descriptor: int) -> None:
        self._descriptor = descriptor
        self._rest = b""
        self._is_open = True

    def lines(self, seconds: float) -> list[str]:
        """Those that have come when something has come, or after these seconds."""
        if not self._is_open:
            time.sleep(seconds)
            return []
        if not select.select([self._descriptor], [], [], seconds)[0]:
            return []
        some = os.read(self._descriptor, 1 << 12)
        self._is_open = bool(some)
        *lines, self._rest = (self._rest + some).split(b"\n")
        return [line.decode("utf-8", "replace").strip() for line in lines]
