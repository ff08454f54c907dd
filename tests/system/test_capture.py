"""USB captures: what is written from a transcript, and the camera that is made of one."""

import json
import random
import re
import struct
import subprocess
import time
from collections.abc import Sequence
from pathlib import Path

import pytest
from support import CHECKOUT, Run, check_refusal
from transcripts import DONE, Written, sending
from veyra_lab.__main__ import main as lab
from veyra_lab.capture.boot_loader import Settings
from veyra_lab.capture.camera import service_pattern, write_camera
from veyra_lab.capture.errors import CaptureError
from veyra_lab.capture.inference import infer
from veyra_lab.capture.input import FoundCamera, camera_of
from veyra_lab.capture.output import capture_of, trial_events
from veyra_lab.capture.pcapng import Packet, write
from veyra_lab.capture.pins import pin
from veyra_lab.capture.reading import read_capture
from veyra_lab.capture.stays import stays_of
from veyra_lab.capture.transfer import End, Transfer
from veyra_lab.capture.usbpcap import packets_of
from veyra_lab.scenarios.files import read_scenario
from veyra_lab.windows.image import with_version

# The image in captures/dfu-util.pcapng.
RANDOM_IMAGE = with_version(random.Random(14).randbytes(1300), "5.10.3.0")
OF_DFU_UTIL = CHECKOUT / "tests" / "system" / "captures" / "dfu-util.pcapng"
_DEVICE = bytes.fromhex("12 01 01 02 00 00 00 40 1a 2f 01 7e 00 01 00 00 00 01")
_CONFIGURATION = bytes.fromhex("09 02 1b 00 01 01 00 80 32 09 04 00 00 00 fe 01 02 00 09 21 03 e8 03 00 04 10 01")
_SPEAKS_DFU = "usb.product==0x2f1a7e01,usbdfu"


def sent(written: Written) -> Written:
    """The same with what the host has sent, as a rig tells it."""
    for event in written.events:
        if event["event"] == "transfer" and event["setup"].startswith("21"):
            event["sent"] = bytes(event["length"]).hex()
    return written


def good(blocks: int = 4) -> Written:
    """A whole update, at whose end the camera leaves the bus."""
    end = sending(blocks, blocks).end_of_image(blocks).status("00c800000700").status(DONE, after=0.2).status(error=31)
    return end.camera("left", "5.10.3.0").close().come_back()


def captured(written: Written, path: Path) -> Path:
    """The capture of a transcript, as a file."""
    path.write_bytes(capture_of(sent(written).read().events))
    return path


def tshark(path: Path, *arguments: str) -> list[list[str]]:
    """What it says of the file: a line's fields for each packet."""
    done = subprocess.run(
        ["tshark", "-r", str(path), *arguments], capture_output=True, encoding="utf-8", check=True, timeout=120
    )
    return [line.split("\t") for line in done.stdout.splitlines()]


def is_newer_wireshark() -> bool:
    """4.4, not 4.0. Its DFU dissector wants no data in the closing DNLOAD any more, and a state in each answer: it calls
    one that was cut short or never came malformed."""
    said = subprocess.run(["tshark", "--version"], capture_output=True, encoding="utf-8", check=True, timeout=120).stdout
    major, minor = re.findall(r"TShark \(Wireshark\) (\d+)\.(\d+)", said)[0]
    return (int(major), int(minor)) >= (4, 4)


def check_camera_of_dfu_util(path: Path, times: int = 1) -> FoundCamera:
    """What has to be read from a capture of dfu-util on a real bus, downloading RANDOM_IMAGE in blocks of 512 bytes to a
    camera that needs 40 ms for one and 200 ms for all, on a machine that is up to so many times slower than it should be."""
    found = camera_of(read_capture(path))
    settings = found.settings
    assert found.image == RANDOM_IMAGE
    assert found.stay.identity == "2f1a:7e01"
    assert settings.transfer_size == 512
    assert 38 / times <= settings.block_ms <= 41 * times
    assert 195 / times <= settings.manifest_ms <= 205 * times
    assert not any("it may differ" in line for line in found.words), found.words
    return found


# Out.


