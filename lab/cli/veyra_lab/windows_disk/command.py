"""scripts/lab windows: starts a computer from a person's own disk, with virtual cameras on its bus."""

import argparse
import json
import signal
import sys
import tempfile
from collections.abc import Callable, Sequence
from contextlib import ExitStack
from pathlib import Path
from typing import Any, NoReturn

from ..checkout import BUILD
from ..guest.accelerator import accelerator
from ..guest.camera_server import CameraServer
from ..guest.errors import GuestError
from ..guest.image import PRESET
from ..guest.qemu import KVM, Logs, Qemu
from ..guest.up_to_date import up_to_date_image
from ..terminal.parser import add_transcript, give_up
from ..terminal.screen import Screen
from ..terminal.set_up import SetUpError, call_setup
from ..wire.events import USBREDIR, Event, PeerError
from ..wire.peer import Peer
from .disk import Disk, disk_at, image_file
from .errors import Unusable
from .firmware import BIOS, UEFI
from .machine import LAYER, MOST_CAMERAS, Hardware, machine_words, made_for
from .package import LABEL, PACKAGE_FOLDER, package_files
from .picture import picture
from .session import HELP, Session
from .story import story
from .typed import Typed

_FOLDER = BUILD / "windows-disk"
_LOGS = Logs(_FOLDER, "windows")
_AUTO = "auto"

_DESCRIPTION = """\
Starts a virtual computer from a disk with Windows on it, with the virtual camera on its USB bus and the service's
package on a DVD. The disk is read and never written: what Windows writes goes to a layer over it, which is thrown away
at the end. There is no TPM and no Secure Boot. No Windows has been tried yet; docs/real-bus.md says what has been, and
what to look at."""

_CLOSING = f"""\
While it runs, these are typed here, with N for the camera, from 0:
  {(chr(10) + "  ").join(HELP)}

Examples:
  scripts/package
  scripts/lab windows --disk win11.qcow2
  scripts/lab windows --disk win10.vhdx --vnc :1 --transcript windows.jsonl
  scripts/lab windows --disk win10.img --camera '{{"version":"5.10.1.0"}}' --camera '{{"speed":"super"}}'

Exit status: 0 when the machine was switched off, or ended by "quit"; 1 when something failed; 2 when the command line
is wrong, or names a disk or a package that cannot be used; 130 when interrupted. QEMU's words and the machine's serial
console lie in build/windows-disk/."""


def _camera(text: str) -> Event:
    try:
        fields = json.loads(text)
    except ValueError as error:
        raise argparse.ArgumentTypeError(f"'{text}' is no JSON: {error}") from None
    if not isinstance(fields, dict):
        raise argparse.ArgumentTypeError(f"'{text}' is no JSON object")
    return fields


def _count(text: str) -> int:
    if not text.isdecimal() or not int(text):
        raise argparse.ArgumentTypeError(f"'{text}' is no number above 0")
    return int(text)


def _vnc(text: str) -> int:
    number = text.removeprefix(":")
    if not number.isdecimal() or int(number) > 99:
        raise argparse.ArgumentTypeError(f"'{text}' is no VNC display: ':1' is one")
    return int(number)


def register(subparsers: Any) -> None:
    """Adds the command "windows" to the laboratory's command line."""
    parser = subparsers.add_parser(
        "windows", help="start your own Windows disk with the camera on its bus", description=_DESCRIPTION,
        epilog=_CLOSING,
    )
    parser.add_argument(
        "--disk", type=Path, required=True, metavar="IMAGE", help="of a whole disk: qcow2, raw, vhd, vhdx, vmdk, vdi"
    )
    parser.add_argument(
        "--package", type=Path, default=PACKAGE_FOLDER, metavar="FOLDER",
        help="what the DVD has (default: build/package, where scripts/package leaves the MSI and the ZIP)",
    )
    parser.add_argument(
        "--camera", type=_camera, action="append", metavar="FIELDS", dest="cameras",
        help="a camera in the JSON words of a stage (docs/laboratory.md); once for each, at most"
        f" {MOST_CAMERAS} (default: one KV400)",
    )
    parser.add_argument(
        "--firmware", choices=(_AUTO, BIOS, UEFI), default=_AUTO,
        help="auto: UEFI when the disk has a GPT with an EFI system partition",
    )
    parser.add_argument("--memory", type=_count, default=4096, metavar="MIB", help="default: 4096")
    parser.add_argument("--cpus", type=_count, default=2, metavar="N", help="default: 2")
    parser.add_argument("--network", action="store_true", help="a network card; without it there is no network")
    parser.add_argument(
        "--vnc", type=_vnc, metavar=":N", help="show the picture to a VNC viewer on this computer, not in a window"
    )
    parser.add_argument("--keep", action="store_true", help="keep the layer with what Windows has written")
    add_transcript(parser)
    parser.set_defaults(run=_run)


