"""What the guest is made of, without booting one: kernels and modules unpacked, programs collected, QEMU's answers
read."""

import json
import lzma
import shutil
import socket
import struct
import subprocess
import threading
from collections.abc import Iterator, Sequence
from pathlib import Path
from typing import Any

import pytest
from veyra_lab.guest import accelerator as accelerators
from veyra_lab.guest.bus import Bus
from veyra_lab.guest.errors import GuestError, KernelRefusal
from veyra_lab.guest.image import Image
from veyra_lab.guest.kernel import Kernel, debian_kernel, elf_of
from veyra_lab.guest.modinfo import needed_modules
from veyra_lab.guest.programs import files_of
from veyra_lab.guest.qemu import KVM, TCG, Logs
from veyra_lab.guest.qmp import Qmp
from veyra_lab.guest.system import KernelLine, System, complaints_of
from veyra_lab.guest.tools import call, tool
from veyra_lab.guest.usb_host import UsbHost
from veyra_lab.wire.events import Event, PeerError
from veyra_lab.wire.peer import Peer

_ELF = b"\x7fELF" + bytes(range(256)) * 40


# The kernel.


def bz_image(packed: bytes, size: int = len(_ELF)) -> bytes:
    """A bzImage whose setup code has two sectors besides the first, with its payload 100 bytes behind it."""
    image = bytearray(3 * 512 + 100)
    image[0x1F1] = 2
    image[0x202:0x206] = b"HdrS"
    image[0x248:0x250] = struct.pack("<II", 100, len(packed) + 4)
    return bytes(image) + packed + struct.pack("<I", size) + b"behind"


def test_kernel_is_unpacked_whatever_packs_it() -> None:
    assert elf_of(bz_image(lzma.compress(_ELF))) == _ELF
    assert elf_of(bz_image(_ELF)) == _ELF


def test_kernel_of_debian_13_is_unpacked() -> None:
    if not shutil.which("zstd"):
        pytest.skip("a package is missing: zstd")
    packed = subprocess.run(["zstd", "--stdout"], input=_ELF, capture_output=True, check=True).stdout
    assert elf_of(bz_image(packed)) == _ELF


@pytest.mark.parametrize(
    ("image", "told"),
    [
        (b"", "the kernel is no bzImage"),
        (bytes(4096), "the kernel is no bzImage"),
        (bz_image(_ELF)[:-200], "the kernel's bzImage is cut short"),
        (bz_image(_ELF, 7), f"the kernel has {len(_ELF)} bytes unpacked, and should have 7"),
        (bz_image(b"BZh91AY&SY"), "the kernel is packed in a way that is not known: it begins with 42 5a 68 39 31 41"),
        (bz_image(lzma.compress(b"no ELF")), "the kernel is packed in a way that is not known"),
        (bz_image(lzma.compress(_ELF)[:-20]), "the kernel cannot be unpacked: "),
    ],
)
def test_damaged_kernel_is_told(image: bytes, told: str) -> None:
    with pytest.raises(GuestError) as failed:
        elf_of(image)
    assert str(failed.value).startswith(told)


def module(*needed: str) -> bytes:
    """A module's file with nothing in it but what it needs."""
    info = b"license=GPL\0depends=" + ",".join(needed).encode() + b"\0name=some\0"
    names = b"\0.modinfo\0.names\0"
    header = 64
    sections = b"".join(
        struct.pack("<IIQQQQIIQQ", name, 1, 0, 0, at, size, 0, 0, 1, 0)
        for name, at, size in ((0, 0, 0), (1, header, len(info)), (10, header + len(info), len(names)))
    )
    table = header + len(info) + len(names)
    ident = b"\x7fELF\x02\x01\x01" + bytes(9)
    return ident + struct.pack("<HHIQQQIHHHHHH", 1, 62, 1, 0, 0, table, 0, 64, 0, 0, 64, 3, 2) + info + names + sections


def test_module_tells_what_it_needs() -> None:
    assert needed_modules(module(), "it") == []
    assert needed_modules(module("mc", "videobuf2-v4l2"), "it") == ["mc", "videobuf2-v4l2"]


