"""Debian's kernel, as scripts/setup has unpacked it: the part that QEMU starts, and the modules."""

import struct
from collections.abc import Iterable
from dataclasses import dataclass
from functools import cached_property
from pathlib import Path

from ..checkout import BUILD
from .compression import unpacked
from .errors import GuestError
from .files import write_whole
from .modinfo import needed_modules

KERNEL_FOLDER = BUILD / "guest" / "kernel"
# Places in a bzImage, as the kernel's document "The Linux/x86 Boot Protocol" has them.
_MAGIC_AT, _MAGIC = 0x202, b"HdrS"
_SETUP_SECTORS_AT, _PAYLOAD_AT = 0x1F1, 0x248
_SECTOR = 512
_PAYLOAD = struct.Struct("<II")
_SIZE = struct.Struct("<I")


def elf_of(image: bytes) -> bytes:
    """The kernel's ELF file out of a bzImage. GuestError when it is none, or damaged."""
    if image[_MAGIC_AT:][: len(_MAGIC)] != _MAGIC or len(image) < _PAYLOAD_AT + _PAYLOAD.size:
        raise GuestError("the kernel is no bzImage")
    offset, length = _PAYLOAD.unpack_from(image, _PAYLOAD_AT)
    begin = (image[_SETUP_SECTORS_AT] + 1) * _SECTOR + offset
    payload = image[begin : begin + length]
    if len(payload) != length or length < _SIZE.size:
        raise GuestError("the kernel's bzImage is cut short")
    # Behind what is packed stands its unpacked size.
    (size,) = _SIZE.unpack(payload[-_SIZE.size :])
    elf = unpacked(payload[: -_SIZE.size], "the kernel")
    if len(elf) != size:
        raise GuestError(f"the kernel has {len(elf)} bytes unpacked, and should have {size}")
    return elf


def _name(path: str) -> str:
    """As modprobe knows a module, to which '-' and '_' are the same."""
    return Path(path).name.partition(".")[0].replace("-", "_")


@dataclass(frozen=True)
class Module:
    """A module's file, unpacked."""

    name: str
    content: bytes


class Kernel:
    """One unpacked package. What has to be made of its files is made once and kept beside them."""

    def __init__(self, folder: Path) -> None:
        self._folder = folder
        self._modules = self._only("lib/modules/*", "usr/lib/modules/*")

    @property
    def release(self) -> str:
        """What the kernel calls itself: "6.1.0-40-amd64"."""
        return self._modules.name

    @property
    def package(self) -> str:
        """The package and its version."""
        return self._folder.name

    @cached_property
    def elf(self) -> Path:
        """The ELF file that QEMU starts at its PVH entry, without a boot loader."""
        path = self._folder / "vmlinux"
        if not path.is_file():
            write_whole(path, elf_of(self._only("boot/vmlinuz-*").read_bytes()))
        return path

    def modules(self, wanted: Iterable[str]) -> list[Module]:
        """Modules with all that they need, each behind what it needs, without those that the kernel has built in.
        GuestError when it does not have one."""
        order: dict[str, Module] = {}
        for name in wanted:
            self._add(_name(name), order)
        return list(order.values())

    def _add(self, name: str, order: dict[str, Module]) -> None:
        if name in order or name in self._built_in:
            return
        module = self._module(name)
        for needed in needed_modules(module.content, f"the module {name}"):
            self._add(_name(needed), order)
        order[name] = module

    def _module(self, name: str) -> Module:
        listed = self._files.get(name)
        # It is listed as it was built, before it was packed.
        files = [*self._modules.glob(f"{listed}*")] if listed else []
        if not files:
            raise GuestError(f"the kernel {self.release} has no module {name}")
        return Module(name, unpacked(files[0].read_bytes(), f"the module {name}"))

    @cached_property
    def _files(self) -> dict[str, str]:
        return self._listed("modules.order")

    @cached_property
    def _built_in(self) -> dict[str, str]:
        return self._listed("modules.builtin")

    def _listed(self, file: str) -> dict[str, str]:
        paths = (self._modules / file).read_text(encoding="utf-8").split()
        return {_name(path): path for path in paths}

    def _only(self, *patterns: str) -> Path:
        found = [path for pattern in patterns for path in self._folder.glob(pattern)]
        if len(found) != 1:
            raise GuestError(f"{self._folder} holds no kernel: scripts/setup packages usb unpacks one")
        return found[0]


def debian_kernel(folder: Path = KERNEL_FOLDER) -> Kernel:
    """The one that scripts/setup has unpacked. GuestError when there is none."""
    packages = [mark.parent for mark in folder.glob("*/unpacked")]
    if not packages:
        raise GuestError("there is no kernel for the guest: scripts/setup packages usb unpacks one")
    return Kernel(max(packages, key=lambda package: (package / "unpacked").stat().st_mtime))