def _run(options: argparse.Namespace) -> int:
    try:
        _start(options, Screen())
    except Unusable as error:
        return give_up("scripts/lab", error, 2)
    except (SetUpError, GuestError, PeerError, OSError) as error:
        return give_up("scripts/lab", error)
    return 0


def _interrupt(number: int, _frame: object) -> NoReturn:
    """Who is told to end leaves nothing running."""
    raise KeyboardInterrupt(signal.Signals(number).name)


def _start(options: argparse.Namespace, screen: Screen) -> None:
    file = image_file(options.disk)
    package = package_files(options.package)
    cameras = options.cameras or [{}]
    if len(cameras) > MOST_CAMERAS:
        raise Unusable(f"the bus has ports for {MOST_CAMERAS} cameras, not for {len(cameras)}")
    image = up_to_date_image()
    call_setup("build", PRESET, f"lab_{USBREDIR}", aside=True)
    disk = disk_at(file)
    for ending in (signal.SIGTERM, signal.SIGHUP):
        signal.signal(ending, _interrupt)
    _FOLDER.mkdir(parents=True, exist_ok=True)
    with ExitStack() as parts:
        folder = Path(parts.enter_context(tempfile.TemporaryDirectory(prefix="run-", dir=_FOLDER)))
        made = made_for(disk, folder)
        hardware = Hardware(
            accelerator(image), made if options.firmware == _AUTO else options.firmware, options.memory, options.cpus,
            options.network, picture(options.vnc),
        )
        # A socket's path may not be long.
        sockets = Path(parts.enter_context(tempfile.TemporaryDirectory(prefix="veyra-cameras-")))
        places = [sockets / str(number) for number in range(len(cameras))]
        words = machine_words(disk, options.package, places, hardware, folder)
        if options.keep:
            parts.callback(_keep, folder, screen)
        peer = parts.enter_context(Peer({}, lambda event: None, _teller(screen), options.transcript))
        server = parts.enter_context(CameraServer(USBREDIR, peer, cameras, [f"unix:{place}" for place in places]))
        for number in range(len(cameras)):
            server.plug(number)
        _tell_machine(screen, disk, hardware)
        qemu = Qemu(words, _LOGS)
        parts.callback(qemu.end)
        qemu.greet()
        _tell_road(screen, package)
        Session(screen, peer, server, len(cameras), Typed(sys.stdin.fileno())).run(qemu)
        screen.step("ended: the machine is switched off" if qemu.status == 0 else "ended: its plug is pulled")


def _teller(screen: Screen) -> Callable[[Event], None]:
    def tell(event: Event) -> None:
        if said := story(event):
            screen.note(said)

    return tell


def _tell_machine(screen: Screen, disk: Disk, hardware: Hardware) -> None:
    screen.step(f"starting {disk.path}, which stays as it is")
    screen.note(
        f"{disk.format}, {hardware.firmware.upper()}, {hardware.memory_mib} MiB, {hardware.processors} processors,"
        f" {'a network' if hardware.has_network else 'no network'}; no TPM, no Secure Boot"
    )
    if hardware.accelerator != KVM:
        screen.note("there is no KVM here: the processor is emulated, and Windows will be very slow")
    screen.note(hardware.picture.told)
    screen.note("no Windows has been tried with this yet: what you see is news (docs/real-bus.md)")


def _tell_road(screen: Screen, package: Sequence[str]) -> None:
    screen.step(f"in Windows: the DVD {LABEL} has {', '.join(package)}")
    installers = [name for name in package if name.endswith(".msi")]
    for name in installers[:1]:
        screen.note(f"install it at an elevated prompt: msiexec /i D:\\{name}, where D: is that DVD")
    screen.note("look: Device Manager has a KV400 camera under Cameras; docs/hardware-checklist.md goes on from there")
    screen.note("here: plug, unplug, state, save FILE, quit; anything else tells more")


def _keep(folder: Path, screen: Screen) -> None:
    """Called when the machine has ended."""
    kept = folder.rename(folder.with_name(folder.name.replace("run-", "kept-")))
    screen.note(f"what it has written is kept, as long as the disk below it stays as it is: --disk {kept / LAYER}")
