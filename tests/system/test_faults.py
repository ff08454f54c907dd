"""scripts/faults: ids, the table, and how a failure is made small, with a program that stands in for the campaign's."""

import json
import random
from pathlib import Path

import pytest
from support import BUILD, CHECKOUT, Shared, run_script, slow
from veyra_lab.faults.program import Campaign, Failure, Line, built, replay, trial_ids
from veyra_lab.faults.scenario import write_scenario
from veyra_lab.faults.shipped import RESTLESS, ShippedTrials
from veyra_lab.faults.shrink import shrink
from veyra_lab.faults.story import read_story
from veyra_lab.faults.table import Table
from veyra_lab.faults.trial_id import read_id
from veyra_lab.scenarios.files import read_scenario
from veyra_lab.windows.machine import Machine
from veyra_lab.windows.programs import Programs

ID = "two-banks.2500x7.1gs3-time-after.2dn1-pull-mid100-for0.2gs0-state8"


@pytest.fixture
def stand_in(tmp_path: Path) -> Path:
    """A campaign whose trials fail when their id has a word in it."""
    path = tmp_path / "campaign"
    path.write_text(
        """#!/usr/bin/env python3
import json, os, sys
if sys.argv[1] == "replay":
    if "nonsense" in sys.argv[2]:
        sys.exit(2)
    why = "broken: a rule" if "dn" in sys.argv[2] else ""
    print(json.dumps({"event": "judgement", "held": not why, "why": why}))
    sys.exit(bool(why))
share, shares, seed, pairs = sys.argv[2:]
print(json.dumps({"total": 2}))
if share == "0":
    print(json.dumps({"failure": "kv400.2500x1.1dn0-pull", "why": "broken: a rule"}))
    print(json.dumps({"end": True, "reasons": {}}), flush=True)
    sys.exit(1)
print("==12==ERROR: AddressSanitizer: heap-buffer-overflow on address 0x0", file=sys.stderr)
print("    more of it", file=sys.stderr)
print(json.dumps({"died": "kv400.2500x1.1gs0-short0"}), flush=True)
os.abort()
""",
        encoding="utf-8",
    )
    path.chmod(0o755)
    return path


def test_reads_and_writes_ids() -> None:
    trial = read_id(ID)
    assert (trial.kind, trial.image_size, trial.seed) == ("two-banks", 2500, 7)
    assert [fault.update for fault in trial.faults] == [1, 2, 2]
    assert (trial.faults[1].taken, trial.faults[1].count, trial.faults[2].value) == ("100", "0", "8")
    assert str(trial) == ID


@pytest.mark.parametrize("text", ["", "kv400", "kv400.2500", "kv400.2500x1.", "kv400.2500x1.gs3-time", "a b.1x1"])
def test_refuses_what_is_no_id(text: str) -> None:
    with pytest.raises(ValueError, match="is not the id of a trial"):
        read_id(text)


def test_makes_a_failing_trial_as_small_as_it_goes(stand_in: Path) -> None:
    assert shrink(stand_in, "kv400.2500x1.1gs3-time.2dn1-pull") == "kv400.402x1.1dn0-pull"
    assert shrink(stand_in, "kv400.2500x1.1gs3-time") == "kv400.2500x1.1gs3-time"


def test_tells_what_failed_and_which_trial_the_program_died_of(stand_in: Path) -> None:
    heard: list[Line] = []
    failures = Campaign(stand_in, 1, "all", 2).run(heard.append)
    assert failures == [
        Failure("kv400.2500x1.1dn0-pull", "broken: a rule"),
        Failure("kv400.2500x1.1gs0-short0", "ERROR: AddressSanitizer: heap-buffer-overflow on address"),
    ]
    assert sum(line.get("total", 0) for line in heard) == 4


def test_refuses_an_id_that_the_program_does_not_know(stand_in: Path) -> None:
    with pytest.raises(ValueError, match="nonsense"):
        replay(stand_in, "nonsense")


