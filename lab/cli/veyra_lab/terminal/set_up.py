"""Has scripts/setup install and build."""

import os
import signal
import subprocess
import sys

from ..checkout import CHECKOUT

# What ninja says when nothing is to be done.
_IDLE = ("ninja: no work to do.\n", "[0/2] Re-checking globbed directories...\n")


class SetUpError(Exception):
    """A package could not be installed, or something could not be built."""


def call_setup(*arguments: str, aside: bool = False) -> None:
    """scripts/setup with its output on the screen; aside: on standard error, and silent when nothing was to do."""
    # In a session of its own, so that an interruption reaches everything that it has started, and only once.
    setup = subprocess.Popen(
        ["bash", str(CHECKOUT / "scripts" / "setup"), *arguments],
        stdin=subprocess.DEVNULL,
        stdout=subprocess.PIPE if aside else None,
        encoding="utf-8",
        errors="replace",
        start_new_session=True,
    )
    try:
        for line in setup.stdout or ():
            if line not in _IDLE:
                print(line, end="", file=sys.stderr, flush=True)
        status = setup.wait()
    except BaseException:
        os.killpg(setup.pid, signal.SIGINT)
        setup.wait()
        raise
    if status != 0:
        raise SetUpError(f"setting up failed: scripts/setup {' '.join(arguments)} ended with {status}")
