"""The guest: its kernel, what is plugged into its USB bus, and how it ends. The tests share one boot, but those about
booting and ending."""

import os
import re
import shutil
import signal
import socket
import subprocess
import sys
import time
from collections.abc import Iterator
from contextlib import contextmanager
from dataclasses import replace
from pathlib import Path

import pytest
from guests import Running, booted, cannot_run, guest_image, is_there, new_peer
from support import CHECKOUT, slow
from veyra_lab.guest.accelerator import accelerator
from veyra_lab.guest.errors import GuestError, KernelRefusal
from veyra_lab.guest.image import HELPER, Image
from veyra_lab.guest.machine import GuestMachine
from veyra_lab.guest.qemu import Logs
from veyra_lab.guest.tools import call
from veyra_lab.wire.events import GUEST, PeerError

pytestmark = [slow, pytest.mark.xdist_group("guest")]

# QEMU's tablet, and two descriptors that any device has.
_VENDOR, _PRODUCT = "0627", "0001"
_GET_DEVICE = bytes.fromhex("8006 0001 0000 1200")
_GET_CONFIGURATION_HEAD = bytes.fromhex("8006 0002 0000 0900")
_GET_NO_SUCH_DESCRIPTOR = bytes.fromhex("8006 0055 0000 ff00")


@pytest.fixture(scope="module")
def image() -> Image:
    return guest_image()


@pytest.fixture(scope="module")
def running(image: Image) -> Iterator[Running]:
    with booted(image, "test") as the_guest:
        yield the_guest


@contextmanager
def tablet(running: Running) -> Iterator[str]:
    """QEMU's tablet on the bus; its path."""
    since = running.peer.mark()
    running.guest.bus.plug("usb-tablet", "tablet")
    try:
        yield running.guest.usb.wait_for("ready", _VENDOR, _PRODUCT, since)
    finally:
        since = running.peer.mark()
        running.guest.bus.unplug("tablet")
        running.guest.usb.wait_for("removal", _VENDOR, _PRODUCT, since)


def refusal(error: pytest.ExceptionInfo[KernelRefusal]) -> str:
    return error.value.errno


# The bus.


def test_boots_debians_kernel(running: Running, image: Image) -> None:
    assert running.guest.kernel == image.kernel.release
    assert 0 < running.guest.seconds_to_first_answer < 120
    assert all(device.is_root_hub for device in running.guest.usb.devices())
    assert {device.speed for device in running.guest.usb.devices()} == {"480", "5000"}


def test_tells_a_device_that_arrives_and_leaves(running: Running) -> None:
    since = running.peer.mark()
    with tablet(running) as path:
        device = next(each for each in running.guest.usb.devices() if each.path == path)
        assert (device.vendor, device.product, device.configuration) == (_VENDOR, _PRODUCT, "1")
        assert (device.manufacturer_text, device.product_text) == ("QEMU", "QEMU USB Tablet")
        assert [(each.number, each.triple[0], each.driver) for each in device.interfaces] == [(0, 3, "")]
        assert device.video_node == ""
    assert path not in [each.path for each in running.guest.usb.devices()]
    told = [event for event in running.peer.events_since(since) if event.get("vendor") == _VENDOR]
    assert [(event["change"], event["path"]) for event in told] == [
        ("arrival", path), ("ready", path), ("removal", path),
    ]


def test_reads_the_same_descriptors_from_the_kernel_and_from_the_device(running: Running) -> None:
    usb = running.guest.usb
    with tablet(running) as path:
        kept = usb.descriptors(path)
        head = usb.control(path, _GET_CONFIGURATION_HEAD)
        total = head[2:4]
        configuration = usb.control(path, _GET_CONFIGURATION_HEAD[:6] + total)
        assert usb.control(path, _GET_DEVICE) + configuration == kept
        assert len(configuration) == int.from_bytes(total, "little") > 9


def test_names_the_error_of_a_request_that_is_refused(running: Running) -> None:
    with tablet(running) as path:
        with pytest.raises(KernelRefusal) as stalled:
            running.guest.usb.control(path, _GET_NO_SUCH_DESCRIPTOR)
        assert refusal(stalled) == "EPIPE"
        assert len(running.guest.usb.control(path, _GET_DEVICE)) == 18


