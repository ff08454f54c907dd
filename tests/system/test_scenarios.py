"""Every scenario of lab/scenarios as a test of its own: python3 -m unittest test_scenarios.Scenarios.test_NAME.

VEYRA_TRANSCRIPT names a file that is to keep a record of every crossing."""

import atexit
import os
import re
import unittest
from pathlib import Path

import support
from support import BUILD, CHECKOUT, slow, the_machine
from veyra_lab.machine import Machine
from veyra_lab.proving_ground import ProvingGround
from veyra_lab.scenario_file import Variant, read_folder
from veyra_lab.scenario_player import ScenarioPlayer
from veyra_lab.stage import Programs

# One service carries as many scenarios as it can.
ONE_AT_A_TIME = True


class Ground:
    """The player of this process, made when first asked for, and anew when the machine is another."""

    def __init__(self) -> None:
        self._machine: Machine | None = None
        self._ground: ProvingGround | None = None
        self._player: ScenarioPlayer | None = None

    def player(self) -> ScenarioPlayer:
        """It stays until the process ends; another test that sets the stage takes its leavings away."""
        machine = the_machine()
        if self._player is None or self._machine is not machine or not self._player.is_set():
            self._machine = machine
            transcript = os.environ.get("VEYRA_TRANSCRIPT")
            self._ground = ProvingGround(machine, Programs.of(BUILD), Path(transcript) if transcript else None)
            self._player = self._ground.__enter__()
        return self._player

    def leave(self) -> None:
        """Takes everything away that the player has set up, if its machine is still there."""
        if self._ground is not None and self._player is not None and self._player.is_set():
            if support.is_booted(self._machine):
                self._ground.__exit__(None, None, None)


_ground = Ground()
atexit.register(_ground.leave)


class Scenarios(unittest.TestCase):
    """Its methods are made below, one for each scenario."""

    def play(self, variant: Variant) -> None:
        self.assertEqual(_ground.player().play(variant).complaints, [])


def _make_tests() -> None:
    for variant in read_folder(CHECKOUT / "lab" / "scenarios"):

        def test(self: Scenarios, variant: Variant = variant) -> None:
            self.play(variant)

        test.__doc__ = variant.description
        test.__name__ = "test_" + re.sub(r"[^a-z0-9]", "_", variant.name)
        if hasattr(Scenarios, test.__name__):
            raise ValueError(f"two scenarios are called {test.__name__}")
        setattr(Scenarios, test.__name__, slow(test) if variant.slow else test)


_make_tests()

if __name__ == "__main__":
    unittest.main()
