"""Every scenario of lab/scenarios as a test of its own.

VEYRA_TRANSCRIPT names a file that is to keep a record of every crossing."""

import os
from collections.abc import Iterator
from pathlib import Path

import pytest
import support
from support import BUILD, CHECKOUT, the_machine
from veyra_lab.runner.runner import ScenarioRunner
from veyra_lab.scenarios.files import read_folder
from veyra_lab.scenarios.variant import Variant
from veyra_lab.windows.machine import Machine
from veyra_lab.windows.programs import Programs

# One service carries as many scenarios as it can.
pytestmark = pytest.mark.xdist_group("scenarios")


class TheRunner:
    """The runner of these tests, made when first asked for, and anew when the machine is another."""

    def __init__(self) -> None:
        self._machine: Machine | None = None
        self._runner: ScenarioRunner | None = None

    def get(self) -> ScenarioRunner:
        """The one that is there, or a new one."""
        machine = the_machine()
        if self._runner is None or self._machine is not machine:
            self._machine = machine
            transcript = os.environ.get("VEYRA_TRANSCRIPT")
            runner = ScenarioRunner(machine, Programs.of(BUILD), Path(transcript) if transcript else None)
            self._runner = runner.__enter__()
        return self._runner

    def leave(self) -> None:
        """Takes everything away that the runner has set up, if its machine is still there."""
        if self._runner is not None and support.is_booted(self._machine):
            self._runner.__exit__(None, None, None)


@pytest.fixture(scope="module")
def runner() -> Iterator[TheRunner]:
    the_runner = TheRunner()
    yield the_runner
    the_runner.leave()


@pytest.mark.parametrize(
    "variant",
    [
        pytest.param(variant, id=variant.name, marks=[support.slow] if variant.slow else [])
        for variant in read_folder(CHECKOUT / "lab" / "scenarios")
    ],
)
def test_scenario(variant: Variant, runner: TheRunner) -> None:
    assert runner.get().run(variant).complaints == []
