"""Hosts that nobody here wrote: Debian's dfu-util and lsusb, on a Linux kernel's USB stack in the guest, with the
virtual camera on its bus. The tests share one boot."""

import os
import re
from collections.abc import Iterator
from typing import Any

import pytest
from guests import Running, booted, guest_image
from support import slow
from veyra_lab.bench.service.other_host import OtherHost
from veyra_lab.bench.service.transfers import BUSY_FIRST
from veyra_lab.guest.system import ProgramEnd

pytestmark = [slow, pytest.mark.xdist_group("foreign-hosts")]

_VERSION_OFFSET = 398


@pytest.fixture(scope="module")
def running() -> Iterator[Running]:
    with booted(guest_image(), "foreign-hosts") as the_guest:
        yield the_guest


def image(size: int) -> bytes:
    """Bytes that differ from block to block, with a version where the camera has it."""
    content = bytearray((place * 7 + (place >> 8) * 13 + 3) & 0xFF for place in range(size))
    content[_VERSION_OFFSET : _VERSION_OFFSET + 4] = bytes([0, 3, 10, 5])[: max(0, size - _VERSION_OFFSET)]
    return bytes(content[:size])


# dfu-util.


def check_download(end: ProgramEnd, *, answers_to_the_end: bool) -> None:
    """A device that needs a reset after its manifestation answers no more by then, as the standard has it; dfu-util
    says so and ends with EX_IOERR, the image written all the same."""
    assert "Download done." in end.output
    assert "dfuMANIFEST, status(0)" in end.output
    if answers_to_the_end:
        assert end.status == os.EX_OK, end.output
        assert "dfuIDLE, status(0)" in end.output.rpartition("dfuMANIFEST")[2]
    else:
        assert end.status == os.EX_IOERR, end.output
        assert "unable to read DFU status after completion" in end.output


def test_dfu_util_lists_the_camera_in_dfu_mode(running: Running) -> None:
    with running.camera() as camera, camera.in_dfu_mode() as kv400:
        listed = camera.dfu_util.run("--list")
        found = f'path="{kv400.path}", alt=0, name="UNKNOWN", serial="KV4000001"'
    assert listed.status == os.EX_OK
    assert re.findall(r"^Found (.*?): \[(.*?)\] .*, (path=.*)$", listed.output, re.MULTILINE) == [
        ("DFU", "2f1a:7e01", found)
    ]


def test_dfu_util_lists_a_running_camera_that_has_a_dfu_interface(running: Running) -> None:
    with running.camera(personality="strict") as camera, camera.plugged():
        assert "Found Runtime: [2f1a:7e00]" in camera.dfu_util.run("--list").output


def test_dfu_util_finds_no_dfu_interface_in_a_running_kv400(running: Running) -> None:
    with running.camera() as camera, camera.plugged():
        listed = camera.dfu_util.run("--list")
        downloaded = camera.dfu_util.download(image(5000))
    assert (listed.status, "Found" in listed.output) == (os.EX_OK, False)
    assert downloaded.status == os.EX_IOERR
    assert "No DFU capable USB device available" in downloaded.output


@pytest.mark.parametrize(
    ("size", "personality", "more"),
    [
        pytest.param(10 * 1024 + 17, "strict", {}, id="a strict camera"),
        pytest.param(10 * 1024 + 17, "lenient", {}, id="a lenient camera"),
        pytest.param(10 * 1024 + 17, "synchronous", {}, id="a synchronous camera"),
        pytest.param(8 * 1024, "synchronous", {}, id="whole blocks"),
        pytest.param(1, "synchronous", {}, id="a single byte"),
        pytest.param(5000, "strict", {"block_ms": 30}, id="a camera that takes its time"),
        pytest.param(5000, "synchronous", {"transfer_size": 64}, id="blocks of 64 bytes"),
    ],
)
def test_dfu_util_downloads_and_reads_back(
    running: Running, size: int, personality: str, more: dict[str, Any]
) -> None:
    with running.camera(personality=personality, **more) as camera:
        with camera.in_dfu_mode():
            assert len(camera.dfu_util.upload()) == 4096
            end = camera.dfu_util.download(image(size))
        check_download(end, answers_to_the_end=personality == "synchronous")
        with camera.in_dfu_mode():
            assert camera.dfu_util.upload() == image(size)
        assert camera.flash == image(size)


def test_dfu_util_downloads_to_the_kv400(running: Running) -> None:
    """Which starts its new firmware by itself, while dfu-util waits to ask it once more."""
    with running.camera() as camera, camera.in_dfu_mode() as kv400:
        check_download(camera.dfu_util.download(image(5000)), answers_to_the_end=False)
        assert kv400.settle() == "running"
        assert camera.flash == image(5000)