def test_each_transfer_is_a_submission_and_a_completion(tmp_path: Path) -> None:
    path = captured(good(), tmp_path / "good.pcapng")
    transfers = [transfer for transfer in read_capture(path).transfers if transfer.is_dfu]
    told = [event for event in good().events if event["event"] == "transfer"]
    assert [transfer.setup.hex(" ") for transfer in transfers] == [event["setup"] for event in told]
    assert [transfer.end is End.OK for transfer in transfers] == [event["ok"] for event in told]
    assert [transfer.data.hex() for transfer in transfers if transfer.is_to_host] == [
        event["data"] for event in told if event["setup"].startswith("a1")
    ]
    assert transfers[-1].end is End.GONE
    assert all(transfer.began < transfer.ended for transfer in transfers)


def test_the_same_transcript_gives_the_same_bytes() -> None:
    assert capture_of(sent(good()).read().events) == capture_of(sent(good()).read().events)


def test_wireshark_reads_it_without_a_malformed_packet(tmp_path: Path) -> None:
    path = captured(good(), tmp_path / "good.pcapng")
    assert tshark(path, "-Y", "_ws.malformed") == []
    numbers = [fields[0] for fields in tshark(path, "-T", "fields", "-e", "usb.device_address", "-e", "frame.number")]
    assert set(numbers) == {"2"}


def test_wireshark_knows_the_requests_by_name(tmp_path: Path) -> None:
    """But for the closing DNLOAD, which an older one calls malformed, everything is read."""
    path = captured(good(), tmp_path / "good.pcapng")
    fields = ("-d", _SPEAKS_DFU, "-T", "fields", "-e", "usbdfu.command", "-e", "usbdfu.state", "-e", "usbdfu.length")
    told = [line for line in tshark(path, *fields, "-e", "_ws.malformed")[8:] if line[0]]
    expected = [event for event in good().events if event["event"] == "transfer"]
    assert [line[0] for line in told] == [str(int(event["setup"][3:5], 16)) for event in expected]
    assert [(line[0], line[2]) for line in told if line[3]] == ([] if is_newer_wireshark() else [("1", "0")])
    states = tshark(path, "-d", _SPEAKS_DFU, "-Y", "usbdfu.state", "-T", "fields", "-e", "usbdfu.state")
    assert [line[0] for line in states] == ["2", "2", "5", "5", "5", "5", "7", "8"]


def test_wireshark_reads_the_descriptors(tmp_path: Path) -> None:
    path = captured(good(), tmp_path / "good.pcapng")
    fields = ("usb.idVendor", "usb.idProduct", "usb.bInterfaceClass", "usbdfu.descriptor.wTransferSize")
    lines = tshark(path, "-T", "fields", *(word for field in fields for word in ("-e", field)))
    seen = [{line[column] for line in lines if line[column]} for column in range(len(fields))]
    assert seen[0] == {"0x2f1a"}
    assert seen[1] == {"0x7e01"}
    assert "0xfe" in seen[2]
    assert seen[3] == {"1024"}


@pytest.mark.parametrize(("error", "end"), [(31, End.STALL), (121, End.TIMEOUT), (433, End.GONE), (5, End.BROKEN)])
def test_failures_keep_their_kind(tmp_path: Path, error: int, end: End) -> None:
    path = captured(sending(1, 4).block(1, error=error).close(), tmp_path / "failed.pcapng")
    assert read_capture(path).transfers[-1].end is end


def test_a_stall_is_none_when_the_camera_has_left(tmp_path: Path) -> None:
    path = captured(sending(1, 4).block(1, error=31).camera("unplugged").close(), tmp_path / "failed.pcapng")
    assert read_capture(path).transfers[-1].end is End.GONE


def test_skipped_waits_pass_in_the_capture(tmp_path: Path) -> None:
    path = captured(sending(1, 4).rig("wait", ms=200).status(), tmp_path / "waited.pcapng")
    before, after = read_capture(path).transfers[-2:]
    assert 200_000 < after.began - before.ended < 230_000


def test_each_stay_on_the_bus_has_an_address_of_its_own(tmp_path: Path) -> None:
    path = captured(good().and_later(good()), tmp_path / "two.pcapng")
    assert {transfer.device for transfer in read_capture(path).transfers} == {2, 3}