def tally(**fields: object) -> Line:
    """What a share tells of a set."""
    given = {"kind": "kv400", "set": "one fault", "total": 10, "trials": 4, "met": 3, "ms": 1500, "ends": {}, "good": {}}
    return {"tally": {**given, "allowed": {}, **fields}}


def test_adds_the_shares_up() -> None:
    table = Table()
    table.add({"road": "kv400", "steps": 26, "repeats": 2, "faults": 3})
    ends = {"updated, image": 1, "failed, image": 1, "not opened, old": 1, "updated, none": 1}
    table.add(tally(ends=ends, good={"updated": 3, "stays without firmware": 1}, allowed={"a row": 1}))
    table.add(tally(ends={"failed, none": 3, "failed, wrong": 1}, good={"as ever": 4}))
    table.add({"end": True, "reasons": {"a row": "a reason", "another": "never met"}})
    head, _, row, empty, *rest = table.lines()
    assert head.count("|") == row.count("|")
    assert row == "| kv400 | one fault | 10 | 8 | 6 | 1 | 1 | 1 | 3 | 1 | 1 | 3 | 4 | 1 | 3.0 |"
    assert empty == ""
    assert rest == [
        "- left out, kv400: faults at 2 of 26 steps, looks at the state that are answered like those beside them, which stand"
        " for them.",
        "- left out, by the seed: 14 pairs.",
        "- allowed 1 times, a row: a reason.",
    ]
    assert (table.tried, table.pairs) == (8, 0)


TRANSCRIPT: list[Line] = [
    {"event": "trial", "id": ID, "faults": []},
    {"event": "step", "text": "update 1"},
    {"event": "firmware-command", "opcode": 30, "result": 0},
    {"event": "transfer", "setup": "a1 05", "length": 1, "transferred": 1, "ok": True, "error": 0, "data": "02", "ms": 9},
    {"event": "step", "text": "failed; the camera has no firmware"},
    {"event": "firmware-command", "opcode": 30, "result": 0},
    {"event": "step", "text": "update 2"},
    {"event": "alternate-setting", "interface": 0, "setting": 0, "ok": True, "error": 0},
    {"event": "step", "text": "another camera"},
    {"event": "step", "text": "update 1"},
    {"event": "step", "text": "updated; the camera has the image"},
    {"event": "judgement", "held": True, "why": ""},
]


def test_reads_the_updates_of_a_transcript() -> None:
    first, second, other = read_story(TRANSCRIPT)
    assert (first.camera, first.number, first.is_accepted, first.firmware) == (0, 1, True, "none")
    assert first.bus == ["transfer setup=a1 05 transferred=1 ok=True data=02"]
    assert (second.camera, second.number, second.is_accepted, second.firmware) == (0, 2, False, "")
    assert second.bus == ["alternate-setting interface=0 setting=0 ok=True"]
    assert (other.camera, other.number, other.firmware) == (1, 1, "image")


def test_writes_a_scenario_that_can_be_read(tmp_path: Path) -> None:
    path = write_scenario(read_id(ID), read_story(TRANSCRIPT), "broken: a block's number, counted", tmp_path)
    assert path.name == "two-banks-a-block-s-number-counted.json"
    (scenario,) = read_scenario(path)
    assert scenario.stage.cameras[0] == {"two_banks": True, "block_ms": 150, "manifest_ms": 300}
    assert scenario.steps[:6] == (
        {"image": {"size": 2500, "version": "5.10.3.0", "seed": 1}},
        {"faults": {"camera": 0, "list": [{"where": "GETSTATUS", "what": "timeout", "skip": 3, "moment": "after"}]}},
        {"plug": 0},
        {"wait for": "question"},
        "settle",
        {"answer": 1},
    )
    assert scenario.steps[7] == {"expect": {"cameras": [{"firmware": "none"}]}}
    second = scenario.steps[10]["faults"]
    assert second["camera"] == 0
    assert second["list"] == [
        {"where": "DNLOAD", "what": "unplug", "skip": 1, "value": 100, "moment": "middle", "count": 0},
        {"where": "GETSTATUS", "what": "state", "skip": 0, "value": 8},
    ]
    assert {"expect": {"cameras": [None, {"firmware": "image"}]}} in scenario.steps
    assert ID in json.loads(path.read_text(encoding="utf-8"))["description"]


