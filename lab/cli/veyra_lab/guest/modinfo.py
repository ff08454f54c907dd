"""What a kernel module tells about itself: the section .modinfo of its ELF file."""

import struct

from .errors import GuestError

# Of the ELF header: where the table of sections is, the size of its entries, how many, and which has the names.
_SECTIONS = struct.Struct("<40xQ10xHHH")
# Of an entry: the name's place among the names, the section's place and size.
_SECTION = struct.Struct("<I20xQQ")


def needed_modules(module: bytes, what: str) -> list[str]:
    """The modules that have to be there before this one, as modprobe knows them. GuestError, which names `what`, when
    the file is damaged."""
    try:
        entries = _section(module, b".modinfo").split(b"\0")
    except (struct.error, IndexError, KeyError) as error:
        raise GuestError(f"{what} has no .modinfo: it is damaged") from error
    values = dict(entry.partition(b"=")[::2] for entry in entries)
    return [name for name in values.get(b"depends", b"").decode("ascii", "replace").split(",") if name]


def _section(elf: bytes, wanted: bytes) -> bytes:
    offset, size, count, names_index = _SECTIONS.unpack_from(elf)
    sections = [_SECTION.unpack_from(elf, offset + index * size) for index in range(count)]
    _, names_at, names_size = sections[names_index]
    names = elf[names_at : names_at + names_size]
    content = {
        names[name : names.index(b"\0", name)]: elf[at : at + length]
        for name, at, length in sections
        if b"\0" in names[name:]
    }
    return content[wanted]
