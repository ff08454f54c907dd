"""The service that ships on a real bus: a Linux guest's kernel drives the cameras. One scenario of each kind; the whole list
is for scripts/lab run --bus usb --all. The demo, and a camera whose descriptors are wrong."""

import re
import subprocess
from collections.abc import Iterator
from contextlib import contextmanager

import pytest
from guests import cannot_run, guest_image
from support import BUILD, CHECKOUT, Shared, slow
from veyra_lab.buses.usb import UsbBus
from veyra_lab.guest.errors import GuestError
from veyra_lab.runner.runner import ScenarioRunner
from veyra_lab.scenarios.files import read_folder, read_named
from veyra_lab.scenarios.variant import StagePlan, Variant
from veyra_lab.windows.machine import Machine
from veyra_lab.windows.programs import Programs

pytestmark = slow

_FOLDER = CHECKOUT / "lab" / "scenarios"
_KINDS = {
    "a whole update": "one-update-in-full",
    "a pull in the middle of a block": "unplug-in-dfu-mode/third-block",
    "a pull while descriptors are read": "unplug-while-descriptors-are-read/device",
    "a stall": "failing-request/block",
    "a time-out": "status-unanswered-for-five-seconds",
    "slow blocks": "busy-after-a-block/150-ms",
    "a lost answer": "lost-answer/last-block",
    "another boot loader": "boot-loaders-that-are-updated/addressed-flash",
    "full speed": "full-speed",
    "two cameras": "two-cameras",
}


@contextmanager
def SHARED(machine: Machine) -> Iterator[ScenarioRunner]:
    """One guest and one service carry all of them."""
    guest_image()
    runner = ScenarioRunner(machine, Programs.of(BUILD), bus=UsbBus.name)
    try:
        runner.__enter__()
    except GuestError as error:
        cannot_run(error)
    try:
        yield runner
    finally:
        runner.__exit__(None, None, None)
