"""Files that are whole or not there, whoever else makes the same one at the same time."""

import os
import tempfile
from pathlib import Path


def write_whole(path: Path, content: bytes) -> None:
    """Writes a file under another name, and gives it its own when it is whole."""
    path.parent.mkdir(parents=True, exist_ok=True)
    number, name = tempfile.mkstemp(dir=path.parent, prefix=f".{path.name}.")
    try:
        with open(number, "wb") as file:
            file.write(content)
            # A temporary file is its owner's alone.
            os.fchmod(number, 0o644)
        os.replace(name, path)
    except BaseException:
        os.unlink(name)
        raise