def test_trials_have_no_times_and_are_written_all_the_same(tmp_path: Path) -> None:
    trial = (
        '{"event":"trial","id":"kv400.402x1"}\n'
        '{"event":"transfer","setup":"a1 05 00 00 00 00 01 00","length":1,"transferred":1,"ok":true,"error":0,"data":"02"}\n'
        '{"event":"transfer","setup":"a1 03 00 00 00 00 06 00","length":6,"transferred":0,"ok":false,"error":121,"ms":5000}\n'
    )
    path = tmp_path / "trial.pcapng"
    path.write_bytes(capture_of(trial_events(trial, "trial")))
    *_, state, status = read_capture(path).transfers
    assert (state.data, status.end, status.ended - status.began) == (b"\x02", End.TIMEOUT, 5_000_000)
    assert [fields[0] for fields in tshark(path, "-T", "fields", "-e", "frame.comment") if fields[0]]


def test_times_that_cannot_be_are_times_all_the_same(tmp_path: Path) -> None:
    written = sending(1, 4).rig("wait", ms=1 << 62).status(after=1e9)
    written.events[-1]["ms"] = 1 << 62
    path = captured(written, tmp_path / "late.pcapng")
    times = [time for each in read_capture(path).transfers for time in (each.began, each.ended)]
    assert times == sorted(times)


def test_refuses_a_transcript_that_does_not_have_the_data() -> None:
    with pytest.raises(CaptureError, match="does not have all that crossed the bus"):
        capture_of(good().read().events)


# In.


def recorded(*answers: tuple[str, End, str], configuration: bytes = _CONFIGURATION) -> list[Transfer]:
    """An enumeration, and requests with what became of them, 3 ms apart: a setup packet and what came, or, of a block, what
    was sent."""
    setups = [
        ("80 06 00 01 00 00 12 00", End.OK, _DEVICE.hex()),
        (f"80 06 00 02 00 00 {len(configuration):02x} 00", End.OK, configuration.hex()),
        ("00 09 01 00 00 00 00 00", End.OK, ""),
        *answers,
    ]
    return [
        Transfer(1, 5, 3_000 * place, bytes.fromhex(setup), bytes.fromhex(data), len(bytes.fromhex(data)), end,
                 3_000 * place + 100)
        for place, (setup, end, data) in enumerate(setups)
    ]  # fmt: skip


def file_of(transfers: Sequence[Transfer], path: Path) -> Path:
    packets = [packet for number, each in enumerate(transfers) for packet in packets_of(number, each)]
    path.write_bytes(write(249, [], packets))
    return path


_STATE = ("a1 05 00 00 00 00 01 00", End.OK, "02")
_BLOCK = ("21 01 00 00 00 00 04 00", End.OK, "00010203")
_READY = ("a1 03 00 00 00 00 06 00", End.OK, "000000000500")


def made(tmp_path: Path, *answers: tuple[str, End, str]) -> FoundCamera:
    return camera_of(read_capture(file_of(recorded(*answers), tmp_path / "made.pcapng")))


def test_a_camera_of_a_kv400_is_a_kv400(tmp_path: Path) -> None:
    found = camera_of(read_capture(captured(good(), tmp_path / "good.pcapng")))
    assert found.image == bytes(4096)
    assert (found.settings.traits, found.faults) == ({}, [])
    # The transcript was written by hand: this is no status block.
    assert found.words == [
        "device 1.2 (2f1a:7e01): 16 requests, 4,096 bytes downloaded in 4 blocks",
        "request 4, UPLOAD: what it uploaded; the camera has a content of its own",
    ]


def status(state: int, poll: int = 0, code: int = 0) -> tuple[str, End, str]:
    return ("a1 03 00 00 00 00 06 00", End.OK, (bytes([code]) + poll.to_bytes(3, "little") + bytes([state, 0])).hex())


_CLOSING = ("21 01 01 00 00 00 00 00", End.OK, "")


