"""Disks that a computer starts from, each with Debian's kernel and a script that looks around: for the tests of
scripts/lab windows, in the place of a Windows."""

import struct
from pathlib import Path

from veyra_lab.guest.errors import GuestError
from veyra_lab.guest.kernel import KERNEL_FOLDER, debian_kernel
from veyra_lab.guest.tools import call, tool

# Says on the serial console what it sees, and switches the machine off once its first camera has been pulled.
_INIT = """\
#!/bin/busybox sh
/bin/busybox --install -s /bin
export PATH=/bin
mount -t proc proc /proc
mount -t sysfs sysfs /sys
mount -t devtmpfs dev /dev
for module in $(cat /modules/order); do insmod /modules/$module.ko; done
mkdir /package
cameras() { grep -ls 'KV400' /sys/bus/usb/devices/*/product; }
until [ -b /dev/sda ] && [ -b /dev/sr0 ] && [ -n "$(cameras)" ]; do sleep 0.1; done
mount -t iso9660 -o ro /dev/sr0 /package
sleep 2
echo "seen: made for $([ -d /sys/firmware/efi ] && echo uefi || echo bios)"
for camera in $(cameras); do
    at=${camera%/product}
    echo "seen: camera ${at##*/} $(cat $at/serial) $(cat $at/speed) $(readlink $at/*:1.0/driver)"
done
echo "seen: package $(cd /package && echo *)"
echo "seen: says $(cat /package/says.txt)"
touch /package/x 2>/dev/null || echo "seen: package cannot be written"
dd if=/dev/zero of=/dev/sda bs=1M count=1 conv=fsync 2>/dev/null && echo "seen: disk overwritten"
first=$(cameras | head -n 1)
echo "seen: ready"
while [ -e $first ]; do sleep 0.1; done
echo "seen: camera gone"
poweroff -f
"""
_MODULES = ("ahci", "sd_mod", "sr_mod", "isofs", "xhci_pci", "uvcvideo")
# No display driver of the kernel's own, and all that it says where the test can read it.
_WORDS = "console=ttyS0 loglevel=4 panic=-1 rdinit=/init"
_SECTOR = 512
_MIB = 1 << 20
_FIRST_SECTOR = 2048
_PAGE = 4096
_STUB = Path("/usr/lib/systemd/boot/efi/linuxx64.efi.stub")
_MASTER_BOOT_RECORD = Path("/usr/lib/syslinux/mbr/mbr.bin")
_SYSLINUX = f"DEFAULT linux\nLABEL linux\n  LINUX vmlinuz\n  INITRD initrd\n  APPEND {_WORDS}\n"


def needed() -> None:
    """GuestError, which names it, when something is missing that the disks are made with."""
    for name in ("busybox", "cpio", "mcopy", "mformat", "objcopy", "sfdisk", "syslinux"):
        tool(name)
    for path in (_STUB, _MASTER_BOOT_RECORD):
        if not path.is_file():
            raise GuestError(f"{path} is missing: scripts/setup packages all")


def uefi_disk(image: Path) -> None:
    """One with a GPT and an EFI system partition, on which kernel, command line and file system are one program."""
    folder = image.parent
    words = folder / "words"
    words.write_text(_WORDS, encoding="ascii")
    program = folder / "linux.efi"
    added: list[str] = []
    address = _behind(_STUB.read_bytes())
    for name, path in ((".cmdline", words), (".linux", _kernel()), (".initrd", _initramfs(folder))):
        added += ["--add-section", f"{name}={path}", "--change-section-vma", f"{name}={address:#x}"]
        address = _aligned(address + path.stat().st_size)
    call(["objcopy", *added, _STUB, program])
    partition = _file_system(folder)
    call(["mmd", "-i", partition, "::/EFI", "::/EFI/BOOT"])
    call(["mcopy", "-i", partition, program, "::/EFI/BOOT/BOOTX64.EFI"])
    _write(image, partition, "label: gpt\nstart=2048, type=C12A7328-F81F-11D2-BA4B-00A0C93EC93B\n")


def bios_disk(image: Path) -> None:
    """One with a master boot record that starts the active partition."""
    folder = image.parent
    (folder / "syslinux.cfg").write_text(_SYSLINUX, encoding="ascii")
    partition = _file_system(folder)
    call(["mcopy", "-i", partition, _kernel(), "::/vmlinuz"])
    call(["mcopy", "-i", partition, _initramfs(folder), "::/initrd"])
    call(["mcopy", "-i", partition, folder / "syslinux.cfg", "::/syslinux.cfg"])
    _write(image, partition, f"label: dos\nstart={_FIRST_SECTOR}, type=c, bootable\n")
    call(["syslinux", "--install", "--offset", str(_FIRST_SECTOR * _SECTOR), image])
    with image.open("r+b") as disk:
        disk.write(_MASTER_BOOT_RECORD.read_bytes())


def _behind(program: bytes) -> int:
    """The first free address behind a program of UEFI's (PE32+): its base and its size in memory."""
    (header,) = struct.unpack_from("<I", program, 0x3C)
    (base,) = struct.unpack_from("<Q", program, header + 0x30)
    (size,) = struct.unpack_from("<I", program, header + 0x50)
    return _aligned(base + size)


def _aligned(address: int) -> int:
    return -(-address // _PAGE) * _PAGE


def _kernel() -> Path:
    debian_kernel()
    return max(KERNEL_FOLDER.glob("*/boot/vmlinuz-*"))


def _initramfs(folder: Path) -> Path:
    root = folder / "root"
    for name in ("bin", "dev", "modules", "proc", "sys"):
        (root / name).mkdir(parents=True)
    (root / "bin/busybox").write_bytes(Path(tool("busybox")).read_bytes())
    (root / "init").write_text(_INIT, encoding="ascii")
    for path in (root / "bin/busybox", root / "init"):
        path.chmod(0o755)
    modules = debian_kernel().modules(_MODULES)
    for module in modules:
        (root / f"modules/{module.name}.ko").write_bytes(module.content)
    (root / "modules/order").write_text(" ".join(module.name for module in modules), encoding="ascii")
    names = "".join(f"{path.relative_to(root)}\0" for path in sorted(root.rglob("*")))
    path = folder / "initrd"
    packer = ["cpio", "--create", "--null", "--format=newc", "--quiet"]
    path.write_bytes(call(packer, folder=root, given=names.encode()))
    return path


def _file_system(folder: Path) -> Path:
    path = folder / "partition"
    sectors = 64 * _MIB // _SECTOR
    call(["mformat", "-C", "-i", path, "-T", str(sectors), "-h", "64", "-s", "32", "-H", str(_FIRST_SECTOR), "::"])
    return path


def _write(image: Path, partition: Path, table: str) -> None:
    with image.open("wb") as disk:
        disk.truncate(_FIRST_SECTOR * _SECTOR + partition.stat().st_size + _MIB)
    call(["sfdisk", "--quiet", image], given=table.encode())
    with image.open("r+b") as disk:
        disk.seek(_FIRST_SECTOR * _SECTOR)
        disk.write(partition.read_bytes())
