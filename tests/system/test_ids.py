"""Ids of everything that is played: what they say, what they refuse, and how what fails is made small. Nothing is started."""

import json
import shlex
from collections.abc import Iterator, Sequence
from dataclasses import replace
from pathlib import Path
from typing import Any

import pytest
from support import CHECKOUT, Run, check_refusal, run_script
from veyra_lab.__main__ import main as lab
from veyra_lab.again.digest import digest_of
from veyra_lab.again.smallest import smallest
from veyra_lab.again.transcript import comparable, difference
from veyra_lab.faults.program import built, fields_of
from veyra_lab.faults.trial_id import read_id as read_trial
from veyra_lab.fuzz import input_id
from veyra_lab.fuzz.input_id import FuzzInput
from veyra_lab.fuzz.road import trials_of
from veyra_lab.fuzz.smaller import smaller as smaller_inputs
from veyra_lab.fuzz.target_run import TargetRun
from veyra_lab.replay.play import Play, play_again
from veyra_lab.runner import scenario_id
from veyra_lab.runner.runner import Outcome
from veyra_lab.runner.scenario_id import ScenarioId, find, id_of
from veyra_lab.scenarios.errors import ScenarioError
from veyra_lab.scenarios.files import read_folder, read_scenario
from veyra_lab.scenarios.schema import SCENARIOS
from veyra_lab.scenarios.variant import Variant
from veyra_lab.soak.plan import HARMLESS, RoundId, RoundPlan, plan_of
from veyra_lab.soak.plan import read_id as read_round
from veyra_lab.soak.smaller import make_smaller, same_words
from veyra_lab.soak.smaller import smaller as smaller_rounds
from veyra_lab.traits.kinds import kinds
from veyra_lab.traits.trial_id import find as find_kind
from veyra_lab.traits.trial_id import id_of as id_of_kind
from veyra_lab.wire.events import Event


def test_every_scenario_is_found_by_its_id() -> None:
    variants = read_folder(SCENARIOS)
    ids = [str(id_of(variant, bus)) for variant in variants for bus in ("virtual", "usb")]
    assert len(set(ids)) == 2 * len(variants)
    assert [str(scenario_id.read_id(each)) for each in ids] == ids
    for variant in variants[::20]:
        assert find(id_of(variant, "usb")) == variant


def written(folder: Path, **changed: Any) -> ScenarioId:
    """The id of a scenario of this folder that says the same but for what has changed."""
    content = {"description": "One.", "steps": [{"plug": 0}, "settle"], **changed}
    path = folder / "some.json"
    path.write_text(json.dumps(content), encoding="utf-8")
    (variant,) = read_scenario(path)
    return id_of(variant, "virtual")


def test_a_scenarios_id_changes_with_what_it_does_and_not_with_its_words(tmp_path: Path) -> None:
    first = written(tmp_path)
    assert written(tmp_path, description="Two.", slow=True, rows=["refused"]) == first
    others = [
        written(tmp_path, steps=["settle", {"plug": 0}]),
        written(tmp_path, stage={"image": {"size": 5000, "version": "5.10.3.0", "seed": 1}}),
        written(tmp_path, stage={"cameras": [{"version": "1.2.3.4"}]}),
        written(tmp_path, **{"fresh service": True}),
    ]
    assert len({each.digest for each in (first, *others)}) == 5


def test_a_scenario_that_says_something_else_by_now_is_refused(tmp_path: Path) -> None:
    first = written(tmp_path)
    assert find(first, [tmp_path]).name == "some"
    now = written(tmp_path, steps=["settle"])
    with pytest.raises(ValueError, match=rf"some\.json says something else by now: {now}$"):
        find(first, [tmp_path])
    with pytest.raises(ValueError, match="there is no scenario 'other'"):
        find(replace(first, name="other"), [tmp_path])