def test_has_an_interface_claimed_and_set_and_the_port_reset(running: Running) -> None:
    usb = running.guest.usb
    with tablet(running) as path:
        usb.claim(path, 0)
        usb.set_interface(path, 0, 0)
        usb.release(path, 0)
        with pytest.raises(KernelRefusal) as unclaimed:
            usb.release(path, 0)
        assert refusal(unclaimed) == "EINVAL"
        with pytest.raises(KernelRefusal) as none:
            usb.claim(path, 7)
        assert refusal(none) == "ENOENT"
        usb.reset(path)
        assert len(usb.control(path, _GET_DEVICE)) == 18


def test_tells_that_a_device_is_gone(running: Running) -> None:
    with tablet(running) as path:
        running.guest.usb.claim(path, 0)
    with pytest.raises(KernelRefusal) as gone:
        running.guest.usb.control(path, _GET_DEVICE)
    assert refusal(gone) == "ENODEV"


def test_finds_no_extension_unit_on_what_is_no_camera(running: Running) -> None:
    with tablet(running) as path:
        with pytest.raises(KernelRefusal) as none:
            running.guest.usb.read_unit(path, 3, 1, "GET_LEN", 2)
        assert refusal(none) == "ENOTTY"


def test_gives_a_port_to_a_server_of_devices(running: Running, tmp_path: Path) -> None:
    """The usbredir protocol begins with a packet of type 0, which says hello in 64 bytes and more."""
    path = tmp_path / "server"
    with socket.socket(socket.AF_UNIX) as listener:
        listener.settimeout(20)
        listener.bind(str(path))
        listener.listen()
        running.guest.bus.plug_redirected("camera", path, port=1)
        channel, _ = listener.accept()
        with channel:
            channel.settimeout(20)
            hello = channel.recv(4096)
            assert int.from_bytes(hello[:4], "little") == 0
            assert len(hello) > 64
            running.guest.bus.unplug("camera")
            while channel.recv(4096):
                pass


def test_refuses_a_command_that_makes_no_sense(running: Running) -> None:
    with pytest.raises(PeerError, match="the guest refused control: setup is missing"):
        running.peer.command(GUEST, "control", device="1-1")


# The guest itself.


def test_runs_a_program_of_the_image(running: Running) -> None:
    with tablet(running):
        devices = running.guest.usb.devices()
        listed = running.guest.system.run("lsusb")
    assert listed.status == 0
    seen = re.findall(r"Bus (\d+) Device (\d+): ID (\w+):(\w+)", listed.output)
    assert sorted(seen) == sorted(
        (f"{each.bus:03}", f"{each.number:03}", each.vendor, each.product) for each in devices
    )
    assert running.guest.system.run("dfu-util", "--list").status == 0


def test_tells_that_a_program_is_not_there(running: Running) -> None:
    with pytest.raises(KernelRefusal) as none:
        running.guest.system.run("no-such-program")
    assert refusal(none) == "ENOENT"


def test_loads_more_modules(running: Running) -> None:
    for _ in range(2):
        running.guest.system.load("usbip")
        assert any("vhci_hcd" in device.manufacturer_text for device in running.guest.usb.devices())
    with pytest.raises(PeerError, match="the guest refused load: the image has no such modules"):
        running.guest.system.load("no-such-modules")


def test_reads_the_kernels_log_from_a_mark(running: Running) -> None:
    system = running.guest.system
    assert system.kernel_log()[0].text.startswith("Linux version")
    mark = system.kernel_mark()
    assert system.kernel_log(mark) == []
    with tablet(running) as path:
        lines = system.kernel_log(mark)
    assert [line.number for line in lines] == list(range(mark, mark + len(lines)))
    assert any(line.text.startswith(f"usb {path}: new") for line in lines)


def test_tells_what_the_kernel_complains_of(running: Running) -> None:
    usb = running.guest.usb
    with tablet(running) as path:
        mark = running.guest.system.kernel_mark()
        usb.control(path, _GET_DEVICE)
        assert running.guest.kernel_complaints(mark) == []
        # GET_IDLE, a request to an interface that nobody has claimed.
        usb.control(path, bytes.fromhex("a102 0000 0000 0100"))
        assert running.guest.kernel_complaints(mark) == [
            f"usb {path}: usbfs: process 1 (init) did not claim interface 0 before use"
        ]


# How it begins and ends.


