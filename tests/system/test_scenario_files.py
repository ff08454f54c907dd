"""Scenario files, without a machine: what the reader takes, and what it says to what it does not take."""

import json
import re
from pathlib import Path
from typing import Any

import pytest
from jsonschema import Draft7Validator
from support import CHECKOUT
from veyra_lab.judgement.checks import CHECKS
from veyra_lab.judgement.results import RESULTS
from veyra_lab.runner.run import CLASSES, EVENT_TYPES, PLAIN_STEPS, STEPS_WITH_ARGUMENT
from veyra_lab.scenarios.errors import ScenarioError
from veyra_lab.scenarios.files import read_folder, read_named, read_scenario
from veyra_lab.scenarios.schema import SCENARIOS, SCHEMA, check_as_written
from veyra_lab.scenarios.transfer_pattern import compile_pattern, shortened, spell
from veyra_lab.windows.image import version_of

GOOD: dict[str, Any] = {"description": "Something happens.", "steps": ["settle"]}


class TestScenarioFiles:
    @pytest.fixture(autouse=True)
    def prepare(self, tmp_path: Path) -> None:
        self.folder = tmp_path

    def write(self, content: Any, name: str = "some-scenario.json") -> Path:
        path = self.folder / name
        path.write_text(content if isinstance(content, str) else json.dumps(content), encoding="utf-8")
        return path

    def chosen(self, *names: str) -> list[str]:
        return [variant.name for variant in read_named(self.folder, names)]

    def complaint(self, content: Any) -> str:
        with pytest.raises(ScenarioError) as caught:
            read_scenario(self.write(content))
        assert "\n" not in str(caught.value)
        return str(caught.value)

    def step(self, step: Any) -> str:
        return self.complaint({**GOOD, "steps": ["settle", step]})

    def test_reads_a_file_that_says_little(self) -> None:
        (variant,) = read_scenario(self.write(GOOD))
        assert (variant.name, variant.description) == ("some-scenario", "Something happens.")
        assert not variant.slow
        assert variant.steps == ("settle",)
        assert variant.stage.cameras == ({},)
        assert variant.stage.update_mode == "Service Controlled"
        image = variant.stage.image.content
        assert image is not None
        assert (len(image), version_of(image)) == (5000, "5.10.3.0")

    def test_reads_the_rows(self) -> None:
        items = [{"name": "one", "rows": ["refused"]}, {"name": "two", "rows": ["unasked", "block-failed"]}]
        variants = read_scenario(self.write({**GOOD, "rows": "$rows", "for each": items}))
        assert [variant.rows for variant in variants] == [("refused",), ("unasked", "block-failed")]
        assert "rows[0]: 'too-bad' is not one of" in self.complaint({**GOOD, "rows": ["too-bad"]})
        assert "rows: [] " in self.complaint({**GOOD, "rows": []})

    def test_makes_a_variant_of_each_line(self) -> None:
        items = [
            {"name": "first", "size": 402, "times": 2, "steps": ["settle"]},
            {"name": "second", "size": 8192, "times": 3, "steps": [{"plug": 0}]},
        ]
        content = {
            "description": "An image of $size bytes.",
            "for each": items,
            "stage": {"image": {"size": "$size"}},
            "steps": [{"repeat": {"times": "$times", "steps": "$steps"}}],
        }
        first, second = read_scenario(self.write(content))
        assert (first.name, second.name) == ("some-scenario/first", "some-scenario/second")
        assert first.description == "An image of 402 bytes."
        assert second.stage.image.content is not None
        assert len(second.stage.image.content) == 8192
        assert second.steps == ({"repeat": {"times": 3, "steps": [{"plug": 0}]}},)

    def test_tells_why_a_real_bus_cannot_have_it(self) -> None:
        items = [{"name": "here-alone", "not on usb": "virtual time"}, {"name": "anywhere"}]
        variants = read_scenario(self.write({**GOOD, "for each": items}))
        assert [each.not_on_usb for each in variants] == ["virtual time", ""]
        variants = read_scenario(self.write({**GOOD, "not on usb": "sizes", "for each": items}))
        assert [each.not_on_usb for each in variants] == ["virtual time", "sizes"]
        assert "not on usb: '' is not a text that says something" in self.complaint({**GOOD, "not on usb": ""})
        assert "for each[0].not on usb" in self.complaint({**GOOD, "for each": [{**items[0], "not on usb": True}]})

    def test_leaves_single_items_to_the_long_run(self) -> None:
        items = [{"name": "every-day"}, {"name": "now-and-then", "slow": True}]
        assert [each.slow for each in read_scenario(self.write({**GOOD, "for each": items}))] == [False, True]
        assert [each.slow for each in read_scenario(self.write({**GOOD, "slow": True, "for each": items}))] == [True, True]
        assert "for each[1].slow" in self.complaint({**GOOD, "for each": [items[0], {**items[1], "slow": "yes"}]})

    def test_joins_a_descriptor_that_is_told_in_pieces(self) -> None:
        pieces = ["09 02", {"bytes": "03ff00", "times": 2}]
        (variant,) = read_scenario(self.write({**GOOD, "stage": {"cameras": [{"configuration_descriptor": pieces}]}}))
        assert variant.stage.cameras[0]["configuration_descriptor"] == "09 0203ff0003ff00"

    def test_makes_the_same_image_again(self) -> None:
        one, other = (
            read_scenario(self.write({**GOOD, "stage": {"image": {"size": 600, "seed": seed}}}))[0].stage.image.content
            for seed in (1, 2)
        )
        (again,) = read_scenario(self.write({**GOOD, "stage": {"image": {"size": 600, "seed": 1}}}))
        assert again.stage.image.content == one
        assert one != other

    def test_names_the_file_and_what_is_no_json(self) -> None:
        assert re.search(r"^some-scenario\.json: .*line 1", self.complaint("{"))
        assert "there twice" in self.complaint('{"description": "a", "description": "b", "steps": []}')
        assert "file: [] is not a scenario" in self.complaint("[]")

    def test_names_unknown_and_missing_fields(self) -> None:
        assert re.search("file: .*'step' was unexpected.*; known are: .*, steps$", self.complaint({**GOOD, "step": []}))
        assert "file: 'steps' is a required property" in self.complaint({"description": "a"})
        assert re.search("stage: .*'camera' was unexpected.*cameras", self.complaint({**GOOD, "stage": {"camera": []}}))
        fault = {"where": "DNLOAD"}
        complaint = self.complaint({**GOOD, "stage": {"cameras": [{"faults": [fault]}]}})
        assert "stage.cameras[0].faults[0]: 'what' is a required property" in complaint

    def test_names_values_of_a_wrong_type(self) -> None:
        for field, value in {
            "version": "1.2.3",
            "transfer_size": 65536,
            "block_ms": "5",
            "two_banks": 1,
            "page_size": 0,
            "personality": "kind",
            "nodes": ["other"],
            "link_length": -1,
            "configuration_descriptor": "0",
            "reset_ms": 1.0,
            "link_case": None,
            "speed": "warp",
            "listed_as": "camera",
            "unplug_error": 5,
            "removal_notices": "never",
        }.items():
            complaint = self.complaint({**GOOD, "stage": {"cameras": [{field: value}]}})
            assert f"stage.cameras[0].{field}" in complaint
            assert re.search(" is (not|greater than|less than) ", complaint)
        assert "A.B.C.D" in self.complaint({**GOOD, "stage": {"cameras": [{"version": "1.2.3.4\n"}]}})
        assert "stage.image" in self.complaint({**GOOD, "stage": {"image": "gone"}})
        assert "stage.image.size" in self.complaint({**GOOD, "stage": {"image": {"size": -1}}})
        assert "slow: 'yes' is not of type 'boolean'" in self.complaint({**GOOD, "slow": "yes"})

    def test_names_steps_that_it_does_not_know(self) -> None:
        assert "steps[1]: 'dance' is not one of ['settle', " in self.step("dance")
        assert re.search(r"steps\[1\]: .*'dance' was unexpected.*; known are: plug, ", self.step({"dance": 1}))
        assert "an object with one field" in self.step({"plug": 0, "unplug": 0})
        assert "an object with one field" in self.step(5)
        assert "steps[1].plug: True" in self.step({"plug": True})
        assert "steps[1].wait for" in self.step({"wait for": "camera 0 asleep"})
        assert "steps[1].repeat.steps[0]" in self.step({"repeat": {"times": 2, "steps": ["dance"]}})
        assert "steps[1].deliver.class" in self.step({"deliver": {"type": "arrival", "class": "mouse"}})

    def test_names_what_the_toast_controller_cannot_do(self) -> None:
        for fields in (
            {},
            {"ms": 5},
            {"skip": 1},
            {"hresult": -1},
            {"fail": "NotifyProgress", "hang": "NotifyProgress"},
            {"fail": "NotifyProgress", "ms": 5},
            {"fail": "NotifyProgress", "skip": 1},
            {"hang": "NotifyProgress", "hresult": -1},
        ):
            complaint = self.step({"toast controller": fields})
            assert f"steps[1].toast controller: {fields} is not " in complaint
            assert '"fail" and perhaps "hresult", or with "hang"' in complaint
        assert "steps[1].toast controller: 'dance' is not one of" in self.step({"toast controller": "dance"})
        assert re.search("'stop' was unexpected.*; known are: fail, hang", self.step({"toast controller": {"stop": 1}}))
        assert "toast controller.hang: 'Stop' is not one of" in self.step({"toast controller": {"hang": "Stop"}})

    def test_names_expectations_that_mean_nothing(self) -> None:
        for field, value in {
            "result": "fine",
            "transfers": "GETSTATE (DNLOAD",
            "traces": ["update"],
            "requests": {"DNLOAD": "many"},
            "cameras": [{"mode": "away"}],
            "service": "paused",
            "completions": -1,
        }.items():
            assert f"steps[1].expect.{field}" in self.step({"expect": {field: value}})
        assert "'transfer' was unexpected" in self.step({"expect": {"transfer": "none"}})
        assert "steps[1].expect: 'result' is a dependency of 'camera'" in self.step({"expect": {"camera": 0}})
        assert "a parenthesis is not closed" in self.step({"expect": {"transfers": "GETSTATE (DNLOAD"}})

    def test_names_parameters_that_do_not_fit(self) -> None:
        assert '"$size"' in self.complaint({**GOOD, "stage": {"image": {"size": "$size"}}})
        items = [{"name": "a", "size": 5}]
        assert '"size" of "a" is never used' in self.complaint({**GOOD, "for each": items})
        assert "the same name" in self.complaint({**GOOD, "for each": [{"name": "a"}, {"name": "a"}]})
        assert "for each[0].name" in self.complaint({**GOOD, "for each": [{"name": "Not So"}]})

    def test_chooses_by_name(self) -> None:
        items = [{"name": "one"}, {"name": "two"}]
        self.write({**GOOD, "for each": items}, "many.json")
        self.write(GOOD, "single.json")
        assert [each.name for each in read_folder(self.folder)] == ["many/one", "many/two", "single"]
        assert self.chosen("many") == ["many/one", "many/two"]
        assert self.chosen("many/two", "single", "many/two") == ["many/two", "single"]
        for unknown in ("man", "many/three", "many/", "../single"):
            with pytest.raises(ScenarioError, match=f"no scenario '{unknown}'"):
                self.chosen("single", unknown)

    def test_looks_at_no_other_file(self) -> None:
        self.write(GOOD, "single.json")
        self.write("{", "broken.json")
        assert self.chosen("single") == ["single"]
        with pytest.raises(ScenarioError, match="broken.json"):
            read_folder(self.folder)