@pytest.mark.parametrize(
    ("answers", "traits", "times"),
    [
        pytest.param([_BLOCK, status(4, 5), _READY], {}, {"block_ms": 5}, id="takes the time that it tells"),
        pytest.param([_BLOCK, status(4), _READY], {"busy_first": True}, {}, id="is busy first"),
        pytest.param(
            [_BLOCK, status(4), status(4), _READY], {"hides_write_time": True}, {"block_ms": 7}, id="hides its time"
        ),
        pytest.param(
            [_BLOCK, _READY, _CLOSING, status(7, 5), status(7, 2), status(2)],
            {"manifestation": "tolerant"}, {"manifest_ms": 5}, id="tolerant",
        ),
        pytest.param(
            [_BLOCK, _READY, _CLOSING, status(8), status(8)],
            {"manifestation": "waits for reset"}, {"manifests_at_once": True}, id="waits for a reset",
        ),
        pytest.param(
            [("21 00 e8 03 00 00 00 00", End.STALL, ""), ("a1 05 00 00 00 00 01 00", End.OK, "0a")],
            {"detach": "stalls"}, {}, id="refuses DETACH",
        ),
        pytest.param(
            [("21 00 e8 03 00 00 00 00", End.STALL, ""), _STATE],
            {"detach": "stalls", "stalls_in_place": True}, {}, id="refuses DETACH in place",
        ),
        pytest.param(
            [("21 00 e8 03 00 00 00 00", End.OK, ""), ("a1 05 00 00 00 00 01 00", End.GONE, "")],
            {"detach": "restarts"}, {}, id="restarts at DETACH",
        ),
        pytest.param(
            [_STATE, ("a1 02 00 00 00 00 44 00", End.OK, "00" * 68), ("a1 05 00 00 00 00 01 00", End.OK, "09")],
            {"upload": "flash"}, {}, id="uploads its flash",
        ),
        pytest.param([("01 0b 00 00 00 00 00 00", End.STALL, ""), _STATE], {"set_interface": "stalls"}, {}, id="setting"),
    ],
)  # fmt: skip
def test_traits_are_told_by_answers(
    tmp_path: Path, answers: list[tuple[str, End, str]], traits: dict[str, object], times: dict[str, int]
) -> None:
    found = made(tmp_path, *answers)
    assert found.settings.traits == traits
    assert {name: getattr(found.settings, name) for name in times} == times
    assert found.faults == []


@pytest.mark.parametrize(
    ("answers", "faults"),
    [
        pytest.param(
            [_BLOCK, status(10, code=3)],
            [
                {"where": "GETSTATUS", "what": "status", "value": 3, "skip": 0},
                {"where": "GETSTATUS", "what": "state", "value": 10, "skip": 0},
            ],
            id="an error of its own",
        ),
        pytest.param(
            [_BLOCK, _READY, _BLOCK, status(4, 700), _READY],
            [
                {"where": "GETSTATUS", "what": "poll", "value": 700, "skip": 1},
                {"where": "GETSTATUS", "what": "state", "value": 4, "skip": 1},
            ],
            id="busy after one block of two",
        ),
        pytest.param(
            [_STATE, ("a1 05 00 00 00 00 01 00", End.TIMEOUT, ""), ("a1 05 00 00 00 00 01 00", End.TIMEOUT, "")],
            [{"where": "GETSTATE", "what": "timeout", "skip": 1, "count": 2}],
            id="silence",
        ),
        pytest.param(
            [("21 01 00 00 00 00 04 00", End.TIMEOUT, "00010203"), _READY],
            [{"where": "DNLOAD", "what": "timeout", "moment": "after", "skip": 0}],
            id="a lost answer",
        ),
        pytest.param(
            [("21 01 00 00 00 00 04 00", End.STALL, "00010203"), status(10, code=15)],
            [{"where": "DNLOAD", "what": "stall", "skip": 0}],
            id="a refused block",
        ),
        pytest.param(
            [_BLOCK, ("a1 03 00 00 00 00 06 00", End.OK, "0000")],
            [{"where": "GETSTATUS", "what": "short", "value": 2, "skip": 0}],
            id="a short answer",
        ),
        pytest.param(
            [_BLOCK, ("a1 03 00 00 00 00 06 00", End.GONE, "")],
            [{"where": "GETSTATUS", "what": "unplug", "skip": 0}],
            id="pulled",
        ),
        pytest.param(
            [("80 06 00 02 00 00 1b 00", End.OK, _CONFIGURATION[:9].hex()), _STATE],
            [{"where": "GET-DESCRIPTOR", "what": "short", "value": 9, "skip": 0}],
            id="a short descriptor",
        ),
    ],
)
def test_what_no_trait_explains_is_a_fault(
    tmp_path: Path, answers: list[tuple[str, End, str]], faults: list[dict[str, object]]
) -> None:
    assert made(tmp_path, *answers).faults == faults