def check_one_line(error: pytest.ExceptionInfo[GuestError], *said: str) -> None:
    assert "\n" not in str(error.value)
    for words in said:
        assert words in str(error.value)


def test_leaves_its_logs_and_no_process(image: Image, tmp_path: Path) -> None:
    logs = Logs(tmp_path, "one")
    with new_peer() as on, GuestMachine(image, on, logs, accelerator(image)) as guest:
        pid = guest.pid
        assert is_there(pid)
    assert not is_there(pid)
    assert "Linux version" in logs.kernel.read_text(encoding="utf-8")
    assert sorted(path.name for path in tmp_path.iterdir()) == ["one-console.log", "one-kernel.log", "one-qemu.log"]


def test_image_that_does_not_boot_is_told_in_one_line(image: Image, tmp_path: Path) -> None:
    broken = tmp_path / "broken.cpio"
    broken.write_bytes(b"no file system")
    began = time.monotonic()
    with new_peer() as on, pytest.raises(GuestError) as failed:
        GuestMachine(replace(image, initramfs=broken), on, Logs(tmp_path)).__enter__()
    check_one_line(failed, "the machine ended with 0", "its console: ", "Kernel panic")
    assert time.monotonic() - began < 60


def test_helper_that_fails_says_why_on_the_console(image: Image, tmp_path: Path) -> None:
    """An image with nothing but the helper."""
    shutil.copy(HELPER, tmp_path / "init")
    bare = tmp_path / "bare.cpio"
    bare.write_bytes(call(["cpio", "--create", "--format=newc", "--quiet"], folder=tmp_path, given=b"init\n"))
    with new_peer() as on, pytest.raises(GuestError) as failed:
        GuestMachine(replace(image, initramfs=bare), on, Logs(tmp_path)).__enter__()
    check_one_line(failed, "its console: ", "lab_guest: the image has no /modules/sets")


def test_guest_that_does_not_boot_in_time_is_told_in_one_line(image: Image, tmp_path: Path) -> None:
    with new_peer() as on, pytest.raises(GuestError) as failed:
        GuestMachine(image, on, Logs(tmp_path), limit=0.2).__enter__()
    check_one_line(failed, "the guest did not boot within 0 s; its console: ")


def test_qemus_refusal_is_told_in_one_line(image: Image, tmp_path: Path) -> None:
    with new_peer() as on, pytest.raises(GuestError) as failed:
        GuestMachine(image, on, Logs(tmp_path), "no-such-accelerator").__enter__()
    check_one_line(failed, "the machine ended with 1; QEMU: ", "no-such-accelerator")


def test_bus_refuses_a_device_that_there_is_not(running: Running) -> None:
    with pytest.raises(GuestError, match="^QEMU refused device_add: .*no-such-device"):
        running.guest.bus.plug("no-such-device", "x")


_HOLDER = """
import sys, time
from pathlib import Path
from veyra_lab.guest.image import image_of
from veyra_lab.guest.kernel import debian_kernel
from veyra_lab.guest.machine import GuestMachine
from veyra_lab.guest.qemu import Logs
from veyra_lab.guest.tools import call
from veyra_lab.wire.peer import Peer
with Peer({}, lambda event: None, lambda event: None) as peer:
    with GuestMachine(image_of(debian_kernel()), peer, Logs(Path(sys.argv[1]))) as guest:
        print(guest.pid, flush=True)
        time.sleep(600)
"""


@pytest.mark.parametrize("number", [signal.SIGKILL, signal.SIGINT])
@pytest.mark.usefixtures("image")
def test_leaves_no_process_when_its_program_is_killed(tmp_path: Path, number: signal.Signals) -> None:
    environment = {**os.environ, "PYTHONPATH": str(CHECKOUT / "lab" / "cli")}
    with subprocess.Popen(
        [sys.executable, "-c", _HOLDER, str(tmp_path)], env=environment, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
        text=True,
    ) as holder:
        assert holder.stdout
        pid = int(holder.stdout.readline() or cannot_run(GuestError("the guest did not boot")))
        assert is_there(pid)
        holder.send_signal(number)
        holder.communicate(timeout=60)
    deadline = time.monotonic() + 10
    while is_there(pid) and time.monotonic() < deadline:
        time.sleep(0.05)
    assert not is_there(pid)