def test_what_is_in_an_images_file_is_in_the_id_wherever_the_file_is(tmp_path: Path) -> None:
    image = {"image": {"file": "some.bin"}}
    stages: dict[str, dict[str, Any]] = {
        "stage": {"stage": image},
        "step": {"steps": [image]},
        "step of a step": {"steps": [{"repeat": {"times": 2, "steps": [image]}}]},
    }
    for place, changed in stages.items():
        ids = []
        for folder, content in (("one", b"A" * 500), ("two", b"A" * 500), ("three", b"B" * 500)):
            (tmp_path / folder).mkdir(exist_ok=True)
            (tmp_path / folder / "some.bin").write_bytes(content)
            ids.append(written(tmp_path / folder, **changed))
        assert (ids[0] == ids[1], ids[0] == ids[2]) == (True, False), place


def test_a_steps_image_that_is_not_there_is_told_before_anything_runs(tmp_path: Path) -> None:
    with pytest.raises(ScenarioError, match=r"^some.json: image.file: .*none.bin cannot be read: No such file"):
        written(tmp_path, steps=[{"image": {"file": "none.bin"}}])


def foreign(folder: Path, name: str = "Their_camera", **changed: Any) -> Path:
    """A scenario's file that is none of the laboratory's."""
    path = folder / f"{name}.json"
    path.write_text(json.dumps({"description": "One.", "steps": ["settle"], **changed}), encoding="utf-8")
    return path


class Failing:
    """A machine, or a runner, of which each scenario fails."""

    def __init__(self, *_: object, **__: object) -> None:
        pass

    def __enter__(self) -> "Failing":
        return self

    def __exit__(self, *_: object) -> None:
        pass

    def run(self, variant: Variant) -> Outcome:
        """As the runner does."""
        return Outcome(variant.name, str(id_of(variant, "virtual")), ["late"])


