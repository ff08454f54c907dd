"""Cameras over USB/IP: Debian's usbip attaches them in the guest, whose kernel drives them. The tests share one boot;
each has cameras of its own."""

import re
import socket
from collections.abc import Iterator
from contextlib import contextmanager

import pytest
from guests import cannot_run
from support import CHECKOUT, random_image, slow
from veyra_lab.guest import network
from veyra_lab.guest.accelerator import accelerator
from veyra_lab.guest.camera_server import CameraServer
from veyra_lab.guest.errors import GuestError, KernelRefusal
from veyra_lab.guest.image import image_of
from veyra_lab.guest.kernel import debian_kernel
from veyra_lab.guest.machine import GuestMachine
from veyra_lab.guest.programs import PROGRAMS
from veyra_lab.guest.qemu import PROGRAM, Logs
from veyra_lab.guest.tools import tool
from veyra_lab.wire.events import Event
from veyra_lab.wire.peer import Peer

pytestmark = [slow, pytest.mark.xdist_group("guest")]

_USBIP = "usbip"
_LOGS = Logs(CHECKOUT / "build" / "guest", _USBIP)
_VENDOR, _RUNNING, _DFU = "2f1a", "7e00", "7e01"
# The firmware's extension unit, its one control, and what that is told: a frame of this size.
_UNIT, _CONTROL, _FRAME_SIZE = 3, 1, 1024
_READ_INFORMATION, _ENTER_DFU_MODE = 0x10, 0x1E
_VERSION_IN_REPLY, _VERSION_IN_IMAGE = 16, 398
# Requests of the USB DFU 1.1 standard to interface 0.
_GET_STATUS = bytes.fromhex("a103 0000 0000 0600")
_DFU_IDLE, _DNLOAD_IDLE, _MANIFEST_WAIT_RESET = 2, 5, 8
# Of a camera that has stalled a request: errSTALLEDPKT, dfuERROR.
_STALLED = (15, 10)
_BLOCK = 1024


def frame(opcode: int, parameter: int = 0) -> bytes:
    """A command to the firmware: the length behind the first four bytes, a magic, opcode, four parameters, no data."""
    words = (opcode, parameter, 0, 0, 0)
    head = b"\x14\x00\xab\xcd" + b"".join(word.to_bytes(4, "little") for word in words)
    return head.ljust(_FRAME_SIZE, b"\0")


def free_port() -> int:
    with socket.create_server(("127.0.0.1", 0)) as listener:
        port: int = listener.getsockname()[1]
        return port


class Host:
    """The guest as a USB/IP host of the cameras of one server."""

    def __init__(self, guest: GuestMachine, peer: Peer, cameras: CameraServer, port: int) -> None:
        self._guest = guest
        self._peer = peer
        self._port = port
        self.usb = guest.usb
        self.cameras = cameras

    def usbip(self, *words: str) -> tuple[int, str]:
        """Debian's program: its exit status, and what it says."""
        end = self._guest.system.run("usbip", "--tcp-port", str(self._port), *words)
        return end.status, end.output

    def listed(self) -> list[str]:
        """The ids that the server offers, each with the camera's."""
        status, said = self.usbip("list", "--remote", network.HOST)
        assert status == 0, said
        return [" ".join(each) for each in re.findall(r"^ +(\d+-\d+): .*\((.*)\)$", said, re.MULTILINE)]

    def attach(self, product: str, bus_id: str = "1-1") -> str:
        """Attaches a camera, and waits until the kernel has met it; its path in the guest."""
        since = self._peer.mark()
        status, said = self.usbip("attach", "--remote", network.HOST, "--busid", bus_id)
        assert status == 0, said
        return self.usb.wait_for("ready", _VENDOR, product, since)

    def version(self, device: str) -> tuple[int, ...]:
        """The firmware's version, which the UVC driver reads through the extension unit."""
        self.usb.write_unit(device, _UNIT, _CONTROL, frame(_READ_INFORMATION))
        reply = self.usb.read_unit(device, _UNIT, _CONTROL, "GET_CUR", _FRAME_SIZE)
        assert reply[:4] == _READ_INFORMATION.to_bytes(4, "little")
        return tuple(reversed(reply[_VERSION_IN_REPLY : _VERSION_IN_REPLY + 4]))

    def enter_dfu_mode(self, device: str) -> str:
        """Sends a camera into DFU mode, and attaches what comes back; its path."""
        since = self._peer.mark()
        self.usb.write_unit(device, _UNIT, _CONTROL, frame(_ENTER_DFU_MODE, 1))
        self.usb.wait_for("removal", _VENDOR, _RUNNING, since)
        self._peer.follow(
            lambda event: event["event"] == "camera" and event["change"] == "dfu", "DFU mode", since=since, quiet=20
        )
        return self.attach(_DFU)

    def status(self, device: str) -> tuple[int, int]:
        """GETSTATUS: the status and the state."""
        told = self.usb.control(device, _GET_STATUS)
        return told[0], told[4]

    def send_block(self, device: str, number: int, data: bytes) -> None:
        """DNLOAD."""
        setup = b"\x21\x01" + number.to_bytes(2, "little") + b"\0\0" + len(data).to_bytes(2, "little")
        self.usb.control(device, setup, data)


@pytest.fixture(scope="module")
def booted() -> Iterator[tuple[GuestMachine, Peer]]:
    with Peer({}, lambda event: None, lambda event: None) as peer:
        try:
            tool(PROGRAM)
            image = image_of(debian_kernel(), programs=(*PROGRAMS, *network.PROGRAMS, _USBIP))
            guest = GuestMachine(image, peer, _LOGS, accelerator(image), network=True).__enter__()
        except GuestError as error:
            cannot_run(error)
        try:
            network.set_up(guest.system)
            guest.system.load("usbip")
            yield guest, peer
        finally:
            guest.__exit__(None, None, None)


