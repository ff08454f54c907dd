"""From what a fuzz target or the campaign finds to its id, the smallest that does the same, and the scenario. Stand-ins
break the promises; nothing is built."""

import json
import re
import subprocess
import sys
from collections.abc import Iterator
from pathlib import Path

import pytest
from support import CHECKOUT, Run
from veyra_lab.faults.__main__ import run as run_campaign
from veyra_lab.fuzz import target_run
from veyra_lab.fuzz.find import tell_find
from veyra_lab.fuzz.input_id import FuzzInput
from veyra_lab.runner.scenario_id import id_of_file
from veyra_lab.scenarios.files import read_scenario
from veyra_lab.terminal.set_up import SetUpError

sys.path.insert(0, str(CHECKOUT / "scripts"))

from workbench.fuzz import Outcome  # noqa: E402
from workbench.fuzz import main as fuzz_main  # noqa: E402

# A target: each byte of its input that is not 0 refuses the block of that number, and a 7 among them breaks a promise; of
# the target "trial" it is the id of a trial that is told.
_TARGET = r"""#!/usr/bin/env python3
import json, os, sys
content = open(sys.argv[-1], "rb").read()
target = os.path.basename(sys.argv[0])
if target == "trial":
    print(json.dumps({"trial": f"kv400.2500x1.1gs3-time.1dn{len(content)}-pull"}))
elif target == "conversation":
    print(json.dumps({"transfer_size": 64, "image": 130, "connected": True}))
    for block, byte in enumerate(content):
        if byte:
            told = {"request": 1, "states": 1, "block": block, "look": 0, "how": "fails", "value": 0}
            print(json.dumps(told))
sys.stdout.flush()
print("INFO: Seed: 4711", file=sys.stderr)
print(f"==12== ran at 0x7ffd in 3 ms, Seed: 99, pid=12 in {os.getcwd()}", file=sys.stderr)
if 7 in content and not os.path.exists(os.path.join(os.path.dirname(sys.argv[0]), "holds")):
    where = "scripts/faults --replay kv400.2500x1: " if target == "trial" else ""
    print(f"broken promise: {where}broken: a block is sent again; written to ./crash-00", file=sys.stderr)
    print("Shadow bytes around the buggy address:\n  0x0c: fa fa", file=sys.stderr)
    sys.exit(77)
"""

# A campaign: a trial with a fault of a block breaks a rule.
_CAMPAIGN = r"""#!/usr/bin/env python3
import json, os, sys
def tell(**line):
    print(json.dumps(line))
breaks = "dn" in sys.argv[2] and not os.path.exists(os.path.join(os.path.dirname(sys.argv[0]), "right"))
if sys.argv[1] == "run":
    if sys.argv[2] == "0":
        for trial in ("kv400.2500x1.1dn0-pull", "kv400.2500x1.1gs0-short0"):
            tell(failure=trial, why="broken: the rule of the day")
    tell(end=True, reasons={})
    sys.exit(sys.argv[2] == "0")
if sys.argv[1] == "fields":
    camera = {"personality": "kv400", "transfer_size": 1024}
    fault = {"where": "DNLOAD", "what": "stall", "skip": 0}
    tell(cameras=[camera, camera], updates=[{"image": "01" * 2500, "faults": [fault]}])
    sys.exit()
tell(event="update", camera=0, number=1)
for opcode in (16, 30):
    tell(event="firmware-command", length=20, magic=1, opcode=opcode, parameters=[0], result=0)
    tell(event="firmware-reply", opcode=opcode, bytes=1024, result=0)
tell(event="transfer", setup="a1 05 00 00 00 00 01 00", transferred=1, ok=True, error=0, data="02")
if breaks:
    tell(event="transfer", setup="21 01 00 00 00 00 00 04", transferred=0, ok=False, error=31, data="")
    tell(event="broken", by_crossing=True, next="")
tell(event="judgement", held=not breaks, why="broken: a block is sent again" if breaks else "")
sys.exit(breaks)
"""