def test_dfu_util_resets_a_kv400_that_waits_into_its_new_firmware(running: Running) -> None:
    """The reset makes it another device, which libusb tells as LIBUSB_ERROR_NOT_FOUND; dfu-util takes that for success
    in its words, and for an error in its exit code."""
    with running.camera(reset_ms=10_000) as camera, camera.in_dfu_mode() as kv400:
        end = camera.dfu_util.download(image(5000))
        assert "dfuMANIFEST-WAIT-RESET, status(0)" in end.output
        assert "Resetting USB to switch back to runtime mode" in end.output
        assert "Done!" in end.output
        assert end.status == os.EX_IOERR
        assert kv400.settle() == "running"
        assert camera.flash == image(5000)


def test_dfu_util_resets_a_synchronous_camera_into_its_new_firmware(running: Running) -> None:
    """What libusb returns for the reset, less than 0, is what dfu-util ends with."""
    with running.camera(personality="synchronous") as camera, camera.in_dfu_mode() as kv400:
        end = camera.dfu_util.download(image(5000), "--reset")
        assert "Resetting USB to switch back to Run-Time mode" in end.output
        libusb_error_not_found = -5
        assert end.status == libusb_error_not_found & 0xFF
        assert kv400.settle() == "running"
        assert camera.flash == image(5000)


def test_dfu_util_updates_a_running_camera(running: Running) -> None:
    """The standard's whole road, from the running firmware to the new one, without the extension unit. In two steps:
    the guest has no udev, without which libusb learns of no device that comes while a program runs."""
    with running.camera(personality="synchronous") as camera, camera.plugged() as kv400:
        detached = camera.dfu_util.run("--detach")
        assert "appIDLE, status(0)" in detached.output
        assert "Device really in Run-Time Mode, send DFU detach request..." in detached.output
        assert detached.status == os.EX_OK, detached.output
        assert kv400.settle() == "dfu"
        assert "Done!" in camera.dfu_util.download(image(5000), "--reset").output
        assert kv400.settle() == "running"
        assert camera.flash == image(5000)


def test_dfu_utils_transfers_are_counted_at_the_camera(running: Running) -> None:
    """A GETSTATUS comes before the blocks, an empty DNLOAD with its GETSTATUS behind them."""
    host = OtherHost(running.guest, running.peer)
    ready = host.download(image(100 * 512), transfer_size=512, manifests_at_once=True)
    busy = host.download(image(100 * 512), transfer_size=512, **BUSY_FIRST)
    assert ready.transfers == 2 * 100 + 3
    assert busy.transfers == 3 * 100 + 3
    assert 0 < ready.seconds < 60


# lsusb.

_SPEEDS = ("full", "high", "super")
_COMPLAINT = re.compile(
    r"unrecogni[sz]ed|(?<!\[)unknown|undefined|invalid|illegal|incomplete|too (short|long|small)|can('t|not)|couldn't"
    r"|unable|warning|error|mismatch|junk|length is -|\?\?|\*\*|^lsusb",
    re.IGNORECASE,
)


class Listing:
    """What `lsusb -v` says of the camera, each line without the blanks before it and with one blank between its words.
    The guest has no data base of names: a newer one says so, and writes [unknown] in the place of each, and (null) in the
    place of a HID item's. The one main item without data ends a collection."""

    def __init__(self, running: Running) -> None:
        end = running.guest.system.run("lsusb", "-v", "-d", "2f1a:")
        assert end.status == 0, end.output
        lines = [" ".join(line.split()) for line in end.output.splitlines()]
        told = [line for line in lines if not re.fullmatch(r"unable to initialize usb \w+", line)]
        self.lines = [line.replace("(Main ): (null), data=none", "(Main ): End Collection, data=none") for line in told]

    @property
    def complaints(self) -> list[str]:
        """Lines that say that something is not as it should be, on either of its streams."""
        return [line for line in self.lines if _COMPLAINT.search(line)]

    def check(self, *told: str) -> None:
        """These lines are there, in this order."""
        rest = iter(self.lines)
        assert [line for line in told if not any(each == line or each.startswith(f"{line} ") for each in rest)] == []