@pytest.mark.parametrize("content", [b"", _ELF[:30], bytes(64), module("mc")[:-100]])
def test_damaged_module_is_told(content: bytes) -> None:
    with pytest.raises(GuestError, match="^the module mc has no .modinfo: it is damaged$"):
        needed_modules(content, "the module mc")


class UnpackedKernel:
    """A kernel's package as it is unpacked, with these modules."""

    def __init__(self, folder: Path, prefix: str = "") -> None:
        self.package = folder / "linux-image-6.1.0-1-amd64_6.1-1_amd64"
        self.modules = self.package / prefix / "lib/modules/6.1.0-1-amd64"
        self.modules.mkdir(parents=True)
        self.package.joinpath("boot").mkdir()
        self.package.joinpath("boot/vmlinuz-6.1.0-1-amd64").write_bytes(bz_image(lzma.compress(_ELF)))
        self.package.joinpath("unpacked").touch()
        self.modules.joinpath("modules.builtin").write_text("kernel/drivers/pci-core.ko\n")
        self._listed: list[str] = []
        self.list()

    def list(self, *names: str) -> None:
        self._listed += [f"kernel/drivers/{name}.ko\n" for name in names]
        self.modules.joinpath("modules.order").write_text("".join(self._listed))

    def add(self, name: str, *needed: str, packed: bool = False) -> None:
        file = self.modules / f"kernel/drivers/{name}.ko{'.xz' if packed else ''}"
        file.parent.mkdir(parents=True, exist_ok=True)
        content = module(*needed)
        file.write_bytes(lzma.compress(content) if packed else content)
        self.list(name)


def names_of(kernel: Kernel, *wanted: str) -> list[str]:
    return [each.name for each in kernel.modules(wanted)]


@pytest.mark.parametrize("prefix", ["", "usr"])
def test_modules_come_behind_what_they_need(tmp_path: Path, prefix: str) -> None:
    unpacked = UnpackedKernel(tmp_path, prefix)
    unpacked.add("usb-common", packed=True)
    unpacked.add("usbcore", "usb-common")
    unpacked.add("xhci-hcd", "usbcore")
    unpacked.add("xhci-pci", "xhci_hcd", "pci-core", "usbcore")
    kernel = debian_kernel(tmp_path)
    assert names_of(kernel, "xhci_pci", "usbcore") == ["usb_common", "usbcore", "xhci_hcd", "xhci_pci"]
    assert names_of(kernel, "usb-common") == ["usb_common"]
    assert kernel.modules(["usb-common"])[0].content == module()
    assert names_of(kernel, "pci-core") == []


def test_kernel_names_itself_and_is_unpacked_once(tmp_path: Path) -> None:
    unpacked = UnpackedKernel(tmp_path)
    kernel = debian_kernel(tmp_path)
    assert kernel.release == "6.1.0-1-amd64"
    assert kernel.elf.read_bytes() == _ELF
    unpacked.package.joinpath("boot/vmlinuz-6.1.0-1-amd64").unlink()
    assert debian_kernel(tmp_path).elf.read_bytes() == _ELF


def test_missing_module_is_told(tmp_path: Path) -> None:
    unpacked = UnpackedKernel(tmp_path)
    unpacked.list("listed-only")
    for name in ("fly", "listed_only"):
        with pytest.raises(GuestError, match=f"^the kernel 6.1.0-1-amd64 has no module {name}$"):
            debian_kernel(tmp_path).modules([name])


def test_missing_kernel_is_told(tmp_path: Path) -> None:
    with pytest.raises(GuestError, match="^there is no kernel for the guest: scripts/setup packages usb unpacks one"):
        debian_kernel(tmp_path)
    package = UnpackedKernel(tmp_path).package
    package.joinpath("boot/vmlinuz-6.1.0-1-amd64").unlink()
    with pytest.raises(GuestError, match="holds no kernel"):
        _ = debian_kernel(tmp_path).elf
    package.joinpath("unpacked").unlink()
    with pytest.raises(GuestError, match="there is no kernel"):
        debian_kernel(tmp_path)


# Programs.


def test_program_brings_its_libraries() -> None:
    files = files_of(["ls"])
    names = {Path(name).name for name in files}
    assert {"ls", "libc.so.6", "ld-linux-x86-64.so.2"} <= names
    assert all(path.is_file() for path in files.values())


