"""scripts/lab windows, with small Linux disks in the place of a Windows. Nothing here says anything about Windows."""

import hashlib
import json
import os
import queue
import signal
import subprocess
import threading
import time
from collections.abc import Callable, Iterator
from contextlib import suppress
from pathlib import Path

import linux_disk
import pytest
from guests import cannot_run, is_there
from support import CHECKOUT, Run, check_refusal, slow
from veyra_lab.__main__ import main
from veyra_lab.guest.errors import GuestError
from veyra_lab.guest.tools import call, tool
from veyra_lab.windows_disk.disk import Disk, disk_at
from veyra_lab.windows_disk.errors import Unusable
from veyra_lab.windows_disk.firmware import BIOS, UEFI, firmware_of, firmware_words
from veyra_lab.windows_disk.picture import picture
from veyra_lab.windows_disk.story import story
from veyra_lab.windows_disk.typed import Typed

_FOLDER = CHECKOUT / "build" / "windows-disk"
_CONSOLE = _FOLDER / "windows-console.log"
# The longest that a machine which is emulated takes to its script.
_BOOT_LIMIT = 300.0


def fingerprint(path: Path) -> tuple[str, int, int]:
    """All that must not change of a disk."""
    about = path.stat()
    return hashlib.sha256(path.read_bytes()).hexdigest(), about.st_mtime_ns, about.st_mode


@pytest.fixture
def package(tmp_path: Path) -> Path:
    folder = tmp_path / "package"
    folder.mkdir()
    (folder / "says.txt").write_text("hello from the DVD\n")
    (folder / "VeyraCameraDfuService-1.0.0.msi").write_bytes(b"msi")
    return folder


def partitioned(path: Path) -> Path:
    """A disk with a partition table and nothing that starts."""
    content = bytearray(1 << 20)
    content[510:512] = b"\x55\xaa"
    path.write_bytes(content)
    return path


# What the command line names.


def gpt(*kinds: str, entry_size: int = 128) -> bytes:
    """A disk's first sectors, with partitions of these types."""
    head = bytearray(34 * 512)
    head[510:512] = b"\x55\xaa"
    head[512:520] = b"EFI PART"
    head[512 + 72 : 512 + 80] = (2).to_bytes(8, "little")
    head[512 + 80 : 512 + 84] = (128).to_bytes(4, "little")
    head[512 + 84 : 512 + 88] = entry_size.to_bytes(4, "little")
    for number, kind in enumerate(kinds):
        at = 1024 + number * entry_size
        head[at : at + 16] = bytes.fromhex(kind)
    return bytes(head)


_EFI_SYSTEM = "28732ac11ff8d211ba4b00a0c93ec93b"
_BASIC_DATA = "a2a0d0ebe5b9334487c068b6b72699c7"


@pytest.mark.parametrize(
    ("head", "firmware"),
    [
        (gpt(_BASIC_DATA, _EFI_SYSTEM), UEFI),
        (gpt(_BASIC_DATA), BIOS),
        (gpt(_EFI_SYSTEM, entry_size=0), BIOS),
        (gpt(_EFI_SYSTEM)[:1024], BIOS),
        (bytes(510) + b"\x55\xaa", BIOS),
        (b"", BIOS),
    ],
    ids=["EFI system", "data alone", "damaged", "cut short", "master boot record", "nothing"],
)
def test_firmware_is_what_the_partition_table_asks_for(head: bytes, firmware: str) -> None:
    assert firmware_of(head) == firmware


def test_bios_takes_no_words_and_uefi_its_own_variables(tmp_path: Path) -> None:
    assert firmware_words(BIOS, tmp_path) == []
    try:
        words = firmware_words(UEFI, tmp_path)
    except GuestError as error:
        pytest.skip(str(error))
    assert any(f"file={tmp_path}/" in word and "readonly" not in word for word in words)
    assert any("file=/usr/share/OVMF/" in word and "readonly=on" in word for word in words)


def test_missing_uefi_is_told(tmp_path: Path) -> None:
    with pytest.raises(GuestError, match=r"^a package is missing: ovmf \(scripts/setup packages usb\)$"):
        firmware_words(UEFI, tmp_path / "no-such-folder")


