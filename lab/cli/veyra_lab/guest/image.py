"""The guest's image: a file system in memory with the helper as its first process, the modules, and some programs."""

import hashlib
import shutil
import tempfile
from collections.abc import Mapping, Sequence
from dataclasses import dataclass
from pathlib import Path

from ..checkout import BUILD
from .errors import GuestError
from .files import write_whole
from .kernel import Kernel
from .programs import PROGRAMS, files_of
from .tools import call

# The build that makes the helper, and its target.
PRESET = "host-lab"
TARGET = "lab_guest"
HELPER = BUILD / PRESET / TARGET
IMAGE_FOLDER = BUILD / "guest" / "images"
# Modules by the sets in which they are loaded. Without those of "boot" the host is not heard, and no bus is there.
MODULE_SETS: Mapping[str, Sequence[str]] = {
    "boot": ("virtio_pci", "virtio_console", "xhci_pci", "uvcvideo"),
    "usbip": ("vhci_hcd",),
    "network": ("virtio_net",),
    "usbmon": ("usbmon",),
}
# Where programs note what they have done, besides the files that they bring.
_FOLDERS = ("var/run",)
# How the image is laid out; another number makes every image anew.
_LAYOUT = 2
_KEPT = 8


@dataclass(frozen=True)
class Image:
    """What QEMU boots."""

    kernel: Kernel
    initramfs: Path


def image_of(kernel: Kernel, helper: Path = HELPER, programs: Sequence[str] = PROGRAMS,
             folder: Path = IMAGE_FOLDER) -> Image:
    """The image of a kernel, a helper and programs of the host, made when there is none of just these. GuestError when
    something is missing."""
    if not helper.is_file():
        raise GuestError(f"{helper} is missing: scripts/setup build {PRESET} {TARGET} builds it")
    files = {"/init": helper, **files_of(programs)}
    path = folder / f"{_key(kernel, files)}.cpio"
    if not path.is_file():
        write_whole(path, _initramfs(kernel, files))
        _forget_old_ones(folder)
    return Image(kernel, path)


def _key(kernel: Kernel, files: Mapping[str, Path]) -> str:
    digest = hashlib.sha256(repr((_LAYOUT, kernel.package, MODULE_SETS)).encode())
    for name, path in sorted(files.items()):
        digest.update(name.encode() + hashlib.sha256(path.read_bytes()).digest())
    return digest.hexdigest()[:16]


def _initramfs(kernel: Kernel, files: Mapping[str, Path]) -> bytes:
    with tempfile.TemporaryDirectory() as name:
        root = Path(name)
        for place, path in files.items():
            target = root / place.lstrip("/")
            target.parent.mkdir(parents=True, exist_ok=True)
            shutil.copyfile(path, target)
            target.chmod(0o755)
        for folder in _FOLDERS:
            (root / folder).mkdir(parents=True, exist_ok=True)
        _add_modules(root / "modules", kernel)
        names = sorted(str(path.relative_to(root)) for path in root.rglob("*"))
        return call(
            ["cpio", "--create", "--null", "--format=newc", "--owner=0:0", "--reproducible", "--quiet"],
            folder=root, given="".join(f"{each}\0" for each in names).encode(),
        )


def _add_modules(folder: Path, kernel: Kernel) -> None:
    """The modules, and the list of sets that the helper reads."""
    folder.mkdir()
    lines = []
    for name, wanted in MODULE_SETS.items():
        modules = kernel.modules(wanted)
        for module in modules:
            (folder / f"{module.name}.ko").write_bytes(module.content)
        lines.append(" ".join([name, *(f"{module.name}.ko" for module in modules)]))
    (folder / "sets").write_text("".join(f"{line}\n" for line in lines), encoding="ascii")


def _forget_old_ones(folder: Path) -> None:
    images = sorted(folder.glob("*.cpio"), key=lambda path: path.stat().st_mtime)
    for path in images[:-_KEPT]:
        path.unlink(missing_ok=True)