class TestScenariosOfTheProject:
    def test_scenarios_can_all_be_read_and_use_every_step(self) -> None:
        variants = read_folder(SCENARIOS)
        assert len(variants) > 100
        names = [variant.name for variant in variants]
        assert len(set(names)) == len(names)
        used: set[str] = set()

        def note(steps: Any) -> None:
            for step in steps:
                used.add(step if isinstance(step, str) else next(iter(step)))
                if isinstance(step, dict) and "repeat" in step:
                    note(step["repeat"]["steps"])

        for variant in variants:
            note(variant.steps)
        assert {*PLAIN_STEPS, *STEPS_WITH_ARGUMENT} - used == set()

    @pytest.mark.parametrize("path", sorted(SCENARIOS.glob("*.json")), ids=lambda path: path.stem)
    def test_scenarios_name_their_schema_and_satisfy_it_as_they_are_written(self, path: Path) -> None:
        """Their parameters, too: an editor, which knows nothing of them, has nothing to complain about."""
        content = json.loads(path.read_text(encoding="utf-8"))
        if path.name == "scenario.schema.json":
            Draft7Validator.check_schema(content)
        else:
            assert content["$schema"] == "./scenario.schema.json"
            check_as_written(content)

    def test_rows_are_those_of_the_table_for_operators(self) -> None:
        operations = (CHECKOUT / "docs" / "operations.md").read_text(encoding="utf-8")
        table = operations.partition("## From symptom to cause")[2].partition("\n## ")[0]
        named = re.findall(r"^\| `([a-z-]+)` \|", table, re.MULTILINE)
        assert len(named) == len(set(named))
        assert SCHEMA["definitions"]["rows"]["else"]["items"]["enum"] == named

    def test_every_scenario_says_which_rows_it_is(self) -> None:
        assert [variant.name for variant in read_folder(SCENARIOS) if not variant.rows] == []

    def test_a_third_of_the_files_is_held_back(self) -> None:
        held_back = (SCENARIOS / "held-back.txt").read_text(encoding="utf-8").split()
        files = {path.stem for path in SCENARIOS.glob("*.json")} - {"scenario.schema"}
        assert held_back == sorted(held_back)
        assert set(held_back) <= files
        assert len(held_back) == 36

    def test_schema_has_the_words_that_mean_something(self) -> None:
        definitions = SCHEMA["definitions"]
        step = definitions["step"]["else"]
        assert set(step["then"]["enum"]) == set(PLAIN_STEPS)
        assert set(step["else"]["properties"]) == set(STEPS_WITH_ARGUMENT)
        delivery = step["else"]["properties"]["deliver"]["else"]["properties"]
        assert set(delivery["class"]["else"]["enum"]) == set(CLASSES)
        assert set(delivery["type"]["else"]["then"]["enum"]) == set(EVENT_TYPES)
        expectation = definitions["expectation"]["else"]["properties"]
        assert set(expectation) == {*CHECKS, "result", "camera", "growth"}
        assert set(expectation["result"]["else"]["enum"]) == set(RESULTS)