def test_no_disk_and_no_package_are_told(run: Run, package: Path, tmp_path: Path) -> None:
    words = ("windows", "--package", str(package), "--disk")
    check_refusal(run(main, *words, str(tmp_path / "none.img")), f"there is no disk {tmp_path}/none.img")
    check_refusal(run(main, *words, "x" * 300), "x: File name too long")
    check_refusal(run(main, *words, str(tmp_path)), f"{tmp_path} is no file: an image of a disk is wanted")
    disk = str(partitioned(tmp_path / "disk.img"))
    empty = tmp_path / "empty"
    for folder in (empty, empty, tmp_path / ("x" * 300)):
        check_refusal(
            run(main, "windows", "--disk", disk, "--package", str(folder)),
            f"there is no package in {folder}: scripts/package makes one",
        )
        empty.mkdir(exist_ok=True)


@pytest.mark.parametrize(
    ("words", "told"),
    [
        ((), "--disk"),
        (("--disk", "x", "--camera", "{"), "is no JSON"),
        (("--disk", "x", "--camera", "[]"), "'[]' is no JSON object"),
        (("--disk", "x", "--vnc", "screen"), "'screen' is no VNC display: ':1' is one"),
        (("--disk", "x", "--memory", "0"), "'0' is no number above 0"),
        (("--disk", "x", "--firmware", "coreboot"), "--firmware"),
    ],
)
def test_wrong_words_are_told(run: Run, words: tuple[str, ...], told: str) -> None:
    check_refusal(run(main, "windows", *words), told)


def test_more_cameras_than_ports_are_told(run: Run, package: Path, tmp_path: Path) -> None:
    disk = partitioned(tmp_path / "disk.img")
    words = [word for _ in range(8) for word in ("--camera", "{}")]
    said = run(main, "windows", "--disk", str(disk), "--package", str(package), *words)
    check_refusal(said, "the bus has ports for 7 cameras, not for 8")


@pytest.fixture
def qemu_img() -> None:
    try:
        tool("qemu-img")
    except GuestError as error:
        pytest.skip(str(error))


@pytest.mark.usefixtures("qemu_img")
@pytest.mark.parametrize("content", [b"", b"a letter\n" * 100, bytes(1 << 20)], ids=["empty", "text", "zeros"])
def test_file_that_is_no_disk_is_told(content: bytes, tmp_path: Path) -> None:
    path = tmp_path / "letter.txt"
    path.write_bytes(content)
    with pytest.raises(Unusable, match="letter.txt (is no image of a disk that a computer starts from|cannot be read)"):
        disk_at(path).head(tmp_path / "head")


@pytest.mark.usefixtures("qemu_img")
@pytest.mark.parametrize("kind", ["raw", "qcow2", "vpc", "vhdx", "vmdk", "vdi"])
def test_disk_of_every_format_is_known_and_never_written(kind: str, tmp_path: Path) -> None:
    path = tmp_path / f"a disk, of {kind}"
    call(["qemu-img", "convert", "-f", "raw", "-O", kind, partitioned(tmp_path / "raw.img"), path])
    path.chmod(0o444)
    before = fingerprint(path)
    disk = disk_at(path)
    assert disk == Disk(path, kind)
    assert len(disk.head(tmp_path / "head")) == 34 * 512
    disk.layer(tmp_path / "layer.qcow2")
    call(["qemu-io", "-f", "qcow2", "-c", "write -P 0x77 0 512k", tmp_path / "layer.qcow2"])
    assert fingerprint(path) == before


# What a person sees and types.


