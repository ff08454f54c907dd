"""The bundle that the companion collects of what the service told in a scenario: it tells the cause, as trace and event
log do. The scenarios stand for as many rows of docs/operations.md."""

import json
from collections.abc import Sequence
from pathlib import Path

from support import BUILD, CHECKOUT, Run, slow, the_machine
from veyra_lab import __main__ as lab
from veyra_lab.causes.bundles import collector
from veyra_lab.causes.measure import measured
from veyra_lab.runner.runner import ScenarioRunner
from veyra_lab.scenarios.files import read_named
from veyra_lab.windows.programs import Programs
from veyra_lab.wire.events import Event

_SCENARIOS = {
    "smallest-image": "up-to-date",
    "update-mode-changes/none": "mode",
    "no-extension-unit/no-vendor-node": "no-media",
    "version-unknown/short-reply": "version-unknown",
    "image-without-version/missing": "no-image",
    "toast-controller-missing": "controller-missing",
    "toast-controller-dies-while-it-asks": "controller-gone",
    "other-answers/0": "declined",
    "answered-late": "unanswered",
    "switch-refused": "not-switched",
    "driver-starts-at-once": "driver-late",
    "driver-never-starts": "driver-wrong",
    "image-gone-before-the-answer/deleted": "image-gone",
    "failing-request/stall-probe": "refused",
    "busy-for-too-long/5100-ms": "block-failed",
    "error-status-in-manifestation/err-firmware": "end-failed",
    "late-control/just-above": "late-control",
}


@slow
def test_a_bundle_tells_the_cause_that_trace_and_event_log_tell(run: Run, tmp_path: Path) -> None:
    programs = Programs.of(BUILD)
    variants = read_named(CHECKOUT / "lab" / "scenarios", list(_SCENARIOS))
    assert {variant.name: row for variant in variants for row in variant.rows} == _SCENARIOS
    with ScenarioRunner(the_machine(), programs, always_fresh=True) as runner:
        outcomes = [runner.run(variant) for variant in variants]
        events = runner.events()
    assert [outcome.name for outcome in outcomes if not outcome.held] == []

    with collector(the_machine(), programs) as companion:

        def collect(name: str, events: Sequence[Event]) -> Path:
            cabinet = cabinet_of(name)
            companion.collect(events, cabinet)
            return cabinet

        def cabinet_of(name: str) -> Path:
            return tmp_path / f"{name.replace('/', '.')}.cab"

        results = list(measured(events, {variant.name: variant.rows for variant in variants}, collect))
    assert [result.name for result in results] == list(_SCENARIOS)
    assert [result.name for result in results if not result.is_told_by_its_bundle] == []
    for name, row in _SCENARIOS.items():
        status, text, errors = run(lab.main, "report", str(cabinet_of(name)), "--json")
        assert (status, errors) == (0, "")
        told = json.loads(text)
        findings = [*told["causes"], *told["fine"], *told["others"]]
        assert row in {each for finding in findings for each in finding["rows"]}, name
