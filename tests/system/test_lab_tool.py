"""scripts/lab as a person and as a script use it, and the ways in which a person is asked."""

import json
import os
import pty
import re
import select
import signal
import subprocess
import sys
from contextlib import nullcontext
from pathlib import Path

import pytest
from support import CHECKOUT, Run, check_refusal, run_script, slow
from transcripts import good, stopped
from veyra_lab import __main__ as lab
from veyra_lab.demo import __main__ as demo
from veyra_lab.runner import command as runner
from veyra_lab.runner import listing
from veyra_lab.scenarios.files import read_folder
from veyra_lab.scenarios.schema import SCENARIOS
from veyra_lab.terminal import set_up
from veyra_lab.windows.machine import MachineError

_LAB = CHECKOUT / "scripts" / "lab"


@pytest.fixture
def transcript(tmp_path: Path) -> Path:
    """A transcript of an update that went well."""
    path = tmp_path / "update.jsonl"
    path.write_bytes(good().text())
    return path


@pytest.fixture
def target(tmp_path: Path) -> Path:
    """Where the page is to go."""
    return tmp_path / "update.html"


class Terminal:
    """A program at a terminal of its own."""

    def __init__(self, *command: str) -> None:
        environment = {**os.environ, "PYTHONPATH": str(CHECKOUT / "lab" / "cli"), "TERM": "xterm"}
        self.shown = ""
        self._pid, self._terminal = pty.fork()
        if self._pid == 0:
            os.execvpe(command[0], command, environment)

    def wait_for(self, text: str) -> None:
        """Reads until the program has shown the text."""
        while text not in self.shown:
            if not self._read():
                raise AssertionError(f"'{text}' was not shown: {self.shown}")

    def type(self, text: str) -> None:
        os.write(self._terminal, text.encode())

    def interrupt(self, until: str) -> None:
        """Ctrl+C, until the program has shown the text or is gone. One that comes between its question and its read
        of the answer is heard only with the next."""
        for _ in range(60):
            self.type("\x03")
            while select.select([self._terminal], [], [], 1)[0]:
                if not self._read() or until in self.shown:
                    return

    def end(self) -> int:
        """Reads the rest; the exit status, negative for a signal."""
        while self._read():
            pass
        os.close(self._terminal)
        return os.waitstatus_to_exitcode(os.waitpid(self._pid, 0)[1])

    def _read(self) -> bool:
        if not select.select([self._terminal], [], [], 60)[0]:
            os.kill(self._pid, signal.SIGKILL)
            return False
        try:
            some = os.read(self._terminal, 1 << 16)
        except OSError:
            return False
        self.shown += some.decode("utf-8", "replace").replace("\r\n", "\n")
        return bool(some)


def test_explains_itself_and_each_subcommand_with_its_exit_status(run: Run) -> None:
    status, text, errors = run(lab.main, "--help")
    assert (status, errors) == (0, "")
    for words in ("report", "Examples:", "Exit status:"):
        assert words in text
    listed = re.findall(r"^    ([a-z]+) ", text, re.MULTILINE)
    assert "report" in listed
    for name in listed:
        status, text, errors = run(lab.main, name, "--help")
        assert (status, errors) == (0, "")
        assert f"usage: scripts/lab {name}" in text
        assert name != "report" or "Examples:" in text and "Exit status:" in text