def test_picture_is_where_it_can_be_seen(monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.delenv("DISPLAY", raising=False)
    monkeypatch.delenv("WAYLAND_DISPLAY", raising=False)
    assert picture(1).words == ("-vnc", "127.0.0.1:1")
    assert "127.0.0.1:5901" in picture(1).told
    assert picture(None).words == ("-display", "none")
    assert "--vnc :1" in picture(None).told
    monkeypatch.setenv("DISPLAY", ":0")
    drawn = b"Available display backend types:\nnone\n"
    monkeypatch.setattr("veyra_lab.windows_disk.picture.call", lambda words: drawn)
    assert picture(None).words == ("-display", "none")
    assert "qemu-system-gui" in picture(None).told
    drawn += b"sdl\n"
    assert picture(None).words == ("-display", "sdl")


@pytest.mark.parametrize(
    ("event", "told"),
    [
        (
            {"event": "camera", "camera": 1, "change": "running", "version": "5.1.2.3"},
            "camera 1 is back with firmware 5.1.2.3",
        ),
        ({"event": "configured", "camera": 0}, "camera 0 is configured by the machine"),
        ({"event": "firmware-command", "opcode": 0x1E}, "a program sends the firmware the command 0x1E"),
        ({"event": "transfer", "setup": "21 01 00 00 00 00 00 04", "length": 1024, "ok": True}, "a download begins"),
        ({"event": "transfer", "setup": "21 01 07 00 00 00 00 04", "length": 1024, "ok": True}, ""),
        ({"event": "transfer", "setup": "21 01 08 00 00 00 00 00", "length": 0, "ok": True}, "the download ends"),
        (
            {"event": "transfer", "setup": "a1 03 00 00 00 00 06 00", "length": 6, "ok": False, "error": 31},
            "the request a1 03 00 00 00 00 06 00 fails with 31",
        ),
        ({"event": "done", "command": "state"}, ""),
    ],
)
def test_person_is_told_what_happens_to_the_cameras(event: dict[str, object], told: str) -> None:
    assert story(event) == told


def test_lines_are_taken_as_they_are_typed() -> None:
    reader, writer = os.pipe()
    typed = Typed(reader)
    assert typed.lines(0.01) == []
    os.write(writer, b"plug\n state 1 \nqu")
    assert typed.lines(5) == ["plug", "state 1"]
    os.write(writer, b"it\n")
    assert typed.lines(5) == ["quit"]
    os.close(writer)
    assert typed.lines(0.01) == typed.lines(0.01) == []
    os.close(reader)


# Machines.


class Person:
    """scripts/lab windows as a person starts it: reads what it says, and types."""

    def __init__(self, *words: str) -> None:
        self.heard: list[str] = []
        self._lines: queue.Queue[str] = queue.Queue()
        self.program = subprocess.Popen(
            [str(CHECKOUT / "scripts" / "lab"), "windows", *words], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT, text=True,
        )
        self._reader = threading.Thread(target=self._read)
        self._reader.start()

    def _read(self) -> None:
        assert self.program.stdout
        for line in self.program.stdout:
            self._lines.put(line.strip())

    def type(self, line: str) -> None:
        assert self.program.stdin
        self.program.stdin.write(f"{line}\n")
        self.program.stdin.flush()

    def hear(self, wanted: str, limit: float = 60.0) -> str:
        """The next line with these words in it."""
        deadline = time.monotonic() + limit
        while True:
            try:
                line = self._lines.get(timeout=max(0.01, deadline - time.monotonic()))
            except queue.Empty:
                raise AssertionError(f"{wanted!r} was not said: {self.heard}") from None
            self.heard.append(line)
            if wanted in line:
                return line

    def end(self, limit: float = 60.0) -> int:
        """The exit status."""
        status = self.program.wait(limit)
        self._reader.join()
        while not self._lines.empty():
            self.heard.append(self._lines.get())
        return status

    def child(self, begin: str) -> int:
        """The number of the process that it has started and whose name begins so."""
        for path in Path("/proc").glob("[0-9]*/stat"):
            with suppress(OSError):
                number, _, rest = path.read_text(encoding="utf-8").partition(" (")
                name, _, fields = rest.rpartition(") ")
                if name.startswith(begin) and int(fields.split()[1]) == self.program.pid:
                    return int(number)
        raise AssertionError(f"there is no {begin}")


@pytest.fixture
def person() -> Iterator[Callable[..., Person]]:
    """Starts persons; none is left at work."""
    started: list[Person] = []

    def start(*words: str) -> Person:
        started.append(Person(*words))
        return started[-1]

    yield start
    for each in started:
        if each.program.poll() is None:
            each.program.terminate()
        each.end()


def runnable(*names: str) -> None:
    try:
        for name in names:
            tool(name)
    except GuestError as error:
        cannot_run(error)


def wait_for_console(words: str, limit: float) -> str:
    """What the machine has said on its serial console by the time that it says this."""
    deadline = time.monotonic() + limit
    while time.monotonic() < deadline:
        said = _CONSOLE.read_text(encoding="utf-8", errors="replace")
        if words in said:
            return said
        time.sleep(0.1)
    raise AssertionError(f"{words!r} was not said in {limit:.0f} s: {said[-2000:]!r}")


def folders_of_runs() -> list[Path]:
    return sorted(_FOLDER.glob("run-*"))


machines = [slow, pytest.mark.xdist_group("guest")]


class TestMachine:
    pytestmark = machines

    @pytest.mark.parametrize(("firmware", "kind"), [(UEFI, "qcow2"), (BIOS, "raw")])
    def test_disk_starts_with_camera_and_package_and_stays_as_it_is(
        self, person: Callable[..., Person], package: Path, tmp_path: Path, firmware: str, kind: str
    ) -> None:
        runnable("qemu-system-x86_64", "qemu-img", "xorriso")
        try:
            linux_disk.needed()
        except GuestError as error:
            cannot_run(error)
        raw, disk = tmp_path / "made.img", tmp_path / f"disk.{kind}"
        (linux_disk.uefi_disk if firmware == UEFI else linux_disk.bios_disk)(raw)
        call(["qemu-img", "convert", "-f", "raw", "-O", kind, raw, disk])
        disk.chmod(0o444)
        before, runs = fingerprint(disk), folders_of_runs()
        transcript = tmp_path / "transcript.jsonl"
        someone = person(
            "--disk", str(disk), "--package", str(package), "--memory", "512", "--transcript", str(transcript),
            "--camera", '{"version":"5.10.2.7"}', "--camera", '{"speed":"super"}',
        )
        someone.hear(f"starting {disk}, which stays as it is", _BOOT_LIMIT)
        someone.hear(f"{kind}, {firmware.upper()}, 512 MiB")
        someone.hear("no Windows has been tried")
        someone.hear(r"msiexec /i D:\VeyraCameraDfuService-1.0.0.msi")
        said = wait_for_console("seen: ready", _BOOT_LIMIT)
        seen = [line.strip().removeprefix("seen: ") for line in said.splitlines() if line.startswith("seen: ")]
        assert seen == [
            f"made for {firmware}",
            "camera 1-1 KV4000001 480 ../../../../../../bus/usb/drivers/uvcvideo",
            "camera 2-2 KV4000002 5000 ../../../../../../bus/usb/drivers/uvcvideo",
            "package VeyraCameraDfuService-1.0.0.msi says.txt",
            "says hello from the DVD",
            "package cannot be written",
            "disk overwritten",
            "ready",
        ]
        someone.hear("camera 0 is configured by the machine")
        someone.type("state")
        someone.hear("camera 0: running, firmware 5.10.2.7, 4096 bytes of flash")
        someone.type("state 2")
        someone.hear("there is no camera 2: they count from 0 to 1")
        someone.type(f"save {tmp_path}/flash.bin 1")
        someone.hear("flash.bin has the flash")
        assert (tmp_path / "flash.bin").stat().st_size == 4096
        someone.type("unplug")
        someone.hear("camera 0 is unplugged")
        assert someone.end() == 0, someone.heard
        assert "==> ended: the machine is switched off" in someone.heard
        assert "seen: camera gone" in _CONSOLE.read_text(encoding="utf-8", errors="replace")
        told = [json.loads(line) for line in transcript.read_text(encoding="utf-8").splitlines()]
        assert {each["camera"] for each in told if each["event"] == "configured"} == {0, 1}
        assert fingerprint(disk) == before
        assert folders_of_runs() == runs

    def test_disk_stays_as_it_is_when_qemu_is_killed(
        self, person: Callable[..., Person], package: Path, tmp_path: Path
    ) -> None:
        runnable("qemu-system-x86_64", "qemu-img", "xorriso")
        disk = partitioned(tmp_path / "disk.img")
        before, runs = fingerprint(disk), folders_of_runs()
        someone = person("--disk", str(disk), "--package", str(package), "--memory", "256")
        someone.hear("in Windows", _BOOT_LIMIT)
        qemu = someone.child("qemu-system")
        os.kill(qemu, signal.SIGKILL)
        assert someone.end() == 1
        assert someone.heard[-1].startswith("scripts/lab: the machine ended with -9")
        assert not is_there(qemu)
        assert fingerprint(disk) == before
        assert folders_of_runs() == runs

    def test_machine_does_not_outlive_its_cameras(
        self, person: Callable[..., Person], package: Path, tmp_path: Path
    ) -> None:
        runnable("qemu-system-x86_64", "qemu-img", "xorriso")
        someone = person("--disk", str(partitioned(tmp_path / "disk.img")), "--package", str(package))
        someone.hear("camera 0 is plugged in", _BOOT_LIMIT)
        qemu = someone.child("qemu-system")
        os.kill(someone.child("lab_usbredir"), signal.SIGKILL)
        assert someone.end() == 1
        assert someone.heard[-1] == "scripts/lab: the cameras' server is gone"
        assert not is_there(qemu)

    def test_machine_ends_when_somebody_says_so(
        self, person: Callable[..., Person], package: Path, tmp_path: Path
    ) -> None:
        runnable("qemu-system-x86_64", "qemu-img", "xorriso")
        disk = partitioned(tmp_path / "disk.img")
        before, runs = fingerprint(disk), folders_of_runs()
        words = ("--disk", str(disk), "--package", str(package), "--memory", "256", "--network")
        someone = person(*words, "--keep")
        someone.hear("in Windows", _BOOT_LIMIT)
        qemu = someone.child("qemu-system")
        someone.type("quit")
        assert someone.end() == 0
        assert "==> ended: its plug is pulled" in someone.heard
        assert not is_there(qemu)
        kept = Path(someone.heard[-1].rpartition("--disk ")[2])
        try:
            assert disk_at(kept).format == "qcow2"
            another = person("--disk", str(kept), *words[2:])
            another.hear("qcow2, BIOS, 256 MiB, 2 processors, a network", _BOOT_LIMIT)
            another.hear("in Windows")
            another.program.send_signal(signal.SIGTERM)
            assert another.end() == 130
            assert another.heard[-1] == "scripts/lab: interrupted"
        finally:
            for path in kept.parent.iterdir():
                path.unlink()
            kept.parent.rmdir()
        assert fingerprint(disk) == before
        assert folders_of_runs() == runs

    def test_camera_that_does_not_exist_is_told(
        self, person: Callable[..., Person], package: Path, tmp_path: Path
    ) -> None:
        runnable("qemu-system-x86_64", "qemu-img", "xorriso")
        disk = partitioned(tmp_path / "disk.img")
        someone = person("--disk", str(disk), "--package", str(package), "--camera", '{"colour":"red"}')
        assert someone.end(_BOOT_LIMIT) == 1
        assert someone.heard[-1] == "scripts/lab: lab_usbredir did not start: a served camera has no field colour"

    def test_disk_that_another_machine_writes_is_told(
        self, person: Callable[..., Person], package: Path, tmp_path: Path
    ) -> None:
        runnable("qemu-system-x86_64", "qemu-img", "xorriso")
        disk = partitioned(tmp_path / "disk.img")
        other = subprocess.Popen(
            [
                tool("qemu-system-x86_64"), "-nodefaults", "-display", "none", "-S", "-monitor", "stdio",
                "-drive", f"if=none,id=disk,format=raw,file={disk}", "-device", "virtio-blk-pci,drive=disk",
            ],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE,
        )
        try:
            assert other.stdout
            other.stdout.read(4)
            someone = person("--disk", str(disk), "--package", str(package))
            assert someone.end(_BOOT_LIMIT) == 1
        finally:
            other.kill()
            other.communicate()
        assert someone.heard[-1].startswith("scripts/lab: the machine ended with 1; QEMU: ")
        assert f"Is another process using the image [{disk}]?" in someone.heard[-1]