@pytest.mark.parametrize(
    ("answers", "words"),
    [
        ([_BLOCK, ("a1 03 00 00 00 00 06 00", End.OK, "000000000507")], "request 2, GETSTATUS: a status text, 7"),
        ([("21 04 00 00 00 00 00 00", End.OK, "")], "request 1, CLRSTATUS: ok; the camera: a stall, and it may differ"),
        ([("a1 02 00 00 00 00 44 00", End.OK, "ff" * 68), _STATE], "request 1, UPLOAD: what it uploaded"),
        ([("21 01 00 00 00 00 04 00", End.BROKEN, "00010203"), _STATE], "request 1, DNLOAD: a broken bus"),
        ([_STATE], "not in the capture: DETACH in DFU mode; it is accepted, as by a KV400"),
        ([_STATE], "not in the capture: how long a block takes to write; it takes no time"),
        ([_STATE], "what was downloaded has no place for a version: the scenario downloads an image of its own"),
    ],
)
def test_what_cannot_be_expressed_is_said(tmp_path: Path, answers: list[tuple[str, End, str]], words: str) -> None:
    assert [line for line in made(tmp_path, *answers).words if line.startswith(words)]


def test_a_block_that_is_sent_again_is_there_once(tmp_path: Path) -> None:
    stalled = ("21 01 00 00 00 00 04 00", End.STALL, "00010203")
    assert made(tmp_path, stalled, _BLOCK, _READY).image == bytes([0, 1, 2, 3])


def test_the_device_that_took_most_is_the_camera_unless_another_is_named(tmp_path: Path) -> None:
    path = captured(good(2).and_later(good(4)), tmp_path / "two.pcapng")
    assert camera_of(read_capture(path)).stay.name == "1.3"
    assert camera_of(read_capture(path), "1.2").stay.name == "1.2"
    with pytest.raises(CaptureError, match="no device 1.9 was in DFU mode; there is 1.2, 1.3"):
        camera_of(read_capture(path), "1.9")


def test_the_scenario_has_the_image_beside_it(tmp_path: Path) -> None:
    found = check_camera_of_dfu_util(OF_DFU_UTIL)
    for path, content in write_camera(found, "dfu-util.pcapng", tmp_path / "theirs.json").items():
        path.write_bytes(content)
    (scenario,) = read_scenario(tmp_path / "theirs.json")
    assert scenario.stage.image.content == RANDOM_IMAGE
    assert scenario.stage.cameras[0]["transfer_size"] == 512


def test_a_service_is_expected_to_send_what_it_sent(tmp_path: Path) -> None:
    transfers = read_capture(captured(good(), tmp_path / "good.pcapng")).transfers
    pattern = "GETSTATE DETACH GETSTATE UPLOAD (DNLOAD GETSTATUS)x4 EMPTY GETSTATUSx2 GETSTATUS!"
    assert service_pattern(transfers) == pattern
    assert service_pattern([each for each in transfers if each.name != "DETACH"]) == ""


def usbmon(transfers: Sequence[Transfer], size: int) -> list[Packet]:
    """The same as usbmon tells it, with a header of 48 or 64 bytes."""
    statuses = {End.OK: 0, End.STALL: -32, End.TIMEOUT: -2, End.GONE: -108}
    packets = []
    for number, each in enumerate(transfers):
        for what, at, code, data, length in (
            ("S", each.began, -115, b"" if each.is_to_host else each.data, each.asked),
            ("C", each.ended, statuses[each.end], each.data if each.is_to_host else b"", each.length),
        ):
            endpoint = 0x80 if each.is_to_host else 0
            no_setup = 0 if what == "S" else ord("-")
            head = struct.pack("<QBBBBHBB", number, ord(what), 2, endpoint, each.device, each.bus, no_setup, 0)
            head += struct.pack("<qiiII", 0, 0, code, length, len(data)) + (each.setup if what == "S" else bytes(8))
            packets.append(Packet(220 if size == 64 else 189, at, head.ljust(size, b"\0") + data, size + len(data)))
    return packets