@pytest.fixture
def programs(tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> Path:
    """The folder of the stand-ins; what is written goes to its folder "written"."""
    for name, text in (("conversation", _TARGET), ("trial", _TARGET), ("device_path", _TARGET), ("campaign", _CAMPAIGN)):
        path = tmp_path / name
        path.write_text(text, encoding="utf-8")
        path.chmod(0o755)
    monkeypatch.setattr(target_run, "_bring_up_to_date", lambda target: None)
    monkeypatch.setattr(target_run, "executable", lambda target: tmp_path / target)
    monkeypatch.setattr("veyra_lab.fuzz.find.built", lambda: tmp_path / "campaign")
    monkeypatch.setattr("veyra_lab.fuzz.find.WRITTEN", tmp_path / "written")
    monkeypatch.setattr("veyra_lab.faults.__main__._FOLDER", tmp_path / "written")
    return tmp_path


def check_scenario(folder: Path, trial: str, why: str = "broken: a block is sent again") -> Path:
    """The only file there is a scenario of this trial, in which nothing may come where it broke the rule."""
    (path,) = (folder / "written").iterdir()
    (variant,) = read_scenario(path)
    assert variant.description == f"The trial {trial} of scripts/faults: {why}."
    assert variant.stage.cameras[0]["faults"] == [{"where": "DNLOAD", "what": "stall", "skip": 0}]
    (expected,) = [step["expect"] for step in variant.steps if "expect" in step]
    assert expected["transfers"] == "GETSTATE"
    return path


def test_a_find_of_the_conversation_becomes_a_trial_and_a_scenario(programs: Path) -> None:
    given = FuzzInput("conversation", bytes([1, 7, 0, 9, 9, 9, 9, 9]))
    lines = list(tell_find(given))
    path = check_scenario(programs, "kv400.402x1.1dn0-stall")
    assert lines == [
        "  find: fuzz.conversation.AQcACQkJCQk",
        "    again: scripts/lab replay fuzz.conversation.AQcACQkJCQk",
        "    broken: a block is sent again",
        "    smallest: fuzz.conversation.Bw (1 bytes): broken: a block is sent again",
        "    smallest trial: kv400.402x1.1dn0-stall: 1 faults: broken: a block is sent again",
        "    again: scripts/lab replay kv400.402x1.1dn0-stall --on linux",
        f"    scenario: {path} ({id_of_file(path)})",
    ]


def test_a_find_of_the_trials_becomes_a_smaller_trial_and_a_scenario(programs: Path) -> None:
    lines = list(tell_find(FuzzInput("trial", bytes([7, 7]))))
    path = check_scenario(programs, "kv400.402x1.1dn0-pull")
    assert lines == [
        "  find: fuzz.trial.Bwc",
        "    again: scripts/lab replay fuzz.trial.Bwc",
        "    broken: a block is sent again",
        "    as a trial: kv400.2500x1.1gs3-time.1dn2-pull",
        "    smallest trial: kv400.402x1.1dn0-pull: 1 faults: broken: a block is sent again",
        "    again: scripts/lab replay kv400.402x1.1dn0-pull --on linux",
        f"    scenario: {path} ({id_of_file(path)})",
    ]


def test_a_find_whose_trial_goes_right_is_made_small_as_an_input(programs: Path) -> None:
    (programs / "right").touch()
    assert list(tell_find(FuzzInput("trial", bytes([1, 7, 1]))))[3:] == [
        "    as a trial: kv400.2500x1.1gs3-time.1dn3-pull",
        "    it holds as a trial",
        "    smallest: fuzz.trial.Bw (1 bytes): broken: a block is sent again",
        "    no scenario: alone the trial goes right",
    ]


def test_a_find_that_no_camera_on_the_road_brings_about_is_told_so(programs: Path) -> None:
    (programs / "right").touch()
    *_, last = tell_find(FuzzInput("conversation", bytes([7])))
    assert last.startswith("    no scenario: no camera on the service's road answers so, or ")


def test_a_find_of_a_reader_is_made_small_alone(programs: Path) -> None:
    assert list(tell_find(FuzzInput("device_path", bytes([1, 7]))))[3:] == [
        "    smallest: fuzz.device_path.Bw (1 bytes): broken: a block is sent again",
        "    no scenario: the input goes to one reader alone (device_path), and is no road of the service",
    ]


@pytest.mark.parametrize("target", ["trial", "conversation", "device_path"])
def test_a_find_that_holds_alone_is_told_so(target: str, programs: Path) -> None:
    (programs / "holds").touch()
    assert list(tell_find(FuzzInput(target, bytes([7]))))[2:] == ["    it holds when it is played alone"]
    assert not (programs / "written").exists()


def test_a_trial_that_breaks_something_else_is_told_so(programs: Path) -> None:
    path = programs / "campaign"
    path.write_text(_CAMPAIGN.replace("a block is sent again", "the empty block is missing"), encoding="utf-8")
    lines = list(tell_find(FuzzInput("conversation", bytes([7]))))
    place = lines.index("    smallest trial: kv400.402x1.1dn0-stall: 1 faults: broken: the empty block is missing")
    assert lines[place + 1] == "      other words than the input's: look whether it is the same thing"
    check_scenario(programs, "kv400.402x1.1dn0-stall", "broken: the empty block is missing")


def test_what_a_target_says_is_the_same_each_time(programs: Path) -> None:
    first, second = (target_run.play(FuzzInput("device_path", bytes([7]))) for _ in range(2))
    assert first == second
    assert first.transcript == [
        " ran at , ,  in FOLDER",
        "broken promise: broken: a block is sent again; written to ./crash-00",
    ]
    assert target_run.play(FuzzInput("device_path", b"")).why == ""


@pytest.mark.parametrize(
    ("said", "why"),
    [
        ("", "the program ended with 1"),
        ("==7== ERROR: libFuzzer: timeout after 20 seconds\n", "ERROR: libFuzzer: timeout after 20 seconds"),
        ("broken promise: odd; written to x\n==7==ERROR: AddressSanitizer: ABRT on unknown address 0x0\n", "odd"),
    ],
)
def test_a_targets_end_is_told_in_words(said: str, why: str, programs: Path) -> None:
    text = f"#!/usr/bin/env python3\nimport sys\nsys.stderr.write({said!r})\nsys.exit(1)\n"
    (programs / "device_path").write_text(text, encoding="utf-8")
    assert target_run.play(FuzzInput("device_path", b"x")).why == why


def test_a_runs_log_names_the_input_that_broke_a_promise(tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setattr("workbench.fuzz._FINDS", tmp_path)
    left = tmp_path / f"device_path-crash-{'0a' * 20}"
    left.write_bytes(b"\0\1\2")
    log = tmp_path / "log"
    log.write_text(f"artifact_prefix='{tmp_path}/device_path-'; Test unit written to {left}\n", encoding="utf-8")
    assert Outcome("device_path", log, held=False).find == FuzzInput("device_path", b"\0\1\2")
    assert Outcome("device_path", log, held=True).find is None
    left.unlink()
    assert Outcome("device_path", log, held=False).find is None
    assert str(Outcome("device_path", log, held=False)).endswith(f"a find, see {log}: no input is left")


def test_a_find_that_cannot_be_told_for_want_of_a_build_is_told_in_one_line(
    run: Run, tmp_path: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    def fail(_: FuzzInput) -> Iterator[str]:
        raise SetUpError("setting up failed: scripts/setup build host-sanitize campaign ended with 1")

    left = tmp_path / f"device_path-crash-{'0a' * 20}"
    left.write_bytes(b"\0")
    log = tmp_path / "log"
    log.write_text(f"Test unit written to {left}\n", encoding="utf-8")
    monkeypatch.setattr("workbench.fuzz._FINDS", tmp_path)
    monkeypatch.setattr("workbench.fuzz.call_setup", lambda *_: None)
    monkeypatch.setattr("workbench.fuzz._run", lambda target, *_: Outcome(target, log, held=False))
    monkeypatch.setattr("workbench.fuzz.tell_find", fail)
    status, said, errors = run(fuzz_main, "0", "device_path")
    assert (status, errors.count("\n"), "fuzz.device_path.AA" in said) == (1, 1, True)
    assert errors.startswith("scripts/fuzz: setting up failed: ")


_SEEDED = r"seed (\d+) \(scripts/fuzz (.+) --seed \1 chooses the same\)"


@pytest.mark.parametrize(
    ("words", "seed", "told"),
    [
        (("0",), 1, "0"),
        (("0", "device_path", "--seed", "7"), 7, "0 device_path"),
        (("5", "device_path", "trial", "--seed", "2147483647"), 2147483647, "5 device_path trial"),
        (("5",), None, "5"),
    ],
)
def test_a_fuzz_run_begins_by_telling_the_seed_of_its_choices(
    words: tuple[str, ...], seed: int | None, told: str, run: Run, tmp_path: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    commands = []

    def play(command: list[str], **_: object) -> subprocess.CompletedProcess[str]:
        commands.append(command)
        return subprocess.CompletedProcess(command, 0)

    monkeypatch.setattr("workbench.fuzz._FOLDER", tmp_path)
    monkeypatch.setattr("workbench.fuzz._FINDS", tmp_path / "finds")
    monkeypatch.setattr("workbench.fuzz.call_setup", lambda *_: None)
    monkeypatch.setattr("workbench.fuzz.subprocess.run", play)
    status, said, _ = run(fuzz_main, *words)
    line = re.match(_SEEDED, said)
    assert line and (status, line[2]) == (0, told)
    assert seed in (None, int(line[1]))
    for command in commands:
        given = f"-seed={line[1]}" in command or line[1] in command[command.index("--seed") + 1:]
        assert given, command


@pytest.mark.parametrize("seed", ["0", "2147483648", "-1", "x"])
def test_a_seed_that_libfuzzer_does_not_take_is_refused(seed: str, run: Run) -> None:
    status, said, errors = run(fuzz_main, "5", "--seed", seed)
    assert (status, said, errors.count("\n")) == (2, "", 1)
    assert f"no seed from 1 to 2147483647: {seed}" in errors or seed == "-1"


def test_failures_of_the_campaign_are_told_with_what_they_fail_with_alone(
    programs: Path, capsys: pytest.CaptureFixture[str]
) -> None:
    text = _CAMPAIGN.replace("the rule of the day", "{}").replace(
        'why="broken: {}"', 'why="broken: rule " + trial[-1]'
    )
    (programs / "campaign").write_text(text, encoding="utf-8")
    assert run_campaign(programs / "campaign", quick=True, seed=1) == 1
    lines = capsys.readouterr().out.splitlines()
    path = check_scenario(programs, "kv400.402x1.1dn0-pull")
    place = lines.index("failed: kv400.2500x1.1dn0-pull: broken: rule l")
    assert sorted(lines[place:]) == sorted([
        "failed: kv400.2500x1.1dn0-pull: broken: rule l",
        "failed: kv400.2500x1.1gs0-short0: broken: rule 0",
        "fails otherwise alone: kv400.2500x1.1dn0-pull: broken: a block is sent again",
        "smallest: kv400.402x1.1dn0-pull: broken: a block is sent again",
        "  scripts/faults --replay kv400.402x1.1dn0-pull",
        f"  scenario: {path}",
        "cannot be made smaller: kv400.2500x1.1gs0-short0: it holds when it is played alone",
    ])
    assert json.loads(path.read_text(encoding="utf-8"))["steps"]