def test_missing_package_is_told(monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setattr(shutil, "which", lambda *unused, **words: None)
    for name, package in (("qemu-system-x86_64", "qemu-system-x86"), ("lsusb", "usbutils"), ("cpio", "cpio")):
        with pytest.raises(GuestError) as missing:
            tool(name)
        assert str(missing.value) == f"a package is missing: {package} (scripts/setup packages usb)"


def test_program_that_fails_is_told_with_its_words() -> None:
    assert call(["cat"], given=b"given") == b"given"
    with pytest.raises(GuestError, match="^sh failed with 3: no$"):
        call(["sh", "-c", "echo no >&2; exit 3"])


# QEMU.


class FakeQemu:
    """The other end of QMP, which answers each command with the next of these lines, several of them with a line's end
    between."""

    def __init__(self, *answers: str) -> None:
        ours, self._channel = socket.socketpair()
        self.qmp = Qmp(ours)
        self.heard: list[Any] = []
        self._answers = ['{"QMP":{}}', '{"return":{}}', *answers]
        self._thread = threading.Thread(target=self._play)
        self._thread.start()

    def __enter__(self) -> "FakeQemu":
        self.qmp.greet()
        self.heard.clear()
        return self

    def __exit__(self, *unused: object) -> None:
        self.qmp.close()
        self._thread.join()

    def _play(self) -> None:
        with self._channel, self._channel.makefile("rwb") as stream:
            greeting, *rest = self._answers
            stream.write(greeting.encode() + b"\n")
            stream.flush()
            for answer, line in zip(rest, stream):
                self.heard.append(json.loads(line))
                stream.write(answer.encode() + b"\n")
                stream.flush()


def test_qmp_returns_what_a_command_returns() -> None:
    with FakeQemu('{"event":"RESUME"}\n{"return":{"running":true}}') as qemu:
        assert qemu.qmp.execute("query-status") == {"running": True}
        assert qemu.heard == [{"execute": "query-status", "arguments": {}}]


def test_qmp_tells_a_refusal_and_an_end() -> None:
    with FakeQemu('{"error":{"class":"GenericError","desc":"no such device"}}') as qemu:
        with pytest.raises(GuestError, match="^QEMU refused device_del: no such device$"):
            qemu.qmp.execute("device_del", id="x")
        with pytest.raises(GuestError, match="^QEMU (is gone|takes no command|does not answer)"):
            qemu.qmp.execute("device_del", id="x")


def test_unplugging_waits_until_the_device_is_off_the_bus() -> None:
    gone = '{"event":"DEVICE_DELETED","data":{"device":"x"}}'
    other = '{"event":"DEVICE_DELETED","data":{"device":"y"}}'
    with FakeQemu(f'{other}\n{{"return":{{}}}}\n{gone}', '{"return":{}}') as qemu:
        Bus(qemu.qmp).unplug("x")
        qemu.qmp.wait_for("DEVICE_DELETED", device="y")
        assert qemu.heard == [{"execute": "device_del", "arguments": {"id": "x"}}]


def test_redirected_port_gets_a_channel_of_its_own() -> None:
    with FakeQemu('{"return":{}}', '{"return":{}}') as qemu:
        Bus(qemu.qmp).plug_redirected("camera", Path("/run/camera"), port=2)
        channel, device = qemu.heard
    assert channel["arguments"] == {
        "id": "camera-channel",
        "backend": {
            "type": "socket", "data": {"addr": {"type": "unix", "data": {"path": "/run/camera"}}, "server": False},
        },
    }
    assert device["arguments"] == {
        "driver": "usb-redir", "id": "camera", "bus": "usb.0", "chardev": "camera-channel", "port": "2",
    }


def test_channel_goes_when_its_device_is_refused() -> None:
    with FakeQemu('{"return":{}}', '{"error":{"desc":"no port is free"}}', '{"return":{}}') as qemu:
        with pytest.raises(GuestError, match="no port is free"):
            Bus(qemu.qmp).plug_redirected("camera", Path("/run/camera"), port=2)
        assert qemu.heard[-1] == {"execute": "chardev-remove", "arguments": {"id": "camera-channel"}}


def test_last_words_are_one_line(tmp_path: Path) -> None:
    logs = Logs(tmp_path)
    logs.begin()
    assert logs.last_words(logs.console) == "nothing"
    logs.console.write_bytes(b"\r\n".join(f"line {number}".encode() for number in range(20)) + b"\r\n\r\n\xff")
    assert logs.last_words(logs.console) == " | ".join([*(f"line {number}" for number in range(15, 20)), "\ufffd"])
    logs.console.write_bytes(b"why\nKernel panic - not syncing: because\nCall Trace:\n end\nKernel panic again\n")
    assert logs.last_words(logs.console) == "why | Kernel panic - not syncing: because"


# Whether the host's processor runs the guest.


@pytest.fixture
def tried(monkeypatch: pytest.MonkeyPatch, tmp_path: Path) -> list[bool]:
    """A host with KVM. What a trial boot finds comes from the front of this list."""
    found: list[bool] = []
    monkeypatch.setattr(accelerators, "_DEVICE", tmp_path)
    monkeypatch.setattr(accelerators, "call", lambda command: b"QEMU 1")
    monkeypatch.setattr(accelerators, "_boots_with_kvm", lambda image, logs: found.pop(0))
    return found


def accelerator(tmp_path: Path) -> str:
    image = Image(Kernel.__new__(Kernel), tmp_path)
    return accelerators.accelerator(image, tmp_path / "decision.json")


@pytest.mark.parametrize(("boots", "decided"), [(True, KVM), (False, TCG)])
def test_accelerator_is_tried_once(tried: list[bool], tmp_path: Path, boots: bool, decided: str) -> None:
    tried.append(boots)
    assert accelerator(tmp_path) == decided
    assert accelerator(tmp_path) == decided


def test_accelerator_is_tried_again_with_another_qemu(
    tried: list[bool], tmp_path: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    tried += [False, True]
    assert accelerator(tmp_path) == TCG
    monkeypatch.setattr(accelerators, "call", lambda command: b"QEMU 2")
    assert accelerator(tmp_path) == KVM


@pytest.mark.parametrize("kept", ["", "[]", "{}", '{"tried_on": 1, "accelerator": "warp"}'])
def test_damaged_decision_is_made_anew(tried: list[bool], tmp_path: Path, kept: str) -> None:
    tmp_path.joinpath("decision.json").write_text(kept)
    tried.append(True)
    assert accelerator(tmp_path) == KVM


def test_without_the_device_nothing_is_tried(tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setattr(accelerators, "_DEVICE", tmp_path / "none")
    assert accelerator(tmp_path) == TCG
    assert list(tmp_path.iterdir()) == []


# What the guest is asked, and answers.


class FakeGuest:
    """A helper that is played by the test: it answers each command with the fields of the next of its answers."""

    def __init__(self, peer: Peer, answers: Sequence[Event]) -> None:
        self.heard: list[Event] = []
        self._answers = answers
        self._channel = socket.create_connection(("127.0.0.1", peer.port), timeout=20)
        self._thread = threading.Thread(target=self._play)
        self._thread.start()
        peer.follow(lambda event: event["event"] == "hello", "the hello", since=0, quiet=20)

    def leave(self) -> None:
        self._channel.shutdown(socket.SHUT_RDWR)
        self._thread.join()
        self._channel.close()

    def _play(self) -> None:
        with self._channel.makefile("rw", encoding="utf-8") as stream:
            self._say(stream, {"event": "hello", "source": "guest", "pid": 1})
            stream.readline()
            for answer, line in zip(self._answers, stream):
                self.heard.append(json.loads(line))
                self._say(stream, {"event": "done", "command": self.heard[-1]["command"], "ok": True, **answer})
            stream.readline()

    @staticmethod
    def _say(stream: Any, line: Event) -> None:
        stream.write(json.dumps(line) + "\n")
        stream.flush()


class TestAsking:
    @pytest.fixture(autouse=True)
    def listen(self) -> Iterator[None]:
        self.guests: list[FakeGuest] = []
        with Peer({}, lambda event: None, lambda event: None) as self.peer:
            yield
            for guest in self.guests:
                guest.leave()

    def guest(self, *answers: Event) -> FakeGuest:
        self.guests.append(FakeGuest(self.peer, answers))
        return self.guests[-1]

    def test_control_transfer_sends_its_data(self) -> None:
        guest = self.guest({"transferred": 2})
        assert UsbHost(self.peer).control("1-1", bytes.fromhex("2101000000000200"), b"\xab\xcd", limit=0.25) == b""
        assert guest.heard == [
            {"command": "control", "device": "1-1", "setup": "2101000000000200", "limit_ms": 250, "data": "abcd"}
        ]

    def test_control_transfer_returns_what_came(self) -> None:
        guest = self.guest({"transferred": 1, "data": "05"})
        assert UsbHost(self.peer).control("1-1", bytes.fromhex("a105000000000100")) == b"\x05"
        assert "data" not in guest.heard[0]

    def test_kernels_error_is_named(self) -> None:
        self.guest({"errno": "ETIMEDOUT", "why": "the control transfer: Connection timed out"})
        with pytest.raises(KernelRefusal, match="^ETIMEDOUT: the control transfer: Connection timed out$") as failed:
            UsbHost(self.peer).reset("1-1")
        assert failed.value.errno == "ETIMEDOUT"

    def test_refused_command_is_told(self) -> None:
        self.guest({"ok": False, "why": "device is missing"})
        with pytest.raises(PeerError, match="^the guest refused reset: device is missing$"):
            UsbHost(self.peer).reset("1-1")

    def test_program_tells_how_it_ended(self) -> None:
        guest = self.guest({"status": -9, "output": "some", "is_out_of_time": True, "is_cut": False})
        end = System(self.peer).run("lsusb", "-t", limit=1.5)
        assert (end.status, end.output, end.is_out_of_time) == (-9, "some", True)
        assert guest.heard == [{"command": "run", "program": "lsusb", "arguments": ["-t"], "limit_ms": 1500}]

    def test_file_is_written_in_pieces(self) -> None:
        guest = self.guest({"size": 131072}, {"size": 131073})
        System(self.peer).write_file("image.bin", b"\xab" * 131073)
        assert guest.heard == [
            {"command": "write-file", "file": "image.bin", "from": 0, "data": "ab" * 131072},
            {"command": "write-file", "file": "image.bin", "from": 131072, "data": "ab"},
        ]

    def test_empty_file_is_written_too(self) -> None:
        guest = self.guest({"size": 0})
        System(self.peer).write_file("image.bin", b"")
        assert guest.heard == [{"command": "write-file", "file": "image.bin", "from": 0, "data": ""}]

    def test_file_is_read_in_pieces(self) -> None:
        guest = self.guest({"data": "0001", "size": 3}, {"data": "02", "size": 3})
        assert System(self.peer).read_file("read-back.bin") == b"\x00\x01\x02"
        assert guest.heard == [
            {"command": "read-file", "file": "read-back.bin", "from": 0, "length": 131072},
            {"command": "read-file", "file": "read-back.bin", "from": 2, "length": 131072},
        ]

    def test_file_that_is_cut_off_while_it_is_read_ends_there(self) -> None:
        self.guest({"data": "0001", "size": 3}, {"data": "", "size": 2})
        assert System(self.peer).read_file("read-back.bin") == b"\x00\x01"

    def test_kernels_lines_are_read(self) -> None:
        record = {"level": 4, "number": 12, "microseconds": 1_500_000, "text": "usb 1-1: no"}
        self.guest({"records": [record], "next": 13})
        (line,) = System(self.peer).kernel_log(12)
        assert str(line) == "[    1.500000] <4> usb 1-1: no"


def test_complaints_are_notices_and_warnings_of_those_who_drive_usb() -> None:
    lines = [
        KernelLine(4, 1, 0.1, "usb 1-1: device descriptor read/64, error -71"),
        KernelLine(3, 2, 0.2, "uvcvideo 1-1:1.0: Failed to query"),
        KernelLine(6, 3, 0.3, "usb 1-1: new high-speed USB device"),
        KernelLine(3, 4, 0.4, "ACPI: no table"),
        KernelLine(2, 5, 0.5, "xhci_hcd 0000:00:03.0: HC died; cleaning up"),
        KernelLine(4, 6, 0.6, "usbserial: not ours"),
        KernelLine(5, 7, 0.7, "usb 1-1: config 1 has an invalid interface descriptor of length 8, skipping"),
    ]
    assert complaints_of(lines) == [lines[0].text, lines[1].text, lines[4].text, lines[6].text]