@pytest.mark.parametrize("speed", _SPEEDS)
def test_lsusb_understands_the_running_camera(running: Running, speed: str) -> None:
    with running.camera(speed=speed) as camera, camera.plugged():
        listing = Listing(running)
    assert listing.complaints == []
    listing.check(
        "idVendor 0x2f1a", "idProduct 0x7e00", "iManufacturer 1 Veyra", "iProduct 2 KV400 camera",
        "iSerial 3 KV4000001", "bNumInterfaces 2", "Interface Association:", "bFunctionClass 14",
        "bInterfaceClass 14", "bInterfaceSubClass 1", "bDescriptorSubtype 1 (HEADER)", "bcdUVC 1.10",
        "wTerminalType 0x0201 Camera Sensor", "bDescriptorSubtype 5 (PROCESSING_UNIT)",
        "bDescriptorSubtype 6 (EXTENSION_UNIT)", "bUnitID 3",
        "guidExtensionCode {c9606ccb-594c-4d25-af47-ccc496435995}", "wTerminalType 0x0101 USB Streaming",
        "bInterfaceSubClass 2", "bDescriptorSubtype 6 (FORMAT_MJPEG)", "wWidth 1280", "wHeight 720",
        "bDescriptorSubtype 13 (COLORFORMAT)", "bAlternateSetting 1", "bEndpointAddress 0x81 EP 1 IN",
        "Transfer Type Isochronous",
    )  # fmt: skip


@pytest.mark.parametrize("speed", _SPEEDS)
def test_lsusb_understands_the_camera_in_dfu_mode(running: Running, speed: str) -> None:
    with running.camera(speed=speed) as camera, camera.in_dfu_mode():
        listing = Listing(running)
    assert listing.complaints == []
    listing.check(
        "idVendor 0x2f1a", "idProduct 0x7e01", "iProduct 2 KV400 boot loader", "bNumInterfaces 1",
        "bInterfaceClass 254", "bInterfaceSubClass 1", "bInterfaceProtocol 2",
        "Device Firmware Upgrade Interface Descriptor:", "bLength 9", "Will Not Detach", "Manifestation Intolerant",
        "Upload Supported", "Download Supported", "wDetachTimeout 1000 milliseconds", "wTransferSize 1024 bytes",
        "bcdDFUVersion 1.10",
        "Binary Object Store Descriptor:", "Platform Device Capability:",
        "PlatformCapabilityUUID {d8dd60df-4589-4cc7-9cd2-659d9e648a9f}",
    )  # fmt: skip


def test_lsusb_understands_a_running_camera_with_a_dfu_interface(running: Running) -> None:
    with running.camera(personality="synchronous") as camera, camera.plugged():
        listing = Listing(running)
    assert listing.complaints == []
    listing.check(
        "bNumInterfaces 3", "bFunctionClass 14", "bInterfaceNumber 2", "bInterfaceClass 254", "bInterfaceProtocol 1",
        "Device Firmware Upgrade Interface Descriptor:", "Manifestation Tolerant",
    )  # fmt: skip


def test_lsusb_understands_a_boot_loader_behind_a_hid_interface(running: Running) -> None:
    with running.camera(personality="behind-hid") as camera, camera.in_dfu_mode():
        listing = Listing(running)
    assert listing.complaints == []
    listing.check(
        "bNumInterfaces 2", "HID Device Descriptor:", "wDescriptorLength 21", "Report Descriptor: (length is 21)",
        "Item(Main ): End Collection, data=none", "Device Firmware Upgrade Interface Descriptor:",
    )  # fmt: skip


def test_lsusb_reads_the_speeds_from_the_binary_object_store(running: Running) -> None:
    with running.camera(speed="super") as camera, camera.plugged():
        Listing(running).check(
            "Binary Object Store Descriptor:", "USB 2.0 Extension Device Capability:",
            "SuperSpeed USB Device Capability:", "Device can operate at Full Speed (12Mbps)",
            "Device can operate at High Speed (480Mbps)", "Device can operate at SuperSpeed (5Gbps)",
        )  # fmt: skip


def test_lsusb_reads_the_qualifier_of_a_camera_that_has_another_speed(running: Running) -> None:
    for speed in ("full", "high"):
        with running.camera(speed=speed) as camera, camera.plugged():
            Listing(running).check("Device Qualifier (for other device speed):", "bLength 10")


@pytest.mark.parametrize(
    ("descriptors", "complaint"),
    [
        pytest.param("09 21 03 e8 03 00 04 10 01 03 55 00", "** UNRECOGNIZED: 03 55 00", id="one that nobody knows"),
        pytest.param("06 21 03 e8 03 00", "Warning: Descriptor too short", id="a functional one that is too short"),
    ],
)
def test_lsusb_complains_of_a_wrong_descriptor(running: Running, descriptors: str, complaint: str) -> None:
    """So that its silence means something."""
    interface = bytes.fromhex("09 04 00 00 00 fe 01 02 00") + bytes.fromhex(descriptors)
    head = bytes([9, 2, 9 + len(interface), 0, 1, 1, 0, 0x80, 50])
    with running.camera(configuration_descriptor=(head + interface).hex()) as camera, camera.in_dfu_mode():
        assert complaint in Listing(running).complaints