@contextmanager
def host_of(booted: tuple[GuestMachine, Peer], *cameras: Event) -> Iterator[Host]:
    """A server with these cameras, all plugged in."""
    guest, peer = booted
    port = free_port()
    with CameraServer(_USBIP, peer, cameras, [f"tcp:127.0.0.1:{port}"]) as server:
        for camera in range(len(cameras)):
            server.plug(camera)
        yield Host(guest, peer, server, port)


def test_camera_is_listed_until_it_is_attached(booted: tuple[GuestMachine, Peer]) -> None:
    with host_of(booted, {}, {}) as host:
        assert host.listed() == ["1-1 2f1a:7e00", "1-2 2f1a:7e00"]
        host.attach(_RUNNING, "1-2")
        assert host.listed() == ["1-1 2f1a:7e00"]
        status, said = host.usbip("attach", "--remote", network.HOST, "--busid", "1-2")
        assert (status, "Attach Request for 1-2 failed" in said) == (1, True), said


def test_uvc_driver_takes_the_camera(booted: tuple[GuestMachine, Peer]) -> None:
    with host_of(booted, {"version": "5.10.2.7"}) as host:
        path = host.attach(_RUNNING)
        device = next(each for each in host.usb.devices() if each.path == path)
        assert (device.product_text, device.serial_text, device.speed) == ("KV400 camera", "KV4000001", "480")
        assert [each.driver for each in device.interfaces] == ["uvcvideo", "uvcvideo"]
        assert device.video_node == "video0"
        assert host.version(path) == (5, 10, 2, 7)
        assert host.cameras.state(0)["mode"] == "running"


@pytest.mark.parametrize(("speed", "megabits"), [("full", "12"), ("high", "480"), ("super", "5000")])
def test_camera_has_its_speed(booted: tuple[GuestMachine, Peer], speed: str, megabits: str) -> None:
    with host_of(booted, {"speed": speed}) as host:
        path = host.attach(_RUNNING)
        assert [each.speed for each in host.usb.devices() if each.path == path] == [megabits]
        assert host.version(path) == (5, 10, 2, 0)


def test_image_is_downloaded_and_runs(booted: tuple[GuestMachine, Peer]) -> None:
    image = bytearray(random_image(5001))
    image[_VERSION_IN_IMAGE : _VERSION_IN_IMAGE + 4] = bytes((9, 8, 7, 6))
    guest, peer = booted
    mark = guest.system.kernel_mark()
    with host_of(booted, {}) as host:
        path = host.enter_dfu_mode(host.attach(_RUNNING))
        host.usb.claim(path, 0)
        assert host.status(path) == (0, _DFU_IDLE)
        blocks = [bytes(image[at : at + _BLOCK]) for at in range(0, len(image), _BLOCK)]
        for number, block in enumerate(blocks):
            host.send_block(path, number, block)
            assert host.status(path) == (0, _DNLOAD_IDLE)
        since = peer.mark()
        host.send_block(path, len(blocks), b"")
        while host.status(path)[1] != _MANIFEST_WAIT_RESET:
            pass
        host.usb.wait_for("removal", _VENDOR, _DFU, since)
        assert host.cameras.flash(0)[: len(image)] == image
        peer.follow(
            lambda event: event["event"] == "camera" and event["change"] == "running", "the restart", since=since,
            quiet=20,
        )
        assert host.version(host.attach(_RUNNING)) == (6, 7, 8, 9)
    assert guest.kernel_complaints(mark) == []


def test_faults_are_linuxs_errors(booted: tuple[GuestMachine, Peer]) -> None:
    faults = [
        {"where": "GETSTATUS", "what": "stall"},
        {"where": "GETSTATUS", "what": "timeout", "skip": 1},
        {"where": "GETSTATUS", "what": "unplug", "skip": 3},
    ]
    with host_of(booted, {"faults": faults}) as host:
        path = host.enter_dfu_mode(host.attach(_RUNNING))
        host.usb.claim(path, 0)
        for errno in ("EPIPE", "ETIMEDOUT"):
            with pytest.raises(KernelRefusal) as failed:
                host.usb.control(path, _GET_STATUS, limit=0.5)
            assert failed.value.errno == errno
        assert host.status(path) == _STALLED
        with pytest.raises(KernelRefusal) as gone:
            host.status(path)
        assert gone.value.errno in ("ESHUTDOWN", "ENODEV", "EPROTO")


def test_unplugged_camera_is_gone_and_attached_anew(booted: tuple[GuestMachine, Peer]) -> None:
    _, peer = booted
    with host_of(booted, {}) as host:
        host.attach(_RUNNING)
        since = peer.mark()
        host.cameras.unplug(0)
        host.usb.wait_for("removal", _VENDOR, _RUNNING, since)
        assert host.listed() == []
        host.cameras.plug(0)
        assert host.version(host.attach(_RUNNING)) == (5, 10, 2, 0)


def test_detached_camera_can_be_attached_again(booted: tuple[GuestMachine, Peer]) -> None:
    _, peer = booted
    with host_of(booted, {}) as host:
        for _ in range(3):
            host.attach(_RUNNING)
            since = peer.mark()
            status, said = host.usbip("detach", "--port", "0")
            assert status == 0, said
            host.usb.wait_for("removal", _VENDOR, _RUNNING, since)
            assert host.listed() == ["1-1 2f1a:7e00"]


def test_server_that_ends_takes_its_cameras_with_it(booted: tuple[GuestMachine, Peer]) -> None:
    _, peer = booted
    with host_of(booted, {}) as host:
        host.attach(_RUNNING)
        since = peer.mark()
    host.usb.wait_for("removal", _VENDOR, _RUNNING, since)