def test_the_switch_comes_behind_four_reads_of_the_version(tmp_path: Path) -> None:
    path = write_scenario(read_id("kv400.2500x1.1cw0-stall.1cw1-time-after"), read_story(TRANSCRIPT), "", tmp_path)
    assert path.name == "kv400.json"
    faults = json.loads(path.read_text(encoding="utf-8"))["steps"][1]["faults"]["list"]
    assert [fault["skip"] for fault in faults] == [0, 4]


def SHARED(machine: Machine) -> ShippedTrials:
    """One process of the service carries as many trials as it can."""
    return ShippedTrials(built(), machine, Programs.of(BUILD))


@pytest.mark.parametrize(
    "trial",
    [
        "kv400.2500x1.1gs3-time-after",
        "two-banks.2500x1.1fw1-pull-mid.2dn2-time-after",
        "first-page.2500x1.1dn1-pull-mid.2cw1-stall",
    ],
)
def test_a_trial_goes_the_same_way_on_the_executable_that_ships(shared: Shared[ShippedTrials], trial: str) -> None:
    end = shared.get().run(trial)
    assert not end.complaints, "\n".join(end.complaints)
    assert end.requests > 40


@slow
def test_trials_go_the_same_way_on_the_executable_that_ships(shared: Shared[ShippedTrials]) -> None:
    seed = random.SystemRandom().randrange(1 << 30)
    print(f"scripts/faults --wine --quick --seed {seed}")
    trials = [trial for trial in trial_ids(built(), seed, "40", 20) if not trial.startswith(RESTLESS)]
    complaints = [(trial, complaint) for trial in trials for complaint in shared.get().run(trial).complaints]
    assert complaints == []


def test_refuses_to_play_what_would_never_end_there(shared: Shared[ShippedTrials]) -> None:
    with pytest.raises(ValueError, match="restarts for ever"):
        shared.get().run("stays-in-dfu-mode.2500x1")


@slow
def test_an_id_plays_the_same_a_thousand_times_more() -> None:
    trial = "two-banks.2500x1.1gs1-time.2fw2-pull-mid"
    done = run_script(str(CHECKOUT / "scripts" / "faults"), "--replay", trial, "--times", "1000", timeout=600)
    assert (done.returncode, json.loads(done.stdout.splitlines()[-1])["held"]) == (0, True)


@slow
def test_the_documents_table_is_that_of_a_run() -> None:
    done = run_script(str(CHECKOUT / "scripts" / "faults"), "--quick", "--seed", "1", timeout=1200)
    assert done.returncode == 0, done.stdout
    document = (CHECKOUT / "docs" / "laboratory.md").read_text(encoding="utf-8")
    assert single_faults(done.stdout) == single_faults(document) != []


def single_faults(text: str) -> list[str]:
    """The rows of single faults, without their seconds."""
    rows = (line for line in text.splitlines() if line.startswith("| ") and "| one fault |" in line)
    return [row.rpartition(" |")[0].rpartition(" |")[0] for row in rows]


@pytest.mark.parametrize(
    "arguments", [("--replay", "nonsense"), ("--seed", "x"), ("--times", "3"), ("--replay", "kv400.402x1", "--quick"), ("--machine", "x")]
)
def test_says_in_one_line_what_is_wrong_with_the_command_line(arguments: tuple[str, ...]) -> None:
    done = run_script(str(CHECKOUT / "scripts" / "faults"), *arguments, timeout=60)
    assert (done.returncode, done.stdout, done.stderr.count("\n")) == (2, "", 1)
