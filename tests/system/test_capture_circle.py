"""Captures of what the shipping executable does, and the cameras that are made of them, under that executable again."""

from collections.abc import Iterator, Sequence
from contextlib import contextmanager
from pathlib import Path

import pytest
from support import BUILD, Shared, slow
from test_capture import OF_DFU_UTIL, check_camera_of_dfu_util, is_newer_wireshark, tshark
from veyra_lab.capture.camera import write_camera
from veyra_lab.capture.errors import CaptureError
from veyra_lab.capture.input import camera_of
from veyra_lab.capture.output import capture_of
from veyra_lab.capture.reading import read_capture
from veyra_lab.capture.stays import Stay, stays_of
from veyra_lab.capture.story import transfers_of
from veyra_lab.capture.transfer import SET_INTERFACE, Transfer
from veyra_lab.runner.runner import ScenarioRunner
from veyra_lab.scenarios.files import read_folder, read_scenario
from veyra_lab.scenarios.schema import SCENARIOS
from veyra_lab.scenarios.variant import Variant
from veyra_lab.windows.machine import Machine
from veyra_lab.windows.programs import Programs
from veyra_lab.wire.events import Event

# What every day has time for: each kind of end and of answer.
_EVERY_DAY = (
    "one-update-in-full",
    "busy-after-a-block/150-ms",
    "failing-request/stall-probe",
    "failing-request/timeout-block-3",
    "error-status-after-a-block/err-target",
    "lost-answer/stall-status-of-the-first-block",
    "unplug-in-dfu-mode/middle-block",
    "two-cameras",
    "hostile-descriptors/b-length-0",
)
# Their answer to a descriptor's read is malformed itself.
_MALFORMED = ("hostile-descriptors/b-length-0", "odd-descriptors/b-length-1", "short-descriptors/device-17-bytes")
# A status that is cut off before its state.
_MALFORMED_TO_A_NEWER_ONE = ("short-status/no-state",)
_SPEAKS_DFU = "usb.product==0x2f1a7e01,usbdfu"


@contextmanager
def SHARED(machine: Machine) -> Iterator[ScenarioRunner]:
    """One service carries all of them."""
    with ScenarioRunner(machine, Programs.of(BUILD)) as runner:
        yield runner


def events_of(runner: ScenarioRunner, variant: Variant) -> list[Event]:
    """What happened in the scenario, which has to hold."""
    mark = len(runner.events())
    assert runner.run(variant).complaints == []
    return runner.events()[mark:]


def line(transfer: Transfer) -> str:
    """A request, its data, and what became of it."""
    return f"{transfer.setup.hex(' ')} {transfer.end.name} {transfer.data.hex()}".strip()


def first_opening(stay: Stay) -> list[str]:
    """What was asked of it until the service opened it anew, and the answers."""
    lines: list[str] = []
    for each in stay.requests:
        if each.is_dfu:
            lines.append(line(each))
        elif lines and each.request == SET_INTERFACE:
            break
    return lines


def check_names(path: Path, events: Sequence[Event]) -> None:
    """Wireshark decodes each request by the name that the transcript has for it, and finds nothing malformed but the closing
    DNLOAD, in which its DFU dissector misses data."""
    fields = ("usbdfu.command", "usbdfu.block_number", "usb.setup.wLength", "_ws.malformed")
    lines = tshark(path, "-d", _SPEAKS_DFU, "-Y", "usbdfu.command", "-T", "fields",
                   *(word for field in fields for word in ("-e", field)))  # fmt: skip
    told = [event for event in events if event["event"] == "transfer" and event["error"] != 87]
    setups = [bytes.fromhex(event["setup"]) for event in told]
    assert [int(each[0]) for each in lines] == [setup[1] for setup in setups]
    for each, setup in zip(lines, setups, strict=True):
        if setup[1] == 1:
            assert int(each[1]) == int.from_bytes(setup[2:4], "little")
        assert not each[3] or (setup[1] == 1 and setup[6:8] == bytes(2))


_VARIANTS = [variant for variant in read_folder(SCENARIOS) if not variant.slow]


def test_what_is_for_every_day_is_there() -> None:
    assert set(_EVERY_DAY) <= {variant.name for variant in _VARIANTS}


@pytest.mark.parametrize(
    "variant",
    [
        pytest.param(variant, id=variant.name, marks=[] if variant.name in _EVERY_DAY else [slow])
        for variant in _VARIANTS
    ],
)
def test_from_the_bus_to_a_capture_to_a_camera_and_back(
    shared: Shared[ScenarioRunner], variant: Variant, tmp_path: Path
) -> None:
    events = events_of(shared.get(), variant)
    path = tmp_path / "captured.pcapng"
    try:
        path.write_bytes(capture_of(events))
    except CaptureError as error:
        assert str(error) == "no device was in DFU mode there"
        return
    malformed = tshark(path, "-Y", "_ws.malformed")
    known = (*_MALFORMED, *(_MALFORMED_TO_A_NEWER_ONE if is_newer_wireshark() else ()))
    assert len(malformed) == (1 if variant.name in known else 0)
    check_names(path, events)
    captured = read_capture(path)
    assert [line(each) for each in captured.transfers] == [line(each) for each in transfers_of(events)]
    for stay in stays_of(captured.transfers):
        if stay.is_dfu and stay.requests:
            check_again(shared.get(), path, stay, tmp_path / f"{stay.name}.json")


# One that differs in nothing from another is played once.
_played: set[str] = set()
# An image that was empty when it was sent cannot be asked about.
_EMPTIED = ("21 01 00 00 00 00 00 00",)


def check_again(runner: ScenarioRunner, capture: Path, stay: Stay, target: Path) -> None:
    """The camera that is made of a stay on the bus is asked the same by the service, and gives the same answers."""
    expected = first_opening(stay)
    if any(each.startswith(_EMPTIED) for each in expected) or repr(expected) in _played:
        return
    _played.add(repr(expected))
    found = camera_of(read_capture(capture), stay.name)
    for path, content in write_camera(found, capture.name, target).items():
        path.write_bytes(content)
    (again,) = read_scenario(target)
    stays = stays_of(transfers_of(events_of(runner, again)))
    seen = ([first_opening(each) for each in stays if each.requests] or [[]])[0]
    if any("what it uploaded" in words for words in found.words):
        seen, expected = ([each for each in lines if not each.startswith("a1 02")] for lines in (seen, expected))
    if again.steps[-1] == "settle" and len(expected) < len(seen):
        # The host ended it by itself, before anything went to the bus.
        seen = seen[: len(expected)]
    assert seen == expected, found.words


def test_the_service_updates_the_camera_of_another_hosts_capture(
    shared: Shared[ScenarioRunner], tmp_path: Path
) -> None:
    """dfu-util's, on Linux' own USB stack: the image is the one that it has downloaded, in blocks of the same size that
    take the same time."""
    found = check_camera_of_dfu_util(OF_DFU_UTIL)
    target = tmp_path / "theirs.json"
    for path, content in write_camera(found, OF_DFU_UTIL.name, target).items():
        path.write_bytes(content)
    (scenario,) = read_scenario(target)
    (stay,) = stays_of(transfers_of(events_of(shared.get(), scenario)))
    blocks = [each.data for each in stay.requests if each.name == "DNLOAD"]
    theirs = [each.data for each in found.stay.requests if each.name == "DNLOAD"]
    assert blocks == theirs
    states = [each.data[4] for each in stay.requests if each.name == "GETSTATUS" and each.data]
    assert states == [4, 5] * 3 + [7, 8]

