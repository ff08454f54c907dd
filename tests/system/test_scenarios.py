"""Every scenario of lab/scenarios as a test of its own: python3 -m unittest test_scenarios.Scenarios.test_NAME.

VEYRA_TRANSCRIPT names a file that is to keep a record of every crossing."""

import atexit
import os
import re
import unittest
from pathlib import Path

import support
from support import BUILD, CHECKOUT, slow, the_machine
from veyra_lab.runner.runner import ScenarioRunner
from veyra_lab.scenarios.files import read_folder
from veyra_lab.scenarios.variant import Variant
from veyra_lab.windows.machine import Machine
from veyra_lab.windows.programs import Programs

# One service carries as many scenarios as it can.
ONE_AT_A_TIME = True


class TheRunner:
    """The runner of this process, made when first asked for, and anew when the machine is another."""

    def __init__(self) -> None:
        self._machine: Machine | None = None
        self._runner: ScenarioRunner | None = None

    def get(self) -> ScenarioRunner:
        """It stays until the process ends; another test that installs the service takes its leavings away."""
        machine = the_machine()
        if self._runner is None or self._machine is not machine or not self._runner.is_installed():
            self._machine = machine
            transcript = os.environ.get("VEYRA_TRANSCRIPT")
            runner = ScenarioRunner(machine, Programs.of(BUILD), Path(transcript) if transcript else None)
            self._runner = runner.__enter__()
        return self._runner

    def leave(self) -> None:
        """Takes everything away that the runner has set up, if its machine is still there."""
        if self._runner is not None and self._runner.is_installed() and support.is_booted(self._machine):
            self._runner.__exit__(None, None, None)


_runner = TheRunner()
atexit.register(_runner.leave)


class Scenarios(unittest.TestCase):
    """Its methods are made below, one for each scenario."""

    def check(self, variant: Variant) -> None:
        self.assertEqual(_runner.get().run(variant).complaints, [])


def _make_tests() -> None:
    for variant in read_folder(CHECKOUT / "lab" / "scenarios"):

        def test(self: Scenarios, variant: Variant = variant) -> None:
            self.check(variant)

        test.__doc__ = variant.description
        test.__name__ = "test_" + re.sub(r"[^a-z0-9]", "_", variant.name)
        if hasattr(Scenarios, test.__name__):
            raise ValueError(f"two scenarios are called {test.__name__}")
        setattr(Scenarios, test.__name__, slow(test) if variant.slow else test)


_make_tests()

if __name__ == "__main__":
    unittest.main()
