"""The owner's disk, which is read and never written: what is written goes to a layer over it."""

import json
import stat
from dataclasses import dataclass
from pathlib import Path

from ..guest.errors import GuestError
from ..guest.tools import call
from .errors import Unusable

# A partition table, and GPT's entries behind it.
_HEAD_SECTORS = 34
_SECTOR = 512
_SIGNATURE_AT, _SIGNATURE = 510, b"\x55\xaa"


@dataclass(frozen=True)
class Disk:
    """An image of a whole disk, in one of QEMU's formats ("qcow2", "raw", "vhdx", "vmdk")."""

    path: Path
    format: str

    def layer(self, path: Path) -> None:
        """Makes an empty qcow2 layer over the disk: who writes to it leaves the disk as it is."""
        call(["qemu-img", "create", "-q", "-f", "qcow2", "-b", self.path, "-F", self.format, path])

    def head(self, scratch: Path) -> bytes:
        """The first 34 sectors; `scratch` is a file for them. Unusable when no computer starts from such a disk."""
        try:
            call([
                "qemu-img", "dd", "-f", self.format, "-O", "raw", f"bs={_SECTOR}", f"count={_HEAD_SECTORS}",
                f"if={self.path}", f"of={scratch}",
            ])
        except GuestError as error:
            raise Unusable(f"{self.path} cannot be read: {error}") from error
        head = scratch.read_bytes()
        if head[_SIGNATURE_AT:][: len(_SIGNATURE)] != _SIGNATURE:
            raise Unusable(f"{self.path} is no image of a disk that a computer starts from: it has no partition table")
        return head


def image_file(path: Path) -> Path:
    """The whole path of a file that is there. Unusable when it is not."""
    try:
        mode = path.stat().st_mode
    except OSError as error:
        raise Unusable(f"there is no disk {path}: {error.strerror}") from None
    if not stat.S_ISREG(mode):
        raise Unusable(f"{path} is no file: an image of a disk is wanted, not the disk itself")
    return path.resolve()


def disk_at(file: Path) -> Disk:
    """What QEMU takes the file for. Unusable when it cannot be read."""
    try:
        told = json.loads(call(["qemu-img", "info", "--output=json", file]))
    except GuestError as error:
        raise Unusable(f"{file} cannot be read: {error}") from error
    return Disk(file, told["format"])
