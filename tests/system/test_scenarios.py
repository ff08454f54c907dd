"""Every scenario of lab/scenarios as a test of its own.

VEYRA_TRANSCRIPT names a file that is to keep a record of every crossing."""

import os
from pathlib import Path

import pytest
from support import BUILD, CHECKOUT, Shared, slow
from veyra_lab.buses.virtual import VirtualBus
from veyra_lab.runner.runner import ScenarioRunner
from veyra_lab.scenarios.files import read_folder, read_named
from veyra_lab.scenarios.variant import Variant
from veyra_lab.windows.machine import Machine
from veyra_lab.windows.programs import Programs


def SHARED(machine: Machine) -> ScenarioRunner:
    """One service carries as many scenarios as it can."""
    transcript = os.environ.get("VEYRA_TRANSCRIPT")
    return ScenarioRunner(machine, Programs.of(BUILD), Path(transcript) if transcript else None)


_FOLDER = CHECKOUT / "lab" / "scenarios"


@pytest.mark.parametrize(
    "variant",
    [
        pytest.param(variant, id=variant.name, marks=[slow] if variant.slow else [])
        for variant in read_folder(_FOLDER)
    ],
)
def test_scenario(shared: Shared[ScenarioRunner], variant: Variant) -> None:
    complaints = shared.get().run(variant).complaints
    assert not complaints, "\n".join(complaints)


def test_does_not_hold_when_the_bus_has_something_to_say(
    shared: Shared[ScenarioRunner], monkeypatch: pytest.MonkeyPatch
) -> None:
    monkeypatch.setattr(VirtualBus, "complaints", lambda bus, cameras, events: ["the bus creaks"])
    outcome = shared.get().run(read_named(_FOLDER, ["smallest-image"])[0])
    assert (outcome.complaints, outcome.held) == (["the bus creaks"], False)


def test_tells_what_the_service_holds_where_somebody_looks(shared: Shared[ScenarioRunner]) -> None:
    runner = shared.get()
    runner.looks_at_resources = True
    try:
        outcome = runner.run(read_named(_FOLDER, ["smallest-image"])[0])
    finally:
        runner.looks_at_resources = False
    assert not outcome.complaints
    for held in (outcome.before, outcome.after):
        assert held is not None
        assert min(held.handles, held.threads, held.private_kib) > 0
