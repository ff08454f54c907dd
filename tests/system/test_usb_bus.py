"""The service that ships on a real bus: a Linux guest's kernel drives the cameras. One scenario of each kind; the whole list
is for scripts/lab run --bus usb --all."""

import json
import re
from collections.abc import Iterator
from contextlib import contextmanager
from pathlib import Path

import pytest
from guests import booted, cannot_run, guest_image
from support import BUILD, CHECKOUT, Shared, run_script, slow
from test_demo import check_update
from veyra_lab.buses.usb import UsbBus
from veyra_lab.guest.errors import GuestError
from veyra_lab.guest.kv400 import Kv400
from veyra_lab.guest.served_cameras import ServedCameras
from veyra_lab.runner.runner import ScenarioRunner
from veyra_lab.scenarios.files import read_folder, read_named
from veyra_lab.terminal.set_up import SetUpError
from veyra_lab.windows.image import ODD_IMAGE_SIZE, default_image
from veyra_lab.windows.machine import Machine
from veyra_lab.windows.programs import Programs

pytestmark = slow

_FOLDER = CHECKOUT / "lab" / "scenarios"
_KINDS = {
    "a whole update": "one-update-in-full",
    "a pull during a block": "unplug-in-dfu-mode/middle-block",
    "a pull while descriptors are read": "unplug-while-descriptors-are-read/device",
    "a stall": "failing-request/stall-block-3",
    "a time-out": "failing-request/timeout-block-0",
    "slow blocks": "busy-after-a-block/150-ms",
    "a lost answer": "lost-answer/timeout-last-block",
    "another boot loader": "boot-loaders-that-are-updated/busy-first",
    "full speed": "full-speed",
    "a hostile descriptor": "hostile-descriptors/b-length-0",
    "two cameras": "two-cameras",
    "a pull between two enumerations": "unplug-between-the-modes",
}
# A configuration that is longer than all that is in it, and whose DFU interface is 8 bytes long.
_WRONG_DESCRIPTOR = "09022000010100c032" + "0804000000fe0102"


@contextmanager
def SHARED(machine: Machine) -> Iterator[ScenarioRunner]:
    """One guest and one service carry all of them."""
    guest_image()
    runner = ScenarioRunner(machine, Programs.of(BUILD), bus=UsbBus.name)
    try:
        runner.__enter__()
    except (GuestError, SetUpError) as error:
        cannot_run(GuestError(str(error)))
    try:
        yield runner
    finally:
        runner.__exit__(None, None, None)


@pytest.mark.parametrize("scenario", _KINDS.values(), ids=_KINDS)
def test_scenario_holds_on_a_real_bus(shared: Shared[ScenarioRunner], scenario: str) -> None:
    (variant,) = read_named(_FOLDER, [scenario])
    complaints = shared.get().run(variant).complaints
    assert not complaints, "\n".join(complaints)


def test_at_least_forty_scenarios_are_for_a_real_bus() -> None:
    variants = read_folder(_FOLDER)
    assert sum(not variant.not_on_usb for variant in variants) >= 40
    assert all(not variant.not_on_usb for variant in variants if variant.name in _KINDS.values())


def test_run_is_told_of_a_kernel_that_complains_of_a_descriptor() -> None:
    camera = {"configuration_descriptor": _WRONG_DESCRIPTOR}
    with booted(guest_image(), "complaints") as running:
        bus = UsbBus(running.guest, running.peer)
        for told, has_to_complain in ((camera, False), ({}, True)):
            with ServedCameras(running.guest, running.peer, [camera]) as cameras:
                with Kv400(running.guest.usb, running.peer, cameras) as kv400:
                    kv400.enter_dfu_mode()
            # Of a camera that is told to be so the kernel may well complain.
            complaints = bus.complaints([told], [])
            assert bool(complaints) == has_to_complain
            assert all(each.startswith("the guest's kernel complains: usb 1-1: config ") for each in complaints)


@pytest.mark.xdist_group("demo")
def test_shows_an_update_on_a_real_bus(tmp_path: Path) -> None:
    with booted(guest_image(), "before-the-demo"):
        pass  # where that does not work, this test is skipped
    transcript = tmp_path / "run.jsonl"
    done = run_script("demo", "--bus", "usb", "--transcript", str(transcript))
    check_update(done, default_image(ODD_IMAGE_SIZE), "5.10.2.0", 1024)
    assert re.search(r"^    Linux \S+ drives the bus; it answered after [0-9.]+ s$", done.stdout, re.MULTILINE)
    assert done.stdout.count("the guest's kernel has configured it: 1-1, 2f1a:7e0") == 3
    assert re.search(r"^==> (\d+) of \1 expectations held$", done.stdout, re.MULTILINE)
    # Both ends of the bus are in the record, and have seen the same.
    events = [json.loads(line) for line in transcript.read_text(encoding="utf-8").splitlines()]
    ends = [
        [event["setup"] for event in events if (event["source"], event["event"]) == (source, "transfer") and event["ok"]]
        for source in ("rig", "usbredir")
    ]
    assert ends[0] == ends[1]
    assert len(ends[0]) >= 2 * 257 + 6
