"""scripts/faults: ids, the table, and how a failure is made small, with a program that stands in for the campaign's."""

import json
import random
import re
from pathlib import Path

import pytest
from support import BUILD, CHECKOUT, Shared, run_script, slow
from veyra_lab.faults.__main__ import run
from veyra_lab.faults.program import (
    Campaign, Failure, Line, ProgramError, built, copy_of, fields_of, last_words, lines_of, replay, trial_ids,
)  # fmt: skip
from veyra_lab.faults.scenario import write_scenario
from veyra_lab.faults.shipped import ShippedTrials, why_left_out
from veyra_lab.faults.shrink import shrink
from veyra_lab.faults.story import bus_lines, command_lines, read_story
from veyra_lab.faults.table import Table
from veyra_lab.faults.trial_id import read_id
from veyra_lab.scenarios.errors import ScenarioError
from veyra_lab.scenarios.files import read_scenario
from veyra_lab.scenarios.transfer_pattern import compile_pattern, spell
from veyra_lab.windows.machine import Machine
from veyra_lab.windows.programs import Programs

ID = "two-banks.2500x7.1gs3-time-after.2dn1-pull-mid100-for0.2gs0-state8"


@pytest.fixture
def leaking(tmp_path: Path) -> Path:
    """A campaign that does everything right, and leaks."""
    path = tmp_path / "campaign"
    path.write_text(
        """#!/usr/bin/env python3
import json, sys
if sys.argv[1] == "run":
    print(json.dumps({"end": True, "reasons": {}}))
elif sys.argv[1] == "replay":
    print(json.dumps({"event": "judgement", "held": True, "why": ""}))
print("==7==ERROR: LeakSanitizer: detected memory leaks", file=sys.stderr)
sys.exit(23)
""",
        encoding="utf-8",
    )
    path.chmod(0o755)
    return path


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
    assert shrink(stand_in, "kv400.2500x1.1gs3-time.2dn1-pull") == ("kv400.402x1.1dn0-pull", "broken: a rule")
    assert shrink(stand_in, "kv400.2500x1.2dn1-pull.2r.1s") == ("kv400.402x1.1dn0-pull", "broken: a rule")
    assert shrink(stand_in, "kv400.2500x1.1gs3-time") == ("kv400.2500x1.1gs3-time", "")


def test_tells_what_failed_and_which_trial_the_program_died_of(stand_in: Path) -> None:
    heard: list[Line] = []
    failures = Campaign(stand_in, 1, "all", 2).run(heard.append)
    assert failures == [
        Failure("kv400.2500x1.1dn0-pull", "broken: a rule"),
        Failure("kv400.2500x1.1gs0-short0", "ERROR: AddressSanitizer: heap-buffer-overflow"),
    ]
    assert sum(line.get("total", 0) for line in heard) == 4


def test_a_leak_that_is_told_behind_the_last_trial_is_a_failure(leaking: Path) -> None:
    failures = Campaign(leaking, 1, "all", 2).run(lambda line: None)
    assert failures == [
        Failure("share 0, at its end", "ERROR: LeakSanitizer: detected memory leaks"),
        Failure("share 1, at its end", "ERROR: LeakSanitizer: detected memory leaks"),
    ]
    assert replay(leaking, "kv400.2500x1").why == "ERROR: LeakSanitizer: detected memory leaks"
    # Each smaller one leaks too.
    assert shrink(leaking, "kv400.2500x1.1gs3-time.2dn1-pull") == (
        "kv400.402x1", "ERROR: LeakSanitizer: detected memory leaks"
    )  # fmt: skip


def sanitizers_words(file: str, line: int) -> str:
    """Of a process that has read beyond a buffer, by the library's function that was called there."""
    return f"""
=================================================================
==4711==ERROR: AddressSanitizer: heap-buffer-overflow on address 0x60200000eff4 at pc 0x5581 bp 0x7ffd sp 0x7ffc
READ of size 68 at 0x60200000eff4 thread T0
    #0 0x5581 in __asan_memcpy (/build/campaign+0xb2c1) (BuildId: 0011)
    #1 0x5582 in std::copy(char*, char*) /usr/include/c++/12/bits/stl_algobase.h:385:3
    #2 0x5583 in dfu::Read(unsigned char const*, unsigned long) {CHECKOUT}/{file}:{line}:9
    #3 0x5584 in main {CHECKOUT}/host/campaign/Main.cpp:7:3

SUMMARY: AddressSanitizer: heap-buffer-overflow (/build/campaign+0xb2c1) in __asan_memcpy
"""


