"""The firmware that a machine starts with: BIOS or UEFI."""

import shutil
import struct
import uuid
from pathlib import Path

from ..guest.errors import GuestError
from ..guest.qemu import option

BIOS, UEFI = "bios", "uefi"
_FOLDER = Path("/usr/share/OVMF")
_CODE, _VARIABLES = "OVMF_CODE_4M.fd", "OVMF_VARS_4M.fd"
# The GPT header in sector 1: where its entries begin, how many there are, and the size of each.
_SECTOR = 512
_HEADER = struct.Struct("<8s64xQII")
_MAGIC = b"EFI PART"
_EFI_SYSTEM = uuid.UUID("c12a7328-f81f-11d2-ba4b-00a0c93ec93b").bytes_le


def firmware_of(head: bytes) -> str:
    """What a disk that begins with these sectors was made for: UEFI when its GPT has an EFI system partition."""
    magic, sector, count, size = _HEADER.unpack_from(head[_SECTOR:].ljust(_HEADER.size, b"\0"))
    if magic != _MAGIC or size < len(_EFI_SYSTEM):
        return BIOS
    entries = range(sector * _SECTOR, min(sector * _SECTOR + count * size, len(head)), size)
    return UEFI if any(head[at:].startswith(_EFI_SYSTEM) for at in entries) else BIOS


def firmware_words(firmware: str, folder: Path) -> list[str]:
    """The words of QEMU's command line. UEFI's variables, which begin empty, are kept in the folder. GuestError when
    the package is missing."""
    if firmware == BIOS:
        return []
    variables = folder / _VARIABLES
    try:
        shutil.copyfile(_FOLDER / _VARIABLES, variables)
    except OSError:
        raise GuestError("a package is missing: ovmf (scripts/setup packages usb)") from None
    return [
        "-drive", f"if=pflash,unit=0,format=raw,readonly=on,file={_FOLDER / _CODE}",
        "-drive", f"if=pflash,unit=1,format=raw,file={option(variables)}",
    ]
