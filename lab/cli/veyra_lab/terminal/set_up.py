"""Has scripts/setup install and build."""

import os
import signal
import subprocess

from ..checkout import CHECKOUT


class SetUpError(Exception):
    """A package could not be installed, or something could not be built."""


def call_setup(*arguments: str) -> None:
    """scripts/setup with its output on the screen."""
    # In a session of its own, so that an interruption reaches everything that it has started, and only once.
    setup = subprocess.Popen(
        ["bash", str(CHECKOUT / "scripts" / "setup"), *arguments], stdin=subprocess.DEVNULL, start_new_session=True
    )
    try:
        status = setup.wait()
    except BaseException:
        os.killpg(setup.pid, signal.SIGINT)
        setup.wait()
        raise
    if status != 0:
        raise SetUpError(f"setting up failed: scripts/setup {' '.join(arguments)} ended with {status}")