def test_the_same_mistake_at_another_place_is_another_find() -> None:
    one = last_words(sanitizers_words("src/dfu/DfuCommand.cpp", 181))
    assert one == "ERROR: AddressSanitizer: heap-buffer-overflow in src/dfu/DfuCommand.cpp:181:9"
    assert last_words(sanitizers_words("src/usb_core/DescriptorWalk.cpp", 30)) != one
    other_process = sanitizers_words("src/dfu/DfuCommand.cpp", 181).replace("4711", "12").replace("0x5583", "0x6690")
    assert last_words(other_process) == one


def test_words_of_a_find_name_no_folder_outside_the_checkout() -> None:
    said = f"{CHECKOUT}/src/dfu/DfuCommand.cpp:19:5: runtime error: shift exponent 40 is too large\n    #0 0x55 in x\n"
    assert last_words(said) == "src/dfu/DfuCommand.cpp:19:5: runtime error: shift exponent 40 is too large"
    assert last_words("") == "it died without a word"


def test_a_campaign_that_takes_too_long_does_not_hold(tmp_path: Path, capsys: pytest.CaptureFixture[str]) -> None:
    path = tmp_path / "campaign"
    told = [json.dumps(tally()), json.dumps({"end": True, "reasons": {}})]
    path.write_text(f"#!/bin/sh\nseq 100000 >/dev/null\ncat <<'E'\n{chr(10).join(told)}\nE\n", encoding="utf-8")
    path.chmod(0o755)
    assert run(path, quick=True, seed=1, limit=60) == 0
    assert run(path, quick=True, seed=1, limit=0) == 1
    assert "s of processor time on average, and may take 0" in capsys.readouterr().out


def test_a_program_that_dies_of_telling_ids_is_told_in_one_line(leaking: Path) -> None:
    with pytest.raises(ProgramError, match="told no ids: ERROR: LeakSanitizer: detected memory leaks"):
        trial_ids(leaking, 1, "all", 0)


def test_a_run_goes_on_with_the_program_that_it_began_with(stand_in: Path) -> None:
    with copy_of(stand_in) as copy:
        before = replay(copy, "good")
        stand_in.unlink()
        assert replay(copy, "good") == before
    assert list(stand_in.parent.iterdir()) == []


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
        "- left out, by the seed: 12 pairs.",
        "- allowed 1 times, a row: a reason.",
    ]
    assert (table.tried, table.pairs) == (8, 0)


def command(opcode: int, result: int = 0) -> Line:
    """A firmware command that is written."""
    return {"event": "firmware-command", "length": 20, "magic": 1, "opcode": opcode, "parameters": [0], "result": result}


def reply(opcode: int, size: int = 1024, result: int = 0) -> Line:
    """What is read back."""
    return {"event": "firmware-reply", "opcode": opcode, "bytes": size, "result": result}


