"""How the programs end when the person who started them has seen enough."""

import sys
from collections.abc import Callable

_INTERRUPTED = 130


def status_of(main: Callable[[], int], program: str) -> int:
    """The exit status of a program, also of one that was interrupted, which says so in one line."""
    try:
        return main()
    except KeyboardInterrupt:
        print(f"{program}: interrupted", file=sys.stderr)
        return _INTERRUPTED
