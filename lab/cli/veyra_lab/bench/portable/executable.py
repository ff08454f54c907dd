"""Line 9: the size of what ships, and what it needs."""

import subprocess
from collections.abc import Iterator
from pathlib import Path

from ..table import Row, at_most

LINE = 9
_BAR_BYTES = 1 << 20


def measure(executable: Path) -> Iterator[Row]:
    """The stripped executable's bytes and the DLLs that it imports."""
    yield at_most(
        LINE,
        "stripped executable",
        executable.stat().st_size,
        _BAR_BYTES,
        "bytes",
        note=f"It imports {', '.join(imported_libraries(executable))}.",
    )


def imported_libraries(executable: Path) -> list[str]:
    """Names of the DLLs, as the import table has them."""
    listed = subprocess.run(
        ["x86_64-w64-mingw32-objdump", "--private-headers", str(executable)],
        capture_output=True,
        text=True,
        check=True,
    ).stdout
    return [line.split(":", 1)[1].strip() for line in listed.splitlines() if "DLL Name:" in line]