def transfer(setup: str, data: str = "", error: int = 0) -> Line:
    """A request in DFU mode."""
    told = {"event": "transfer", "setup": setup, "transferred": len(data) // 2, "ok": not error, "error": error}
    return {**told, "data": data}


SWITCH = [command(30), reply(30)]
GET_STATE, DETACH = "a1 05 00 00 00 00 01 00", "21 00 e8 03 00 00 00 00"
TRANSCRIPT: list[Line] = [
    {"event": "trial", "id": ID, "faults": []},
    {"event": "step", "text": "update 1"},
    {"event": "update", "camera": 0, "number": 1},
    command(16, -2147024775),
    command(16),
    reply(16),
    *SWITCH,
    transfer(GET_STATE, "02"),
    transfer(DETACH, error=121),
    {"event": "update-end", "how": "failed", "firmware": "none"},
    command(30),
    {"event": "update", "camera": 0, "number": 2},
    {"event": "alternate-setting", "interface": 0, "setting": 0, "ok": True, "error": 0},
    {"event": "update", "camera": 1, "number": 1},
    command(16),
    reply(16),
    *SWITCH,
    {"event": "update-end", "how": "not opened", "firmware": "old"},
    {"event": "judgement", "held": True, "why": ""},
]
FIELDS: Line = {
    "cameras": [
        {"personality": "kv400", "two_banks": True, "transfer_size": 1024},
        {"personality": "kv400", "transfer_size": 1024},
    ],
    "updates": [
        {"image": "01" * 2500, "faults": [{"where": "GETSTATUS", "what": "timeout", "skip": 3, "moment": "after"}]},
        {"image": "02" * 2500, "faults": [{"where": "DNLOAD", "what": "unplug", "skip": 1, "value": 100}]},
    ],
}  # fmt: skip


def test_reads_the_updates_of_a_transcript() -> None:
    first, second, other = read_story(TRANSCRIPT)
    assert (first.camera, first.number, first.is_accepted, first.how, first.firmware) == (0, 1, True, "failed", "none")
    assert first.bus == [
        "transfer setup=a1 05 00 00 00 00 01 00 transferred=1 ok=True error=0 data=02",
        "transfer setup=21 00 e8 03 00 00 00 00 transferred=0 ok=False error=121 data=",
    ]
    assert (len(first.reading), len(first.commands), first.is_running) == (3, 5, True)
    assert (second.camera, second.number, second.is_accepted, second.how) == (0, 2, False, "")
    assert second.bus == ["alternate-setting interface=0 setting=0 ok=True error=0"]
    assert (other.camera, other.number, other.how, other.is_running) == (1, 1, "not opened", False)


def test_a_short_reply_is_none_whoever_tells_it() -> None:
    assert command_lines([reply(16, 3)]) == command_lines([reply(16, 3, -2147024865)])
    assert command_lines([reply(16, 3)]) != command_lines([reply(16, 4)])
    assert command_lines([reply(16)]) != command_lines([reply(16, result=-2147024865)])


def test_a_request_that_ends_otherwise_or_later_is_another() -> None:
    timeout, stall = transfer(DETACH, error=121), transfer(DETACH, error=31)
    assert bus_lines([timeout]) != bus_lines([stall])
    gone, long_gone = transfer(DETACH, error=22), transfer(DETACH, error=433)
    assert bus_lines([gone]) == bus_lines([long_gone]) != bus_lines([stall])
    assert bus_lines([{**timeout, "ms": 5000}]) != bus_lines([{**timeout, "ms": 4000}])


def test_writes_a_scenario_that_can_be_read(tmp_path: Path) -> None:
    path = write_scenario(read_id(ID), FIELDS, read_story(TRANSCRIPT), "broken: a block's number, counted", tmp_path)
    assert path.name == f"a-block-s-number-counted.{ID}.json"
    (scenario,) = read_scenario(path)
    first, *others = scenario.stage.cameras
    assert first == {**FIELDS["cameras"][0], "faults": FIELDS["updates"][0]["faults"]}
    assert others == FIELDS["cameras"][1:]
    assert scenario.stage.image.content == b"\1" * 2500
    assert scenario.steps[0] == {"accept": 0}
    assert scenario.steps[1] == {
        "expect": {
            "result": "failed",
            "transfers": "GETSTATE DETACH!",
            "commands": 1,
            "completions": 1,
            "progress": ["start:2"],
            "traces with": ["update 18", "update 19", "update 23"],
            "traces without": ["update 20", "update 22"],
            "cameras": [{"firmware": "none"}],
        }
    }
    assert scenario.steps[3:5] == (
        {"image": {"size": 2500, "bytes": "02" * 2500}},
        {"faults": {"camera": 0, "list": FIELDS["updates"][1]["faults"]}},
    )
    (other,) = [step["expect"] for step in scenario.steps[2:] if "expect" in step]
    assert (other["camera"], other["result"], other["cameras"]) == (1, "not opened", [None, {"firmware": "old"}])
    assert ("update 20" in other["traces with"], "update 20" in other["traces without"]) == (True, False)
    assert ID in json.loads(path.read_text(encoding="utf-8"))["description"]


def broken(by_crossing: bool, following: str) -> Line:
    """The judge's word on a rule that was broken."""
    return {"event": "broken", "by_crossing": by_crossing, "next": following}


BLOCK, STATUS = "21 01 00 00 00 00 00 04", "a1 03 00 00 00 00 06 00"
HEAD: list[Line] = [{"event": "update", "camera": 0, "number": 1}, *SWITCH, transfer(GET_STATE, "02")]


@pytest.mark.parametrize(
    ("crossings", "breach", "expected", "goes_on"),
    [
        # The answer to a block is lost, and the service looks at the state: nothing may come.
        ([transfer(BLOCK, error=121), transfer(STATUS)], broken(True, ""), "GETSTATE DNLOAD/0!", False),
        # It ends where the empty block has to come.
        ([transfer(BLOCK), transfer(STATUS)], broken(False, "EMPTY"), "GETSTATE DNLOAD/0 GETSTATUS", True),
        # It sends a block where the state has to be looked at.
        ([transfer(BLOCK), transfer(BLOCK)], broken(True, "GETSTATUS"), "GETSTATE DNLOAD/0", True),
    ],
)
def test_a_broken_rule_leaves_what_should_have_come(
    tmp_path: Path, crossings: list[Line], breach: Line, expected: str, goes_on: bool
) -> None:
    updates = read_story([*HEAD, *crossings, breach])
    path = write_scenario(read_id(ID), FIELDS, updates, "broken: a rule", tmp_path)
    (scenario,) = read_scenario(path)
    (wanted,) = [step["expect"] for step in scenario.steps if "expect" in step]
    assert wanted["cameras"] == [{"firmware": ["none", "old", "image"]}]
    # What the failing run did does not hold; what should have come does.
    pattern = compile_pattern(wanted["transfers"])
    assert not pattern.fullmatch(spell(event for event in [*HEAD, *crossings] if event["event"] == "transfer"))
    right = expected + (" EMPTY/1 GETSTATUS GETSTATUS! " if breach["next"] == "EMPTY" else " ")
    assert bool(pattern.fullmatch(right)) == (breach["next"] != "GETSTATUS")
    assert bool(pattern.fullmatch(f"{expected} GETSTATUS DNLOAD/1 GETSTATUS EMPTY/2 GETSTATUS ")) == (
        goes_on and breach["next"] == "GETSTATUS"
    )


def test_without_a_fault_a_camera_has_to_be_updated(tmp_path: Path) -> None:
    fields = {**FIELDS, "updates": [{**FIELDS["updates"][0], "faults": []}]}
    updates = read_story([*HEAD, broken(False, "EMPTY")])
    path = write_scenario(read_id("kv400.402x1"), fields, updates, "broken: a", tmp_path)
    (scenario,) = read_scenario(path)
    assert [step["expect"] for step in scenario.steps if "expect" in step] == [{"result": "updated", "camera": 0}]


def test_a_rule_that_is_broken_before_the_question_does_not_spare_the_update(tmp_path: Path) -> None:
    fields = {**FIELDS, "updates": [{**FIELDS["updates"][0], "faults": []}]}
    updates = read_story([{"event": "update", "camera": 0, "number": 1}, command(16), broken(True, "")])
    (scenario,) = read_scenario(write_scenario(read_id("kv400.402x1"), fields, updates, "broken: a rule", tmp_path))
    assert scenario.steps == ({"accept": 0}, {"expect": {"result": "updated", "camera": 0}}, {"take away": 0})


@pytest.mark.parametrize(
    ("faults", "steps"),
    [
        ([], ({"accept": 0}, {"expect": {"result": "updated", "camera": 0}}, {"take away": 0})),
        (FIELDS["updates"][0]["faults"],
         ({"plug": 0}, "settle", {"expect": {"cameras": [{"firmware": ["none", "old", "image"]}]}}, {"take away": 0})),
    ],
)  # fmt: skip
def test_there_is_a_scenario_of_a_trial_that_the_program_died_of(tmp_path: Path, faults: Line, steps: tuple[Line, ...]) -> None:
    fields = {**FIELDS, "updates": [{**FIELDS["updates"][0], "faults": faults}]}
    updates = read_story([{"event": "trial", "id": "kv400.402x1", "faults": []}, {"died": "kv400.402x1"}])
    (scenario,) = read_scenario(write_scenario(read_id("kv400.402x1"), fields, updates, "ERROR: an overflow", tmp_path))
    assert scenario.steps == steps


@pytest.mark.parametrize("trial", [f"{ID}.2r", "kv400.402x1.1gd0-short17.1s"])
def test_there_is_no_scenario_of_an_update_that_begins_otherwise(tmp_path: Path, trial: str) -> None:
    with pytest.raises(ScenarioError, match="comes? back with its power kept"):
        write_scenario(read_id(trial), FIELDS, read_story(TRANSCRIPT), "broken: a rule", tmp_path)
    assert list(tmp_path.iterdir()) == []


def test_a_camera_that_counts_as_updated_has_to_have_the_image(tmp_path: Path) -> None:
    lines = [*HEAD, {"event": "update-end", "how": "updated", "firmware": "none"}, broken(False, "")]
    (scenario,) = read_scenario(write_scenario(read_id(ID), FIELDS, read_story(lines), "broken: a rule", tmp_path))
    assert [step["expect"] for step in scenario.steps if "expect" in step] == [{"cameras": [{"firmware": ["image"]}]}]


def test_no_two_trials_have_the_same_file(tmp_path: Path) -> None:
    ids = ["kv400.2500x1", "kv400.2500x2", "kv400.402x1", "kv400.2500x1" + ".1gs3-time-after" * 30]
    names = {write_scenario(read_id(each), FIELDS, [], "", tmp_path).name for each in ids}
    assert (len(names), max(map(len, names)) < 200) == (4, True)


@pytest.mark.parametrize(
    ("where", "skip", "there"),
    [
        # The second write is the second attempt of the first reading, the third the switch, behind three readings more.
        ("COMMAND-WRITE", 0, 0),
        ("COMMAND-WRITE", 1, 1),
        ("COMMAND-WRITE", 2, 5),
        ("COMMAND-READ", 0, 0),
        ("COMMAND-READ", 1, 4),
        ("GETSTATUS", 2, 2),
    ],
)
def test_a_fault_strikes_what_it_struck_on_linux(tmp_path: Path, where: str, skip: int, there: int) -> None:
    struck = {**FIELDS["updates"][0], "faults": [{"where": where, "what": "stall", "skip": skip}]}
    fields = {**FIELDS, "updates": [struck]}
    path = write_scenario(read_id("kv400.2500x1"), fields, read_story(TRANSCRIPT[:11]), "", tmp_path)
    (fault,) = json.loads(path.read_text(encoding="utf-8"))["stage"]["cameras"][0]["faults"]
    assert fault["skip"] == there


def test_the_campaign_tells_fields_that_make_a_scenario(tmp_path: Path) -> None:
    trial = "first-page-of-two-banks.402x3.1cw0-keep-after.2dn0-pull-mid100-for0"
    fields = fields_of(built(), trial)
    path = write_scenario(read_id(trial), fields, read_story(lines_of(replay(built(), trial).transcript)), "", tmp_path)
    (scenario,) = read_scenario(path)
    assert scenario.stage.cameras[0]["two_banks"]
    assert scenario.stage.cameras[0]["traits"] == {"boot_check": "first page"}
    assert (scenario.stage.cameras[0]["block_ms"], scenario.stage.cameras[0]["manifest_ms"]) == (150, 300)
    stall = {"where": "COMMAND-WRITE", "what": "stall", "skip": 0, "count": 1, "value": 0, "sets_error": False}
    assert fields["updates"][0]["faults"] == [{**stall, "moment": "after"}]
    pull = {"where": "DNLOAD", "what": "unplug", "skip": 0, "count": 0, "value": 100, "sets_error": True}
    assert fields["updates"][1]["faults"] == [{**pull, "moment": "middle"}]
    assert [bytes.fromhex(update["image"])[398:402] for update in fields["updates"]] == [
        bytes([0, 3, 10, 5]), bytes([0, 4, 10, 5]), bytes([0, 5, 10, 5])
    ]  # fmt: skip


def SHARED(machine: Machine) -> ShippedTrials:
    """One process of the service carries as many trials as it can."""
    return ShippedTrials(built(), machine, Programs.of(BUILD))


@pytest.mark.parametrize(
    "trial",
    [
        "kv400.2500x1.1gs3-time-after",
        "two-banks.2500x1.1fw1-pull-mid.2dn2-time-after",
        "first-page.2500x1.1dn1-pull-mid.2cw1-stall",
        # The version is never told: the service asks for it of the camera's other source and at its other arrival, too.
        "kv400.2500x1.1cr0-keep-for0",
    ],
)
def test_a_trial_goes_the_same_way_on_the_executable_that_ships(shared: Shared[ShippedTrials], trial: str) -> None:
    end = shared.get().run(trial)
    assert not end.complaints, "\n".join(end.complaints)
    assert end.requests > 40


@pytest.mark.parametrize(
    ("trial", "why"),
    [
        ("kv400.2500x1.1gs3-time-after", ""),
        ("kv400.2500x1", ""),
        ("stays-in-dfu-mode.2500x1", "stays-in-dfu-mode is back in DFU mode after DETACH"),
        ("kv400.2500x1.1gs3-time.2r", "no scenario lets a camera come back with its power kept"),
        ("kv400.2500x1.1s.1gs3-time", "no scenario lets a camera come back with its power kept"),
    ],
)
def test_says_why_a_trial_is_for_linux_alone(trial: str, why: str) -> None:
    assert why_left_out(trial).partition(", ")[0] == why


def test_all_single_faults_are_told_of_those_that_begin_otherwise_too() -> None:
    every, begin_otherwise = trial_ids(built(), 1, "all", 0), "no scenario lets a camera come back with its power kept"
    assert sum(begin_otherwise in why_left_out(trial) for trial in every) > 4000
    sample = trial_ids(built(), 1, "40", 20)
    assert len(sample) == 60
    assert not any(begin_otherwise in why_left_out(trial) for trial in sample)


@slow
def test_trials_go_the_same_way_on_the_executable_that_ships(shared: Shared[ShippedTrials]) -> None:
    seed = random.SystemRandom().randrange(1 << 30)
    print(f"scripts/faults --wine --quick --seed {seed}")
    trials = [trial for trial in trial_ids(built(), seed, "40", 20) if not why_left_out(trial)]
    complaints = [(trial, complaint) for trial in trials for complaint in shared.get().run(trial).complaints]
    assert complaints == []


def test_refuses_to_play_what_would_never_end_there(shared: Shared[ShippedTrials]) -> None:
    with pytest.raises(ValueError, match="Linux only: stays-in-dfu-mode is back"):
        shared.get().run("stays-in-dfu-mode.2500x1")


@pytest.mark.parametrize(
    ("trial", "said"),
    [("kv400.2500x1.1gs3-time-after", ""), ("kv400.2500x1.1gs99-time-after", "0 of 1 planned faults struck\n"),
     ("kv400.2500x1.1gs3-time-after.2gs99-time", "1 of 2 planned faults struck\n")],
)  # fmt: skip
def test_says_when_a_fault_of_an_id_did_not_strike(trial: str, said: str) -> None:
    played = replay(built(), trial)
    assert (played.status, played.why, played.said) == (0, "", said)


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
    """The rows of no fault and of one, without their seconds."""
    rows = (line for line in text.splitlines() if re.match(r"\| [a-z0-9-]+ \| (?:no fault|one fault[a-z ,]*) \|", line))
    return [row.rpartition(" |")[0].rpartition(" |")[0] for row in rows]


@pytest.mark.parametrize(
    "arguments", [("--replay", "nonsense"), ("--seed", "x"), ("--times", "3"), ("--replay", "kv400.402x1", "--quick"), ("--machine", "x")]
)
def test_says_in_one_line_what_is_wrong_with_the_command_line(arguments: tuple[str, ...]) -> None:
    done = run_script(str(CHECKOUT / "scripts" / "faults"), *arguments, timeout=60)
    assert (done.returncode, done.stdout, done.stderr.count("\n")) == (2, "", 1)