@pytest.mark.parametrize("size", [48, 64])
def test_usbmon_tells_the_same(tmp_path: Path, size: int) -> None:
    transfers = recorded(_STATE, _BLOCK, _READY, ("a1 05 00 00 00 00 01 00", End.STALL, ""),
                         ("a1 05 00 00 00 00 01 00", End.TIMEOUT, ""), ("a1 05 00 00 00 00 01 00", End.GONE, ""))  # fmt: skip
    packets = usbmon(transfers, size)
    path = tmp_path / "usbmon.pcapng"
    path.write_bytes(write(packets[0].link, [], packets))
    assert read_capture(path).transfers == transfers
    of_an_answer = " && usb.urb_status == 0" if is_newer_wireshark() else ""
    assert tshark(path, "-Y", f"_ws.malformed{of_an_answer}") == []


def test_older_drivers_put_data_into_packets_of_their_own(tmp_path: Path) -> None:
    """Setup packet, data and status: each is told by itself."""
    transfers = recorded(_STATE, _BLOCK, _READY)
    packets = []
    for number, each in enumerate(transfers):
        endpoint = 0x80 if each.is_to_host else 0
        stages = [(0, 0, each.began, each.setup), (1, endpoint >> 7, each.began, each.data), (2, 1, each.ended, b"")]
        for stage, is_completion, at, data in stages:
            head = struct.pack("<HQIHBHHBBIB", 28, number, 0, 8, is_completion, each.bus, each.device, endpoint, 2,
                               len(data), stage)  # fmt: skip
            packets.append(Packet(249, at, head + data, len(head + data)))
    path = tmp_path / "older.pcapng"
    path.write_bytes(write(249, [], packets))
    assert read_capture(path).transfers == transfers
    assert tshark(path, "-Y", "_ws.malformed") == []


def big_endian(content: bytes) -> bytes:
    """The same file with the blocks' fields in the other byte order, and without options."""
    blocks = []
    place = 0
    while place < len(content):
        kind, length = struct.unpack_from("<II", content, place)
        body = content[place + 8 : place + length - 4]
        if kind == 6:
            _, high, low, kept, whole = fields = struct.unpack_from("<IIIII", body)
            body = struct.pack(">IIIII", *fields) + body[20 : 20 + kept + -kept % 4]
        elif kind == 1:
            body = struct.pack(">HHI", *struct.unpack_from("<HHI", body))
        else:
            body = struct.pack(">IHHq", 0x1A2B3C4D, 1, 0, -1)
        size = len(body) + 12
        blocks.append(struct.pack(">II", kind, size) + body + struct.pack(">I", size))
        place += length
    return b"".join(blocks)


def test_both_byte_orders_are_read(tmp_path: Path) -> None:
    transfers = recorded(_STATE, _BLOCK, _READY)
    path = file_of(transfers, tmp_path / "little.pcapng")
    other = tmp_path / "big.pcapng"
    other.write_bytes(big_endian(path.read_bytes()))
    assert read_capture(other).transfers == read_capture(path).transfers == transfers


def test_a_file_that_ends_too_early_is_read_as_far_as_it_goes(tmp_path: Path) -> None:
    path = file_of(recorded(_STATE, _BLOCK, _READY), tmp_path / "cut.pcapng")
    path.write_bytes(path.read_bytes()[:-10])
    read = read_capture(path)
    assert read.words == ["the file ends in the middle of a block: what was behind it is missing"]
    assert read.transfers[-1].end is End.UNKNOWN


def test_what_is_not_kept_of_a_packet_is_missed(tmp_path: Path) -> None:
    path = tmp_path / "cut-off.pcapng"
    packets = [packet for number, each in enumerate(recorded(_BLOCK, _READY)) for packet in packets_of(number, each)]
    path.write_bytes(write(249, [], [Packet(each.link, each.at, each.data[:37], each.length) for each in packets]))
    found = camera_of(read_capture(path))
    assert found.words[-1] == "the capture does not have all of the image: what is missing is left out of it"


_SEED = 14