@pytest.mark.parametrize(
    ("arguments", "because"),
    [
        (["paint"], "paint"),
        ([], "SUBCOMMAND"),
        (["report"], "FILE"),
        (["report", "{transcript}", "--colour"], "--colour"),
        (["report", "{transcript}"], "-o FILE.html"),
        (["report", "/does/not/exist.jsonl", "-o", "{target}"], "cannot be read"),
        (["report", "/proc/sys", "-o", "{target}"], "there is no trace text"),
        (["report", "{transcript}", "/does/not/exist.txt"], "cannot be read"),
        (["report", "{transcript}", "-o", "/does/not/exist/update.html"], "cannot be written"),
        (["report", "{transcript}", "-o", 5000 * "x"], "cannot be written: File name too long"),
        (["report", "{transcript}", "-o", "{transcript}"], "what the page is made from"),
        (["run"], "names of scenarios, --all or --quick"),
        (["run", "--all", "--quick"], "names of scenarios, --all or --quick"),
        (["run", "--all", "two-cameras"], "names of scenarios, --all or --quick"),
        (["run", "two-cameras", "--quick"], "names of scenarios, --all or --quick"),
        (["run", "no-such-scenario"], "no-such-scenario"),
        (["run", "two-cameras", "--bus", "pci"], "pci"),
        (["run", "manifestation-too-long", "--bus", "usb"], "'manifestation-too-long' is not for a real bus: virtual time"),
        (["run", "transfer-size/65535", "--bus", "usb"], "'transfer-size/65535' is not for a real bus: its blocks"),
    ],
    ids=lambda value: " ".join(value)[:80] if isinstance(value, list) else None,
)
def test_refuses(run: Run, transcript: Path, target: Path, arguments: list[str], because: str) -> None:
    before = transcript.read_bytes()
    named = [argument.format(transcript=transcript, target=target) for argument in arguments]
    check_refusal(run(lab.main, *named), because)
    assert not target.exists()
    assert transcript.read_bytes() == before


@pytest.mark.parametrize("content", [b"", b"hello\n", b'{"a":1}\n', bytes(range(256))], ids=len)
def test_says_what_to_do_about_a_file_that_is_no_transcript(
    run: Run, transcript: Path, target: Path, content: bytes
) -> None:
    transcript.write_bytes(content)
    check_refusal(run(lab.main, "report", str(transcript), "-o", str(target)), "scripts/demo --transcript")
    assert not target.exists()


@pytest.mark.parametrize(
    "content", [b"\xff\xfe\n", b"hello\n", b"[]\n", b'{"a":1}\n', 100_000 * b"[" + b"\n"], ids=lambda content: content[:9]
)
def test_the_measure_of_causes_names_the_transcript_that_it_cannot_read(run: Run, transcript: Path, content: bytes) -> None:
    transcript.write_bytes(content)
    why = f"scripts/lab causes: {transcript} cannot be read: it is no transcript"
    check_refusal(run(lab.main, "causes", str(transcript)), why)


def test_writes_the_page_and_is_quiet_in_a_pipe(transcript: Path, target: Path) -> None:
    done = run_script("lab", "report", str(transcript), "-o", str(target))
    assert (done.returncode, done.stdout, done.stderr) == (0, "", "")
    content = target.read_text(encoding="utf-8")
    assert content.startswith("<!doctype html>")
    assert "The camera was updated from 5.10.2.0 to 5.10.3.0" in content


def test_succeeds_for_a_failed_update_too(run: Run, transcript: Path, target: Path) -> None:
    transcript.write_bytes(stopped(3).text())
    assert run(lab.main, "report", str(transcript), "-o", str(target)) == (0, "", "")
    assert "The download stopped at block 3 of 1,024" in target.read_text(encoding="utf-8")


def test_says_on_a_terminal_what_came_of_it(transcript: Path, target: Path) -> None:
    shown = Terminal(str(_LAB), "report", str(transcript), "-o", str(target))
    assert shown.end() == 0
    assert "The camera was updated from 5.10.2.0 to 5.10.3.0" in shown.shown
    assert f"written: {target}" in shown.shown


@slow
def test_shows_on_a_terminal_that_a_large_transcript_takes_a_while(transcript: Path, target: Path) -> None:
    transcript.write_bytes(stopped(16_000, 16_000).text())
    shown = Terminal(str(_LAB), "report", str(transcript), "-o", str(target))
    assert shown.end() == 0
    assert re.search(r"reading \S+ +\d+%", re.sub(r"\x1b\[[\d;]*m", "", shown.shown))


def test_prints_the_numbers_as_json(run: Run, transcript: Path) -> None:
    status, text, errors = run(lab.main, "report", str(transcript), "--json")
    assert (status, errors) == (0, "")
    told = json.loads(text)
    assert (told["outcome"], told["version_after"], told["blocks"]) == ("updated", "5.10.3.0", 4)


