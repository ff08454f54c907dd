"""Scenarios with the toast controller that ships in the place of the laboratory's: those in which a person before the
window can do what the laboratory's does by word."""

import json
import os
import signal
import threading
import time
from collections.abc import Iterator
from pathlib import Path
from typing import Any

import pytest
from support import BUILD, CHECKOUT, Shared, discard_the_machine, slow
from toast_display import PATIENCE, QUESTION, Display
from veyra_lab.runner.installed_service import InstalledService
from veyra_lab.runner.runner import ScenarioRunner
from veyra_lab.scenarios.files import read_named, read_scenario
from veyra_lab.scenarios.variant import Variant
from veyra_lab.windows.installation import Installation
from veyra_lab.windows.machine import Machine
from veyra_lab.windows.programs import Programs
from veyra_lab.wire.events import TOAST, Event

pytestmark = [slow, pytest.mark.usefixtures("display")]

_PROGRAM = "VeyraCameraToastCntl.exe"
# Those that ask nothing of the window that a person, or its process, could not do. The others make a single call fail or
# hang, give an answer that no button gives, or a second one, or start another server after one was killed. Those that
# count what a call was told in the middle of a download are below with a download that takes its time.
_NAMES = (
    "answered-late",
    "image-emptied-before-the-answer",
    "image-gone-before-the-answer",
    "image-replaced-before-the-answer",
    "listed-twice",
    "toast-controller-dies-while-it-asks",
    "toast-controller-hangs-at-the-end",
    "stop-while-the-user-is-asked",
    "unplug-before-the-answer",
)
_STAGE = {"transfer_us": 30_000, "image": {"size": 20_000, "version": "5.10.3.0"}}
_ASKED = [{"plug": 0}, {"wait for": "question"}, "settle", {"answer": 1}]
_DEATH = [
    {"toast controller": "die"},
    {"wait for": "camera 0 running"},
    "settle",
    {"expect": {"completions": 0, "cameras": [{"mode": "running", "flash": "image"}]}},
]
_DIES_FIRST = [*_ASKED, *_DEATH]
_STOPS = [
    *_ASKED,
    {"wait for": "progress 3"},
    "ask to stop",
    "await stop",
    {"expect": {"completions": 1, "service": "stopped"}},
]
_SHUTS_DOWN = [
    *_ASKED,
    {"wait for": "progress 3"},
    {"control": 5},
    "await stop",
    {"expect": {"completions": 1, "service": "stopped"}},
]
_DIES = [*_ASKED, {"wait for": "progress 3"}, *_DEATH]
_HANGS = [
    *_ASKED,
    {"wait for": "progress 3"},
    {"toast controller": {"hang": "NotifyProgress", "ms": 5000}},
    {"wait for": "download end"},
    {"wait for": "camera 0 running"},
    "settle",
    {"expect": {"result": "updated"}},
]


class WindowOfPrompts:
    """Does with the window, and with its process, what a scenario tells the laboratory's toast controller to do."""

    def __init__(self, machine: Machine, installed: InstalledService, installation: Installation) -> None:
        self._machine = machine
        self._installed = installed
        self._installation = installation
        self._command = installed.peer.command

    def show(self) -> None:
        """Puts it on the display, when it is not there."""
        if not self._installation.toast_controller_is_shown():
            self._installation.show_toast_controller()

    def command(self, source: str, command: str, **fields: Any) -> Event:
        """Takes the commands that are the toast controller's."""
        if source == TOAST:
            return getattr(self, f"_{command}")(**fields) or {}
        if command == "restage":
            fields["stage"] = with_prompts(fields["stage"])
        return self._command(source, command, **fields)

    def _respond(self, code: int) -> None:
        display = Display(self._machine)
        display.click(display.wait_for_text(QUESTION, "Update"), "Update" if code == 1 else "Not now")

    def _die(self) -> None:
        self._signal(signal.SIGKILL)
        self._installed.peer.record("gone", of=TOAST)

    def _hang(self, method: str, ms: int = 0, skip: int = 0) -> None:
        """It does nothing at all any more, so no call of the service comes back."""
        del method, skip
        self._signal(signal.SIGSTOP)
        if ms:
            threading.Timer(ms / 1000, self._release).start()

    def _release(self) -> None:
        self._signal(signal.SIGCONT)

    def _behave(self) -> None:
        self._release()

    def _signal(self, number: signal.Signals) -> None:
        for process in self._machine.processes(_PROGRAM):
            os.kill(process, number)


def with_prompts(stage: dict[str, Any]) -> dict[str, Any]:
    """The stage of a rig that tells what goes between the service and its toast controller."""
    return {**stage, "records_prompts": True}


def SHARED(machine: Machine) -> ScenarioRunner:
    return ScenarioRunner(machine, Programs.of(BUILD), always_fresh=True)


@pytest.fixture
def runner(shared: Shared[ScenarioRunner], monkeypatch: pytest.MonkeyPatch) -> Iterator[ScenarioRunner]:
    """A runner whose toast controller is the window."""
    runner = shared.get()
    installed, installation = runner._installed, runner._installed._installation
    window = WindowOfPrompts(runner._machine, installed, installation)
    set_stage, start = installed.peer.set_stage, installed.service.start

    def start_with_window() -> float:
        window.show()
        return start()

    monkeypatch.setattr(installed.peer, "command", window.command)
    monkeypatch.setattr(installed.peer, "set_stage", lambda rig, toast: set_stage(with_prompts(rig), toast))
    monkeypatch.setattr(installed.service, "start", start_with_window)
    monkeypatch.setattr(installed, "put_toast_controller", lambda there: None)
    yield runner
    window.command(TOAST, "release")
    # Wine does not start another server in the place of one that was killed, or is killed now with its window.
    discard_the_machine()


@pytest.mark.parametrize("variant", read_named(CHECKOUT / "lab" / "scenarios", _NAMES), ids=lambda variant: variant.name)
def test_scenario(runner: ScenarioRunner, variant: Variant) -> None:
    check(runner, variant)


@pytest.mark.parametrize(
    "steps",
    [_DIES_FIRST, _DIES, _HANGS, _STOPS, _SHUTS_DOWN],
    ids=["the window dies first", "the window dies", "the window hangs", "the service stops", "the system shuts down"],
)
def test_the_download_comes_to_its_end_when(runner: ScenarioRunner, steps: list[Any], tmp_path: Path) -> None:
    path = tmp_path / "in-the-middle.json"
    path.write_text(json.dumps({"description": "-", "stage": _STAGE, "steps": steps}), encoding="utf-8")
    check(runner, read_scenario(path)[0])


def check(runner: ScenarioRunner, variant: Variant) -> None:
    began = time.monotonic()
    complaints = runner.run(variant).complaints
    assert not complaints, "\n".join(complaints)
    assert time.monotonic() - began < 2 * PATIENCE
