"""A headless Chromium that tests drive through its debugging pipe."""

import base64
import fcntl
import json
import os
import select
import shutil
import subprocess
import tempfile
from collections.abc import Iterator
from contextlib import contextmanager
from pathlib import Path
from typing import Any

_PATIENCE_SECONDS = 60
CHROMIUM = shutil.which("chromium")
_OPTIONS = (
    "--headless",
    "--no-sandbox",
    "--disable-gpu",
    "--disable-quic",
    "--no-first-run",
    "--disable-background-networking",
    "--disable-component-update",
    "--disable-sync",
    "--hide-scrollbars",
    "--remote-debugging-pipe",
)


class Browser:
    """One page at a time, in a window of any size. Chromium reads commands from its descriptor 3 and answers on 4."""

    def __init__(self, commands: int, answers: int) -> None:
        self._commands = commands
        self._answers = answers
        self._received = b""
        self._loaded = False
        self._count = 0
        self._session: str | None = None
        self._features: list[dict[str, str]] = []
        self.requests: list[str] = []
        page = self._command("Target.createTarget", url="about:blank")["targetId"]
        self._session = self._command("Target.attachToTarget", targetId=page, flatten=True)["sessionId"]
        self._command("Page.enable")
        self._command("Network.enable")

    def show(self, page: Path, width: int, height: int = 900, *, dark: bool = False) -> None:
        """Opens a page and waits until it is there."""
        self.requests.clear()
        self._command(
            "Emulation.setDeviceMetricsOverride",
            width=width,
            height=height,
            deviceScaleFactor=1,
            mobile=False,
        )
        scheme = {"name": "prefers-color-scheme", "value": "dark" if dark else "light"}
        self._features = [scheme]
        self._command("Emulation.setEmulatedMedia", features=self._features)
        self._loaded = False
        self._command("Page.navigate", url=page.resolve().as_uri())
        while not self._loaded:
            self._message()

    def value(self, expression: str) -> Any:
        """What an expression of JavaScript gives in the page."""
        answer = self._command("Runtime.evaluate", expression=expression, returnByValue=True)
        if "exceptionDetails" in answer:
            raise AssertionError(f"{expression}: {answer['exceptionDetails']}")
        return answer["result"].get("value")

    def point(self, x: float, y: float) -> None:
        """Moves the mouse there."""
        self._command("Input.dispatchMouseEvent", type="mouseMoved", x=x, y=y)

    def click(self, x: float, y: float) -> None:
        """Presses the mouse's button there."""
        for kind in ("mousePressed", "mouseReleased"):
            self._command("Input.dispatchMouseEvent", type=kind, x=x, y=y, button="left", clickCount=1)

    def press(self, key: str) -> None:
        """Presses a key that writes nothing, by its name."""
        codes = {"ArrowRight": 39, "ArrowLeft": 37, "Home": 36, "End": 35, "Escape": 27}
        for kind in ("rawKeyDown", "keyUp"):
            self._command(
                "Input.dispatchKeyEvent", type=kind, key=key, code=key, windowsVirtualKeyCode=codes[key]
            )

    def screenshot(self) -> bytes:
        """What the window shows, as a PNG."""
        return base64.b64decode(self._command("Page.captureScreenshot", format="png")["data"])

    def printed(self, expression: str) -> Any:
        """What an expression gives in the page as it is printed."""
        self._command("Emulation.setEmulatedMedia", media="print", features=self._features)
        try:
            return self.value(expression)
        finally:
            self._command("Emulation.setEmulatedMedia", media="", features=self._features)

    def pdf(self) -> str:
        """The page on paper, as base64; without its backgrounds, unless it insists on them."""
        answer = self._command("Page.printToPDF", preferCSSPageSize=True, printBackground=False)
        return str(answer["data"])

    def _command(self, method: str, **parameters: Any) -> dict[str, Any]:
        self._count += 1
        command = {"id": self._count, "method": method, "params": parameters}
        if self._session is not None:
            command["sessionId"] = self._session
        os.write(self._commands, json.dumps(command).encode() + b"\0")
        while True:
            message = self._message()
            if message.get("id") == self._count:
                if "error" in message:
                    raise AssertionError(f"{method}: {message['error']}")
                result: dict[str, Any] = message["result"]
                return result

    def _message(self) -> dict[str, Any]:
        """The next message; notes what the page asked for and that it is there."""
        while b"\0" not in self._received:
            if not select.select([self._answers], [], [], _PATIENCE_SECONDS)[0]:
                raise AssertionError("the browser has fallen silent")
            some = os.read(self._answers, 1 << 16)
            if not some:
                raise AssertionError("the browser has ended")
            self._received += some
        line, self._received = self._received.split(b"\0", 1)
        message: dict[str, Any] = json.loads(line)
        if message.get("method") == "Network.requestWillBeSent":
            self.requests.append(message["params"]["request"]["url"])
        self._loaded = self._loaded or message.get("method") == "Page.loadEventFired"
        return message


def _pipe() -> tuple[int, int]:
    """Both ends with numbers that are out of the way of 3 and 4."""
    read, write = os.pipe()
    ends = tuple(fcntl.fcntl(end, fcntl.F_DUPFD_CLOEXEC, 32) for end in (read, write))
    os.close(read)
    os.close(write)
    return ends[0], ends[1]


@contextmanager
def browser() -> Iterator[Browser]:
    """Starts it with a profile of its own, and ends it."""
    assert CHROMIUM is not None, "Debian's package chromium is missing"
    command_read, command_write = _pipe()
    answer_read, answer_write = _pipe()
    with tempfile.TemporaryDirectory(ignore_cleanup_errors=True) as profile:
        # The shell puts the pipes where Chromium looks for them.
        process = subprocess.Popen(
            ["bash", "-c", f'exec "$0" "$@" 3<&{command_read} 4>&{answer_write}', CHROMIUM, *_OPTIONS,
             f"--user-data-dir={profile}", "about:blank"],
            pass_fds=(command_read, answer_write),
            stdin=subprocess.DEVNULL,
            stdout=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL,
        )  # fmt: skip
        os.close(command_read)
        os.close(answer_write)
        try:
            yield Browser(command_write, answer_read)
        finally:
            os.close(command_write)
            process.terminate()
            process.wait(timeout=20)
            os.close(answer_read)