@pytest.mark.parametrize("origin", ["ours", "theirs"])
def test_nothing_in_a_file_is_believed(tmp_path: Path, origin: str) -> None:
    """Cut off at every length or so, and with bytes changed: it is read, or refused in a line."""
    chance = random.Random(_SEED)
    whole = OF_DFU_UTIL.read_bytes() if origin == "theirs" else captured(good(), tmp_path / "good.pcapng").read_bytes()
    path = tmp_path / "hostile.pcapng"
    target = tmp_path / "hostile.json"
    for round_number in range(400):
        content = bytearray(whole)
        if round_number % 4 == 0:
            del content[chance.randrange(len(content)) :]
        for _ in range(chance.choice((1, 2, 8, 64))):
            if content:
                content[chance.randrange(len(content))] = chance.choice((0, 1, 0x7F, 0x80, 0xFF, chance.randrange(256)))
        path.write_bytes(content)
        try:
            files = write_camera(camera_of(read_capture(path)), path.name, target)
        except CaptureError as error:
            assert "\n" not in str(error)
            continue
        assert json.loads(files[target])


def test_a_storm_of_requests_is_read_in_time(tmp_path: Path) -> None:
    transfers = recorded(*[_BLOCK, _READY, ("00 09 01 00 00 00 00 00", End.OK, "")] * 3000)
    camera_of(read_capture(file_of(transfers, tmp_path / "storm.pcapng")))
    storm = recorded(*[_BLOCK, ("a1 03 00 00 00 00 06 00", End.BROKEN, "")] * 5000)
    assert pin(stays_of(storm)[0].requests, Settings()).words


def test_a_storm_of_looks_behind_an_image_is_read_in_time() -> None:
    """Each look costs the same: ten times as many may take thirty times as long, and not a hundred times."""

    def seconds(looks: int) -> float:
        (stay,) = stays_of(recorded(_BLOCK, _READY, _CLOSING, *[status(7, 5)] * looks, status(2)))
        began = time.process_time()
        assert infer(stay).settings.traits["manifestation"] == "tolerant"
        return time.process_time() - began

    few = min(seconds(1000) for _ in range(3))
    assert seconds(10_000) < 30 * few


@pytest.mark.parametrize(
    ("answers", "fits"),
    [
        ([_BLOCK] * 4, True),
        ([_BLOCK] * 5, False),
        ([_READY] * 3, True),
        # What a device sends comes with the end of a transfer.
        ([_READY] * 4, False),
    ],
)
def test_a_capture_that_holds_too_much_is_refused(
    tmp_path: Path, monkeypatch: pytest.MonkeyPatch, answers: list[tuple[str, End, str]], fits: bool
) -> None:
    enumeration = len(_DEVICE) + len(_CONFIGURATION)
    monkeypatch.setattr("veyra_lab.capture.reading._MOST_BYTES", enumeration + 18)
    path = file_of(recorded(*answers), tmp_path / "much.pcapng")
    if fits:
        assert len(read_capture(path).transfers) == 3 + len(answers)
        return
    with pytest.raises(CaptureError, match="more control transfers than can be kept"):
        read_capture(path)


# The command.


def test_writes_the_capture(run: Run, tmp_path: Path) -> None:
    transcript = tmp_path / "run.jsonl"
    transcript.write_bytes(sent(good()).text())
    target = tmp_path / "run.pcapng"
    assert run(lambda: lab(["capture", str(target), "--transcript", str(transcript)])) == (0, "", "")
    assert target.read_bytes() == capture_of(sent(good()).read().events)


def test_writes_one_scenario_of_several(run: Run, tmp_path: Path) -> None:
    both = Written().add("lab", "scenario", name="one").and_later(good(), 0)
    both.add("lab", "scenario", name="two", after=20).and_later(good(), 30)
    transcript = tmp_path / "run.jsonl"
    transcript.write_bytes(sent(both).text())
    target = tmp_path / "two.pcapng"
    words = ("capture", str(target), "--transcript", str(transcript), "--scenario")
    assert run(lambda: lab([*words, "two"]))[0] == 0
    assert len(stays_of(read_capture(target).transfers)) == 1
    check_refusal(run(lambda: lab([*words, "three"])), "the transcript has no scenario 'three'")


def test_writes_the_camera(run: Run, tmp_path: Path) -> None:
    target = tmp_path / "theirs.json"
    status, said, errors = run(lambda: lab(["capture", str(OF_DFU_UTIL), "--camera", str(target)]))
    assert (status, errors) == (0, "")
    assert said.splitlines()[0].endswith("1,300 bytes downloaded in 3 blocks")
    assert (tmp_path / "theirs.bin").read_bytes() == RANDOM_IMAGE
    scenario = json.loads(target.read_text(encoding="utf-8"))
    assert scenario["description"].startswith("The device of dfu-util.pcapng: device")