def test_makes_a_page_of_a_transcript_that_is_cut_short(run: Run, transcript: Path, target: Path) -> None:
    transcript.write_bytes(good().text()[:-40])
    status, text, errors = run(lab.main, "report", str(transcript), "-o", str(target), "--json")
    assert (status, errors) == (0, "")
    assert json.loads(text)["cut_short"]
    assert "half-written" in target.read_text(encoding="utf-8")


def test_ends_quietly_when_nobody_reads_on(transcript: Path) -> None:
    command = f"'{_LAB}' report '{transcript}' --json | head -1"
    done = subprocess.run(
        ["bash", "-o", "pipefail", "-c", command], capture_output=True, text=True, timeout=60, check=False
    )
    assert (done.stdout, done.stderr) == ("{\n", "")


# scripts/lab run.


@pytest.fixture
def setup(tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> Path:
    """What stands in for scripts/setup. Nothing is run after it."""

    def end(_: Path) -> None:
        raise MachineError("here it ends")

    path = tmp_path / "scripts" / "setup"
    path.parent.mkdir()
    monkeypatch.setattr(set_up, "CHECKOUT", tmp_path)
    monkeypatch.setattr(runner, "sole_use", nullcontext)
    monkeypatch.setattr(runner, "built", end)
    return path


def listed(run: Run, *words: str) -> dict[str, str]:
    """The lines of scripts/lab list by their first words; the groups' heads are left out."""
    status, text, errors = run(lab.main, "list", *words)
    assert (status, errors) == (0, "")
    return {line.split()[0]: line for line in text.splitlines() if not line.startswith("==> ")}


def test_lists_what_a_real_bus_can_have_and_why_it_cannot_have_the_rest(run: Run) -> None:
    variants = read_folder(SCENARIOS)
    lines = listed(run)
    assert set(lines) == {variant.name for variant in variants}
    for variant in variants:
        assert ("(not on usb: " in lines[variant.name]) == bool(variant.not_on_usb)
        assert variant.not_on_usb in lines[variant.name]
    assert set(listed(run, "--bus", "usb")) == {variant.name for variant in variants if not variant.not_on_usb}


def test_groups_scenarios_by_what_a_user_meets(run: Run) -> None:
    text = run(lab.main, "list")[1].splitlines()
    heads = [line for line in text if line.startswith("==> ")]
    assert heads[0].startswith("==> up-to-date: nothing is wrong (")
    place = text.index(next(line for line in heads if line.startswith("==> no-image: ")))
    assert text[place].endswith("(5)")
    assert [line.split()[0].partition("/")[0] for line in text[place + 1 : place + 6]] == [
        "image-gone-during-the-download", *["image-without-version"] * 4,
    ]  # fmt: skip


def test_filters_scenarios(run: Run) -> None:
    assert set(listed(run, "TOAST-controller", "hangs", "--quick")) == {
        "toast-controller-hangs-at-the-end", "toast-controller-hangs/progress", "toast-controller-hangs/completion",
    }  # fmt: skip
    assert set(listed(run, "--row", "declined")) == {
        *(f"other-answers/{each}" for each in ("0", "2", "minus-1")), "both-questions-answered/declined",
        "declined-and-then-accepted",
    }  # fmt: skip
    check_refusal(run(lab.main, "list", "--row", "bad-luck"), "'bad-luck' is no row of docs/operations.md")
    check_refusal(run(lab.main, "list", "nothing-of-the-kind"), "no scenario is meant by that")


def test_lists_scenarios_for_other_programs(run: Run) -> None:
    status, text, errors = run(lab.main, "list", "--json", "switch-refused")
    assert (status, errors) == (0, "")
    (told,) = [json.loads(line) for line in text.splitlines()]
    assert told.pop("description").startswith("The camera refuses the command")
    assert told == {"name": "switch-refused", "rows": ["not-switched"], "slow": False, "not_on_usb": None}


def test_lists_the_rest_where_one_file_is_bad(run: Run, tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> None:
    (tmp_path / "bad.json").write_text('{"description": ', encoding="utf-8")
    (tmp_path / "good.json").write_text('{"description": "Something.", "steps": ["settle"]}', encoding="utf-8")
    monkeypatch.setattr(listing, "SCENARIOS", tmp_path)
    status, text, errors = run(lab.main, "list")
    assert (status, text) == (2, "==> no row (1)\ngood  Something.\n")
    assert re.fullmatch(r"scripts/lab: bad\.json: .*\n", errors)


def test_brings_the_programs_up_to_date_before_a_scenario(run: Run, setup: Path) -> None:
    setup.write_text('echo "$*" >>"$0.calls"; echo ninja: no work to do.')
    assert run(lab.main, "run", "two-cameras") == (1, "", "scripts/lab: here it ends\n")
    calls = setup.with_suffix(".calls").read_text().splitlines()
    assert calls == ["packages", "build windows-release VeyraCameraDfuService lab_rig VeyraCameraToastCntl"]


def test_builds_nothing_where_a_folder_of_programs_is_named(run: Run, tmp_path: Path, setup: Path) -> None:
    setup.write_text("exit 3")
    said = run(lab.main, "run", "two-cameras", "--programs", str(tmp_path))
    assert said == (1, "", "scripts/lab: here it ends\n")


def test_says_that_a_build_failed(run: Run, setup: Path) -> None:
    setup.write_text('[[ $1 == packages ]] || { echo "[1/2] compiling"; exit 3; }')
    status, text, errors = run(lab.main, "run", "two-cameras", "--json")
    assert (status, text) == (1, "")
    assert re.fullmatch(r"\[1/2\] compiling\nscripts/lab: setting up failed: .* ended with 3\n", errors)


# scripts/demo --answer ask.


def ask() -> Terminal:
    question = "from veyra_lab.demo import answer; print('said', answer.terminal()('5.10.2.0', '5.10.3.0'))"
    asked = Terminal(sys.executable, "-c", question)
    asked.wait_for("The camera has firmware 5.10.2.0, the image is 5.10.3.0. Update? [y/n] ")
    return asked


# An end of the input means no.
@pytest.mark.parametrize(
    ("typed", "said", "repeated"),
    [
        ("y\n", "True", 0),
        ("YES\n", "True", 0),
        (" n \n", "False", 0),
        ("no\n", "False", 0),
        ("perhaps\n\ny\n", "True", 2),
        ("\x04", "False", 0),
    ],
)
def test_takes_an_answer_at_the_terminal(typed: str, said: str, repeated: int) -> None:
    asked = ask()
    asked.type(typed)
    assert asked.end() == 0, asked.shown
    assert f"said {said}" in asked.shown
    assert asked.shown.count("Please answer y or n.") == repeated


def test_is_interrupted_like_any_program() -> None:
    asked = ask()
    asked.interrupt(until="KeyboardInterrupt")
    assert asked.end() != 0
    assert "KeyboardInterrupt" in asked.shown
    # Python shows the program's text, too: what counts is a line of its own.
    assert not re.search(r"^said", asked.shown, re.MULTILINE)


def test_refuses_to_ask_where_nobody_can_answer(run: Run, monkeypatch: pytest.MonkeyPatch) -> None:
    with open(os.devnull, encoding="ascii") as nothing:
        monkeypatch.setattr(sys, "stdin", nothing)
        check_refusal(run(demo.main, "--answer", "ask"), "needs a terminal")


@pytest.mark.parametrize(
    ("display", "because"),
    [
        (None, "DISPLAY is not set"),
        (":987", "cannot open a window on DISPLAY=:987"),
        ("127.0.0.1:59000.0", "cannot open a window"),
        ("screen", "it names no display"),
    ],
)
def test_refuses_to_open_a_window_without_a_display(
    run: Run, monkeypatch: pytest.MonkeyPatch, display: str | None, because: str
) -> None:
    monkeypatch.delenv("DISPLAY", raising=False)
    if display is not None:
        monkeypatch.setenv("DISPLAY", display)
    check_refusal(run(demo.main, "--answer", "window"), because)