def transfer(request: int, value: int = 0, length: int = 6, ok: bool = True) -> dict[str, Any]:
    setup = bytes([0xA1, request]) + b"".join(number.to_bytes(2, "little") for number in (value, 0, length))
    return {"event": "transfer", "setup": setup.hex(" "), "ok": ok}


class TestTransferPatterns:
    def check(self, pattern: str, words: str, fits: bool = True) -> None:
        assert bool(compile_pattern(pattern).fullmatch(words)) == fits

    def test_patterns_spell_transfers(self) -> None:
        transfers = [transfer(5), transfer(1, 3, 64), transfer(1, 4, 0, ok=False), transfer(9)]
        assert spell(transfers) == "GETSTATE DNLOAD/3 EMPTY/4! REQUEST-9 "

    def test_patterns_fit_whole_sequences_only(self) -> None:
        self.check("GETSTATE DETACH", "GETSTATE DETACH ")
        self.check("GETSTATE", "GETSTATE DETACH ", fits=False)
        self.check("GETSTATE DETACH", "GETSTATE ", fits=False)
        self.check("", "")

    def test_patterns_count(self) -> None:
        self.check("(DNLOAD GETSTATUS+)x2 EMPTY", "DNLOAD/0 GETSTATUS GETSTATUS DNLOAD/1 GETSTATUS EMPTY/2 ")
        self.check("(DNLOAD GETSTATUS)x2", "DNLOAD/0 GETSTATUS ", fits=False)
        self.check("GETSTATUS*", "")
        self.check("GETSTATUS+", "", fits=False)
        self.check("GETSTATUSx3", "GETSTATUS GETSTATUS GETSTATUS ")

    def test_patterns_tell_blocks_and_failures(self) -> None:
        self.check("DNLOAD/2", "DNLOAD/2 ")
        self.check("DNLOAD/2", "DNLOAD/22 ", fits=False)
        self.check("DNLOAD", "DNLOAD/2! ", fits=False)
        self.check("DNLOAD!", "DNLOAD/2! ")
        self.check("DNLOAD? GETSTATUS?+", "DNLOAD/2! GETSTATUS GETSTATUS! ")

    def test_patterns_refuse_what_is_none(self) -> None:
        for pattern in ("DOWNLOAD", "(DNLOAD", "DNLOAD)", "DNLOAD/x", "(x3 DNLOAD)", "DNLOADx"):
            with pytest.raises(ValueError):
                compile_pattern(pattern)

    def test_patterns_shorten_long_sequences(self) -> None:
        assert shortened("") == "nothing"
        assert shortened("GETSTATE DETACH ") == "GETSTATE DETACH"
        assert re.search(r"^(GETSTATUS ){12}\.\.\.\(76 more\)\.\.\.( GETSTATUS){12}$", shortened("GETSTATUS " * 100))