def test_the_same_camera_is_written_again(run: Run, tmp_path: Path) -> None:
    target = tmp_path / "theirs.json"
    ends = [run(lambda: lab(["capture", str(OF_DFU_UTIL), "--camera", str(target)])) for _ in range(2)]
    assert ends[0][0] == 0
    assert ends[0] == ends[1]


def test_of_a_camera_that_cannot_be_written_whole_nothing_is(
    run: Run, tmp_path: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    write_bytes = Path.write_bytes

    def write(path: Path, content: bytes) -> int:
        if "json" in path.name:
            raise OSError(28, "No space left on device")
        return write_bytes(path, content)

    monkeypatch.setattr(Path, "write_bytes", write)
    target = tmp_path / "theirs.json"
    check_refusal(run(lambda: lab(["capture", str(OF_DFU_UTIL), "--camera", str(target)])), "No space left on device")
    assert list(tmp_path.iterdir()) == []


@pytest.mark.parametrize(
    ("words", "because"),
    [
        (["out.pcapng"], "say one of these"),
        (["out.pcapng", "kv400.1x1", "--transcript", "run.jsonl"], "say one of these"),
        (["out.pcapng", "--transcript", "none.jsonl"], "No such file"),
        (["out.pcapng", "--transcript", "noise"], "is no event of a transcript"),
        (["out.pcapng", "--transcript", "quiet.jsonl"], "no device was in DFU mode there"),
        (["noise", "--transcript", "noise"], "would be overwritten while it is read"),
        (["noise", "--camera", "noise"], "noise: the scenario's name ends with .json"),
        (["noise.json", "--camera", "noise.json"], "would be overwritten while it is read"),
        (["theirs.bin", "--camera", "theirs.json"], "would be overwritten by the image"),
        (["dfu-util.pcapng", "--camera", "noise.json"], "noise.bin: it is there with another content"),
        (["a$version.pcapng", "--camera", "camera.json"], "a $ in a scenario's words is a parameter"),
        (["dfu-util.pcapng", "--camera", "a camera.json"], "no id can say 'a camera'"),
        (["nowhere/out.pcapng", "--transcript", "quiet.jsonl"], "cannot be written"),
        (["out.pcapng", "--scenario", "nothing-of-the-kind"], "there is no scenario 'nothing-of-the-kind'"),
        (["out.pcapng", "--scenario", "lost-answer"], "is several scenarios"),
        (["out.pcapng", "--transcript", "quiet.jsonl", "--device", "1.2"], "--device goes with --camera"),
        (["noise", "--camera", "camera.json"], "noise: this is no capture of the format pcapng"),
        (["none.pcapng", "--camera", "camera.json"], "No such file"),
        (["empty", "--camera", "camera.json"], "empty: this is no capture of the format pcapng"),
        (["ethernet.pcapng", "--camera", "camera.json"], "ethernet.pcapng: no packet of it is of a USB bus"),
        (["idle.pcapng", "--camera", "camera.json"], "no device in DFU mode that was asked for anything"),
    ],
)
def test_refuses(
    run: Run, tmp_path: Path, monkeypatch: pytest.MonkeyPatch, words: list[str], because: str
) -> None:
    """In one line, and no file is touched."""
    monkeypatch.chdir(tmp_path)
    Path("noise").write_bytes(b"noise\n" * 10)
    Path("noise.json").write_bytes(b"noise\n")
    Path("noise.bin").write_bytes(b"noise\n")
    for name in ("dfu-util.pcapng", "a$version.pcapng"):
        Path(name).write_bytes(OF_DFU_UTIL.read_bytes())
    Path("theirs.bin").write_bytes(OF_DFU_UTIL.read_bytes())
    Path("empty").write_bytes(b"")
    Path("quiet.jsonl").write_bytes(Written().begin().text())
    Path("ethernet.pcapng").write_bytes(write(1, [], [Packet(1, 0, bytes(60), 60)]))
    file_of(recorded()[:1], Path("idle.pcapng"))
    there = {path.name: path.read_bytes() for path in tmp_path.iterdir()}
    check_refusal(run(lambda: lab(["capture", *words])), because)
    assert {path.name: path.read_bytes() for path in tmp_path.iterdir()} == there