def test_a_scenario_of_another_file_is_told_with_what_plays_it_again(
    run: Run, tmp_path: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    for name in ("sole_use", "Machine", "ScenarioRunner", "up_to_date_programs"):
        monkeypatch.setattr(f"veyra_lab.runner.command.{name}", Failing)
    (tmp_path / "my files").mkdir()
    path = foreign(tmp_path / "my files", "Their_camera", **{"for each": [{"name": "a"}, {"name": "b"}]})
    status, said, errors = run(lambda: lab(["run", str(path), "--keep-going"]))
    assert (status, errors) == (1, "")
    told = [shlex.split(line.partition("again: scripts/lab ")[2]) for line in said.splitlines() if "again: " in line]
    assert len(told) == 2
    played: list[object] = []
    monkeypatch.setattr("veyra_lab.replay.on_windows.of_scenario", lambda variant, bus: played.append(variant))
    monkeypatch.setattr("veyra_lab.replay.command._on_windows", lambda options, opening_of: 0)
    assert [run(lambda words=words: lab(words)) for words in told] == [(0, "", "")] * 2
    assert played == read_scenario(path)


def test_a_file_that_says_something_else_by_now_is_refused(run: Run, tmp_path: Path) -> None:
    path = foreign(tmp_path)
    (variant,) = read_scenario(path)
    told = str(id_of(variant, "virtual"))
    now = foreign(tmp_path, steps=["settle", "settle"])
    because = "Their_camera.json says something else by now: scenario."
    check_refusal(run(lambda: lab(["replay", told, "--file", str(now)])), because)
    other = foreign(tmp_path, "other")
    check_refusal(run(lambda: lab(["replay", told, "--file", str(other)])), "other.json has no scenario 'Their_camera'")
    check_refusal(run(lambda: lab(["replay", "soak.1.1", "--file", str(path)])), "--file goes with one")


@pytest.fixture
def nothing_runs(monkeypatch: pytest.MonkeyPatch) -> None:
    """Whoever is not refused goes no further."""
    monkeypatch.setattr("veyra_lab.runner.command.sole_use", None)


@pytest.mark.usefixtures("nothing_runs")
@pytest.mark.parametrize("name", ["mine.usb", "a b", "größe", ".mine"])
def test_a_name_that_no_id_can_say_is_refused(name: str, run: Run, tmp_path: Path) -> None:
    check_refusal(run(lambda: lab(["run", str(foreign(tmp_path, name))])), f"no id can say '{name}'")


@pytest.mark.usefixtures("nothing_runs")
def test_two_files_of_one_name_are_refused(run: Run, tmp_path: Path) -> None:
    (tmp_path / "other").mkdir()
    paths = [str(foreign(folder)) for folder in (tmp_path, tmp_path / "other")]
    check_refusal(run(lambda: lab(["run", *paths])), "two scenarios are called 'Their_camera'")


def test_digests_do_not_depend_on_the_order_of_fields() -> None:
    assert digest_of({"a": 1, "b": b"x"}) == digest_of({"b": b"x", "a": 1}) != digest_of({"b": b"y", "a": 1})
    assert digest_of({}) == "44136fa355"


def test_each_kind_of_boot_loader_is_found_by_its_id() -> None:
    for number, kind in enumerate(kinds(), 1):
        assert find_kind(id_of_kind(number, kind)) == kind
    with pytest.raises(ValueError, match="kind 1 is another by now: traits.1."):
        find_kind("traits.1.0000000000")


# Rounds of the soak.


def test_a_round_depends_on_its_seed_and_its_number_alone() -> None:
    some = plan_of(RoundId(42, 17))
    assert some == plan_of(read_round("soak.42.17"))
    others = [plan_of(RoundId(42, 18)), plan_of(RoundId(43, 17))]
    assert all((each.cameras, each.image) != (some.cameras, some.image) for each in others)
    assert str(RoundId(42, 17, is_real_time=True)) == "soak.42.17.real-time"
    assert plan_of(read_round("soak.42.17.real-time")).variant().stage.skip_waits is False


def test_rounds_try_what_they_always_tried() -> None:
    plans = [plan_of(RoundId(1, number)) for number in range(1, 3001)]
    faults = [plan.fault for plan in plans]
    assert len(set(faults)) == 17
    assert 600 < faults.count("no fault") < 840  # five of twenty-one
    assert {plan.image["size"] // 5000 for plan in plans} == {1, 2, 3}
    assert {camera["personality"] for plan in plans for camera in plan.cameras} == {"kv400", "busy-first"}
    assert {camera["transfer_size"] for plan in plans for camera in plan.cameras} == {128, 512, 1024, 4096}
    assert {len([camera for camera in plan.cameras if camera["faults"]]) for plan in plans} == {0, 1}
    assert 600 < sum(plan.visitor is not None for plan in plans) < 900
    assert all(plan.visitor != plan.chosen for plan in plans)


def test_rounds_are_scenarios(tmp_path: Path) -> None:
    for number in range(1, 60):
        path = tmp_path / "round.json"
        path.write_text(json.dumps(plan_of(RoundId(5, number)).content()), encoding="utf-8")
        (variant,) = read_scenario(path)
        assert replace(variant, name=str(RoundId(5, number))) == plan_of(RoundId(5, number)).variant()


def round_with(fault: str) -> RoundPlan:
    """The first round of a seed with this fault."""
    return next(plan for plan in map(plan_of, (RoundId(3, number) for number in range(1, 999))) if plan.fault == fault)


@pytest.mark.parametrize(
    ("fault", "steps"),
    [
        ("no fault", ["accept", "expect"]),
        ("error status after a block", ["accept", "expect"]),
        ("toast controller fails", ["accept", "expect"]),
        ("block unanswered", ["accept", "expect"]),
        ("version unknown", ["plug", "settle", "expect"]),
        ("unplugged while the user is asked", ["plug", "unplug", "expect"]),
    ],
)
def test_a_failing_round_is_made_as_small_as_it_goes(fault: str, steps: Sequence[str], tmp_path: Path) -> None:
    some = round_with(fault)
    path, why = make_smaller(some.id, lambda variant: ["steps[9]: flash of camera 2: expected what it came with"], tmp_path)
    assert path is not None
    assert why == "flash: expected what it came with"
    (smallest_round,) = read_scenario(path)
    assert words_of(smallest_round.steps) == steps
    (camera,) = smallest_round.stage.cameras
    assert set(camera) == {"detach_ms", "enumerate_ms", "reset_ms", "two_banks", "faults"}
    assert [each.get("skip", 0) for each in camera["faults"]] == [0] * len(camera["faults"])
    wanted = "image" if fault in HARMLESS else "old"
    assert smallest_round.steps[-1]["expect"]["cameras"][0]["flash"] == wanted
    assert str(some.id) in smallest_round.description


def words_of(steps: Sequence[Any]) -> list[str]:
    """The steps' names."""
    return [step if isinstance(step, str) else next(iter(step)) for step in steps]


def test_what_fails_at_the_answer_alone_keeps_it(tmp_path: Path) -> None:
    """An answer can only be given to a question, and nobody has asked until the service has come to rest."""

    def play(variant: Variant) -> list[str]:
        words = words_of(variant.steps)
        asked = "settle" in words[: words.index("unplug")]
        return ["end: the service's process is gone"] if asked and "answer" in words else []

    path, _ = make_smaller(round_with("unplugged while the user is asked").id, play, tmp_path)
    assert path is not None
    (smallest_round,) = read_scenario(path)
    assert words_of(smallest_round.steps) == ["plug", "settle", "unplug", "answer", "expect"]


def test_a_round_that_holds_alone_is_not_written(tmp_path: Path) -> None:
    assert make_smaller(RoundId(3, 1), lambda variant: [], tmp_path) == (None, "")
    assert list(tmp_path.iterdir()) == []


def test_a_fault_stays_in_a_smaller_round_and_strikes_in_a_block_that_is_there() -> None:
    some = round_with("block unanswered")
    alone = replace(some, visitor=None, cameras=(some.cameras[some.chosen],), chosen=0)
    for each in (*smaller_rounds(some), *smaller_rounds(alone)):
        (struck,) = [fault for camera in each.cameras for fault in camera["faults"]]
        size = each.cameras[each.chosen].get("transfer_size", 1024)
        assert size * struck.get("skip", 0) < each.image["size"]


def test_complaints_of_two_sizes_have_the_same_words() -> None:
    seen = "seen 512 bytes of which the first 40 are the image's"
    assert same_words(["steps[1]: gaps of camera 0: expected 0, seen 12"]) == "gaps: expected 0"
    assert same_words([f"steps[7]: flash of camera 2: expected the image, {seen}"]) == "flash: expected the image"
    assert same_words([]) == ""


# Inputs of fuzz targets.


@pytest.mark.parametrize(("content", "said"), [(b"", "empty"), (b"\0\1\2", "AAEC"), (b"\xff\xff", "__8")])
def test_a_short_inputs_id_holds_it(content: bytes, said: str, tmp_path: Path) -> None:
    given = FuzzInput("device_path", content).keep(tmp_path)
    assert str(given) == f"fuzz.device_path.{said}"
    assert list(tmp_path.iterdir()) == []
    assert input_id.read_id(str(given), tmp_path) == given


def test_a_long_inputs_id_names_its_file(tmp_path: Path) -> None:
    given = FuzzInput("device_path", b"x" * 97).keep(tmp_path)
    (path,) = tmp_path.iterdir()
    assert str(given) == f"fuzz.device_path.file.{path.name}"
    assert input_id.read_id(str(given), tmp_path) == given


def test_an_inputs_file_that_has_other_bytes_is_refused(tmp_path: Path) -> None:
    given = FuzzInput("conversation", b"y" * 100).keep(tmp_path)
    (path,) = tmp_path.iterdir()
    path.write_bytes(b"z" * 100)
    with pytest.raises(ValueError, match="its bytes would be fuzz.conversation.file."):
        input_id.read_id(str(given), tmp_path)
    path.unlink()
    with pytest.raises(ValueError, match="is not there"):
        input_id.read_id(str(given), tmp_path)


def test_what_fails_is_made_as_small_as_it_goes() -> None:
    def why(given: FuzzInput) -> str:
        return "odd" if any(byte % 2 for byte in given.content) else ""

    found, words = smallest(FuzzInput("conversation", bytes(range(40))), why, smaller_inputs)
    assert (len(found.content), found.content[0] % 2, words) == (1, 1, "odd")
    assert smallest(FuzzInput("conversation", b"\2"), why, smaller_inputs) == (FuzzInput("conversation", b"\2"), "")


SETTINGS = {"transfer_size": 64, "image": 130, "connected": True}


def answer(request: int, block: int, how: str, look: int = 0, value: int = 0, states: int = 1) -> dict[str, Any]:
    """What the target tells of an answer."""
    return {"request": request, "states": states, "block": block, "look": look, "how": how, "value": value}


def test_answers_of_a_conversation_are_faults_of_a_trial() -> None:
    told = [answer(5, 0, "state", value=10, states=0), answer(1, 1, "fails"), answer(3, 1, "status", look=0, value=3)]
    trials = [str(trial) for trial in trials_of([SETTINGS, *told])]
    assert trials[0] == "kv400.2560x1"
    assert trials[1] == "kv400.2560x1.1ge0-state10.1dn1-stall.1gs2-code3"
    assert {"kv400.2560x1.1dn1-stall", "kv400.2560x1.1gs2-code3", "kv400.2560x1.1dn0-stall"} <= set(trials)
    assert [str(read_trial(each)) for each in trials] == trials
    assert all(fields_of(built(), each) for each in trials)


def test_the_same_answer_again_and_again_is_one_fault() -> None:
    told = [answer(3, 0, "fails", look=look) for look in range(26)]
    trials = [str(trial) for trial in trials_of([SETTINGS, *told])]
    assert {"kv400.2560x1.1gs0-keep-for26", "kv400.2560x1.1gs0-keep-for0"} <= set(trials)


@pytest.mark.parametrize("settings", [{"connected": False}, {"transfer_size": 0}])
def test_a_conversation_that_no_camera_has_is_no_trial(settings: dict[str, Any]) -> None:
    assert list(trials_of([{**SETTINGS, **settings}])) == []


@pytest.mark.parametrize("text", ["nocamera.2500x1", "kv400.401x1", "kv400.2500x1.1zz0-stall", "kv400.2500x1.1dn0-melt"])
def test_words_of_a_trial_that_mean_nothing_are_refused(text: str) -> None:
    with pytest.raises(ValueError, match="is not the id of a trial"):
        fields_of(built(), text)


# Transcripts.


def events(*, pid: int = 1, swapped: bool = False, data: str = "00") -> Iterator[Event]:
    """A few, of two processes."""
    both = [
        {"event": "camera", "source": "rig", "change": "running", "pid": pid},
        {"event": "prompt-call", "source": "toast", "method": "NotifyComplete", "pid": pid + 1, "t": pid * 0.1},
    ]
    yield from reversed(both) if swapped else both
    yield {"event": "transfer", "source": "rig", "data": data, "ms": 200, "t": 0.5 * pid}
    yield {"event": "handled", "source": "rig", "result": 0, "ms": pid, "us": 0.1 * pid}
    text = f"The service listens for the user's answer (cookie {pid})"
    yield {"event": "service-status", "source": "rig", "words": [16, 3, 5, 0, 0, 3 * pid, 0]}
    yield {"event": "trace", "source": "rig", "text": text, "arguments": [f"{pid:02}000000"]}


def test_transcripts_are_the_same_but_for_times_processes_and_who_was_quicker() -> None:
    assert comparable(events()) == comparable(events(pid=7, swapped=True))
    words = difference(comparable(events()), comparable(events(data="01")))
    assert words.startswith("line 3 was service: ")
    assert '"ms": 200' in "".join(comparable(events()))
    assert difference(["a"], ["a", "b"]) == "line 2 was nothing and is now b"


def test_a_play_that_goes_another_way_is_told_and_kept(tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setattr("veyra_lab.replay.play._FOLDER", tmp_path)
    ways = iter([["a", "b"]] * 3 + [["a", "c"]])
    told: list[int] = []
    end = play_again("soak.1/2", lambda: Play([], next(ways), "said"), 9, told.append)
    assert told == [1, 2]
    assert "play 4 is another than the first: line 2 was b and is now c" in end.complaints[0]
    assert sorted(path.name for path in tmp_path.iterdir()) == ["soak.1-2.3.txt", "soak.1-2.first.txt"]


@pytest.mark.parametrize(
    ("ends", "words"),
    [
        ([["a wrong flash"], []], "the first failed: a wrong flash, and this one held"),
        ([[], ["late"]], "the first held, and this one failed: late"),
        ([["late"], ["a wrong flash"]], "the first failed: late, and this one failed: a wrong flash"),
    ],
)
def test_a_play_that_ends_another_way_is_told_though_it_goes_the_same_way(
    ends: list[list[str]], words: str, tmp_path: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    monkeypatch.setattr("veyra_lab.replay.play._FOLDER", tmp_path)
    left = iter(ends)
    end = play_again("soak.1.2", lambda: Play(next(left), ["a"], "said"), 9, lambda number: None)
    assert (*ends[1], f"play 2 is another than the first: {words}") == (
        *end.complaints[:-1], end.complaints[-1].partition(" (")[0],
    )  # fmt: skip
    assert end.times_more == 0


@pytest.mark.parametrize(
    ("why", "status", "said"), [("", 0, "2 times more the same"), ("odd", 1, "failed the same way 2 times more")]
)
def test_an_input_is_played_as_often_as_it_is_judged(
    why: str, status: int, said: str, run: Run, monkeypatch: pytest.MonkeyPatch
) -> None:
    plays: list[FuzzInput] = []

    def play(given: FuzzInput) -> TargetRun:
        plays.append(given)
        return TargetRun([], ["what it does"], why)

    monkeypatch.setattr("veyra_lab.fuzz.target_run.play", play)
    ended, lines, errors = run(lambda: lab(["replay", "fuzz.device_path.AAEC", "--times", "2"]))
    assert (ended, errors, len(plays)) == (status, "", 3)
    assert lines.startswith("what it does\n")
    assert lines.rstrip().endswith(f": fuzz.device_path.AAEC: 3 bytes for device_path, and {said}")


@pytest.mark.parametrize(
    "text",
    ["", "nonsense", "kv400.2500x1.1zz3-time", "scenario.two-cameras.0123456789", "scenario.none.0123456789", "soak.1",
     "soak.1.0", "soak.01.1", "traits.99999.0123456789", "traits.1.0123456789", "fuzz.none.AA", "fuzz.conversation.A",
     "fuzz.trial.file.0123456789abcdef", "stays-in-dfu-mode.2500x1"],
)  # fmt: skip
def test_says_in_one_line_that_an_id_cannot_be_played(text: str) -> None:
    done = run_script(str(CHECKOUT / "scripts" / "lab"), "replay", text, timeout=60)
    assert (done.returncode, done.stdout, done.stderr.count("\n")) == (2, "", 1)


@pytest.mark.parametrize("id_", ["kv400.2500x1.1gs3-time-after", "fuzz.device_path.AAEC"])
@pytest.mark.parametrize("option", ["--transcript", "--programs", "--machine"])
def test_refuses_options_that_linux_would_not_look_at(run: Run, tmp_path: Path, id_: str, option: str) -> None:
    on = ["--on", "linux"] if id_.startswith("kv400") else []
    check_refusal(run(lambda: lab(["replay", id_, *on, option, str(tmp_path / "new")])), "executable that ships")
    assert list(tmp_path.iterdir()) == []
