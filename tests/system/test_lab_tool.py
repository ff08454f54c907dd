"""scripts/lab as a person and as a script use it, and the ways in which a person is asked."""

import json
import os
import pty
import re
import select
import signal
import shutil
import subprocess
import sys
import tempfile
import threading
import time
import unittest
from collections.abc import Iterator
from contextlib import contextmanager
from pathlib import Path
from unittest.mock import patch

from support import CHECKOUT, complaints, run_demo, run_update, slow
from transcripts import good, stopped
from veyra_lab.demo import answer
from veyra_lab.updates.plan import Foreseen, UpdatePlan

_LAB = CHECKOUT / "scripts" / "lab"
_WINDOW = CHECKOUT / "lab" / "cli" / "veyra_lab" / "demo" / "question_window.py"
_TITLE = "Camera firmware update"
# Places in the window, in pixels from its upper left corner.
_NOT_NOW = (110, 160)
_UPDATE = (310, 160)


def run_lab(*arguments: str) -> subprocess.CompletedProcess[str]:
    """The tool with its output in pipes."""
    return subprocess.run(
        [str(_LAB), *arguments],
        capture_output=True,
        text=True,
        timeout=120,
        check=False,
        stdin=subprocess.DEVNULL,
    )


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


class Tool(unittest.TestCase):
    def setUp(self) -> None:
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        self.transcript = self.folder / "update.jsonl"
        self.transcript.write_bytes(good().text())
        self.target = self.folder / "update.html"

    def check_refusal(self, *arguments: str, status: int, because: str) -> None:
        """One line that says what to do, and nothing written."""
        done = run_lab(*arguments)
        self.assertEqual((done.returncode, done.stdout), (status, ""), done.stderr)
        self.assertEqual(done.stderr.count("\n"), 1, done.stderr)
        self.assertIn(because, done.stderr)
        self.assertFalse(self.target.exists())

    def test_explains_itself(self) -> None:
        done = run_lab("--help")
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        for words in ("report", "Examples:", "Exit status:"):
            self.assertIn(words, done.stdout)

    def test_explains_each_subcommand_with_its_exit_status(self) -> None:
        listed = re.findall(r"^    ([a-z]+) ", run_lab("--help").stdout, re.MULTILINE)
        self.assertIn("report", listed)
        for name in listed:
            with self.subTest(subcommand=name):
                done = run_lab(name, "--help")
                self.assertEqual((done.returncode, done.stderr), (0, ""))
                self.assertIn(f"usage: scripts/lab {name}", done.stdout)
        self.assertIn("Examples:", run_lab("report", "--help").stdout)
        self.assertIn("Exit status:", run_lab("report", "--help").stdout)

    def test_refuses_what_it_does_not_know(self) -> None:
        self.check_refusal("paint", status=2, because="paint")
        self.check_refusal(status=2, because="SUBCOMMAND")
        self.check_refusal("report", status=2, because="TRANSCRIPT")
        self.check_refusal("report", str(self.transcript), "--colour", status=2, because="--colour")

    def test_writes_the_page_and_is_quiet_in_a_pipe(self) -> None:
        done = run_lab("report", str(self.transcript), "-o", str(self.target))
        self.assertEqual((done.returncode, done.stdout, done.stderr), (0, "", ""))
        content = self.target.read_text(encoding="utf-8")
        self.assertTrue(content.startswith("<!doctype html>"))
        self.assertIn("The camera was updated from 5.10.2.0 to 5.10.3.0", content)

    def test_succeeds_for_a_failed_update_too(self) -> None:
        self.transcript.write_bytes(stopped(3).text())
        done = run_lab("report", str(self.transcript), "-o", str(self.target))
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        self.assertIn("The download stopped at block 3 of 1,024", self.target.read_text(encoding="utf-8"))

    def test_says_on_a_terminal_what_came_of_it(self) -> None:
        shown = Terminal(str(_LAB), "report", str(self.transcript), "-o", str(self.target))
        self.assertEqual(shown.end(), 0)
        self.assertIn("The camera was updated from 5.10.2.0 to 5.10.3.0", shown.shown)
        self.assertIn(f"written: {self.target}", shown.shown)

    def test_shows_on_a_terminal_that_a_large_transcript_takes_a_while(self) -> None:
        self.transcript.write_bytes(stopped(16_000, 16_000).text())
        shown = Terminal(str(_LAB), "report", str(self.transcript), "-o", str(self.target))
        self.assertEqual(shown.end(), 0)
        self.assertRegex(shown.shown, r"reading \[#*\.*\] +\d+ %")

    def test_prints_the_numbers_as_json(self) -> None:
        done = run_lab("report", str(self.transcript), "--json")
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        told = json.loads(done.stdout)
        self.assertEqual((told["outcome"], told["version_after"], told["blocks"]), ("updated", "5.10.3.0", 4))
        self.assertFalse(self.target.exists())

    def test_asks_where_the_page_goes(self) -> None:
        self.check_refusal("report", str(self.transcript), status=2, because="-o FILE.html")

    def test_refuses_files_that_it_cannot_read_or_write(self) -> None:
        where = ("-o", str(self.target))
        self.check_refusal("report", "/does/not/exist.jsonl", *where, status=2, because="cannot be read")
        self.check_refusal("report", str(self.folder), *where, status=2, because="cannot be read")
        nowhere = ("-o", "/does/not/exist/update.html")
        self.check_refusal("report", str(self.transcript), *nowhere, status=2, because="cannot be written")

    def test_never_overwrites_the_transcript(self) -> None:
        before = self.transcript.read_bytes()
        self.check_refusal(
            "report", str(self.transcript), "-o", str(self.transcript), status=2, because="itself"
        )
        self.assertEqual(self.transcript.read_bytes(), before)

    def test_says_what_to_do_about_a_file_that_is_no_transcript(self) -> None:
        for content in (b"", b"hello\n", b'{"a":1}\n', bytes(range(256))):
            with self.subTest(content=content[:10]):
                self.transcript.write_bytes(content)
                where = ("-o", str(self.target))
                self.check_refusal(
                    "report", str(self.transcript), *where, status=1, because="scripts/demo --transcript"
                )

    def test_makes_a_page_of_a_transcript_that_is_cut_short(self) -> None:
        self.transcript.write_bytes(good().text()[:-40])
        done = run_lab("report", str(self.transcript), "-o", str(self.target), "--json")
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        self.assertTrue(json.loads(done.stdout)["cut_short"])
        self.assertIn("half-written", self.target.read_text(encoding="utf-8"))

    def test_ends_quietly_when_nobody_reads_on(self) -> None:
        command = f"'{_LAB}' report '{self.transcript}' --json | head -1"
        done = subprocess.run(
            ["bash", "-o", "pipefail", "-c", command], capture_output=True, text=True, timeout=60, check=False
        )
        self.assertEqual((done.stdout, done.stderr), ("{\n", ""))


class AtTheTerminal(unittest.TestCase):
    """scripts/demo --answer ask."""

    def ask(self) -> Terminal:
        question = "from veyra_lab.demo import answer; print('said', answer.terminal()('5.10.2.0', '5.10.3.0'))"
        asked = Terminal(sys.executable, "-c", question)
        asked.wait_for("The camera has firmware 5.10.2.0, the image is 5.10.3.0. Update? [y/n] ")
        return asked

    def check_answer(self, typed: str, said: str) -> Terminal:
        asked = self.ask()
        asked.type(typed)
        self.assertEqual(asked.end(), 0, asked.shown)
        self.assertIn(f"said {said}", asked.shown)
        return asked

    def test_takes_yes_and_no(self) -> None:
        for typed, said in (("y\n", "True"), ("YES\n", "True"), (" n \n", "False"), ("no\n", "False")):
            with self.subTest(typed=typed):
                self.check_answer(typed, said)

    def test_asks_again_after_another_answer(self) -> None:
        asked = self.check_answer("perhaps\n\ny\n", "True")
        self.assertEqual(asked.shown.count("Please answer y or n."), 2)

    def test_takes_the_end_of_the_input_for_no(self) -> None:
        self.check_answer("\x04", "False")

    def test_is_interrupted_like_any_program(self) -> None:
        asked = self.ask()
        asked.type("\x03")
        self.assertNotEqual(asked.end(), 0)
        self.assertIn("KeyboardInterrupt", asked.shown)
        self.assertNotIn("said", asked.shown)

    def check_refusal(self, done: subprocess.CompletedProcess[str], because: str) -> None:
        self.assertEqual((done.returncode, done.stdout), (2, ""), done.stderr)
        self.assertEqual(done.stderr.count("\n"), 1, done.stderr)
        self.assertIn(because, done.stderr)

    def test_refuses_to_ask_where_nobody_can_answer(self) -> None:
        self.check_refusal(run_demo("--answer", "ask", timeout=30), "needs a terminal")

    def test_refuses_to_open_a_window_without_a_display(self) -> None:
        with patch.dict(os.environ):
            os.environ.pop("DISPLAY", None)
            self.check_refusal(run_demo("--answer", "window", timeout=30), "DISPLAY is not set")
            os.environ["DISPLAY"] = ":987"
            self.check_refusal(run_demo("--answer", "window", timeout=30), "cannot open a window")

    def test_does_what_the_person_says(self) -> None:
        for says, foreseen in ((True, Foreseen.UPDATED), (False, Foreseen.DECLINED)):
            with self.subTest(says=says):
                asked = []

                def ask(camera: str, image: str, says: bool = says) -> bool:
                    asked.append((camera, image))
                    return says

                record = run_update(UpdatePlan(ask=ask))
                self.assertEqual(asked, [("5.10.2.0", "5.10.3.0")])
                self.assertEqual(record.plan.foreseen, foreseen)
                self.assertEqual(complaints(record), [])


@contextmanager
def display() -> Iterator[None]:
    """A display of its own that nobody sees, named by DISPLAY as long as it is there."""
    read, write = os.pipe()
    server = subprocess.Popen(
        ["Xvfb", "-displayfd", str(write), "-screen", "0", "900x600x24", "-nolisten", "tcp"],
        pass_fds=(write,),
        stdin=subprocess.DEVNULL,
        stdout=subprocess.DEVNULL,
        stderr=subprocess.DEVNULL,
    )
    os.close(write)
    try:
        with open(read, encoding="ascii") as number, patch.dict(os.environ):
            os.environ["DISPLAY"] = f":{number.readline().strip()}"
            yield
    finally:
        server.terminate()
        server.wait(timeout=20)


def window_id() -> str:
    """The question's window, once it is there."""
    for _ in range(100):
        found = subprocess.run(
            ["xdotool", "search", "--onlyvisible", "--name", _TITLE],
            capture_output=True,
            text=True,
            check=False,
        ).stdout.split()
        if found:
            return found[0]
        time.sleep(0.2)
    raise AssertionError("no window appeared")


def click(place: tuple[int, int]) -> None:
    """Moves the mouse to a place of the window and presses its button."""
    where = [str(each) for each in place]
    subprocess.run(
        ["xdotool", "mousemove", "--sync", "--window", window_id(), *where, "click", "1"], check=True
    )


class InAWindow(unittest.TestCase):
    """scripts/demo --answer window, on a display of its own."""

    def said_after(self, place: tuple[int, int] | None) -> bool:
        said = []
        ask = answer.window()
        asked = threading.Thread(target=lambda: said.append(ask("5.10.2.0", "5.10.3.0")))
        asked.start()
        if place is None:
            subprocess.run(["xdotool", "windowkill", window_id()], check=True)
        else:
            click(place)
        asked.join(timeout=20)
        self.assertEqual(len(said), 1)
        return said[0]

    @slow
    def test_takes_the_button_that_is_clicked(self) -> None:
        with display():
            self.assertTrue(self.said_after(_UPDATE))
            self.assertFalse(self.said_after(_NOT_NOW))

    @slow
    def test_takes_a_window_that_goes_away_for_no(self) -> None:
        with display():
            self.assertFalse(self.said_after(None))

    @slow
    def test_updates_the_camera_after_a_click(self) -> None:
        clicking = threading.Thread(target=click, args=(_UPDATE,))

        def ask(camera: str, image: str) -> bool:
            clicking.start()
            return answer.window()(camera, image)

        with display():
            record = run_update(UpdatePlan(ask=ask))
            clicking.join(timeout=20)
        self.assertEqual(record.plan.foreseen, Foreseen.UPDATED)
        self.assertEqual(complaints(record), [])

    def test_says_that_tkinter_is_missing(self) -> None:
        python = shutil.which("python3") or sys.executable
        done = subprocess.run(
            [
                python,
                "-c",
                f"import sys, runpy; sys.modules['tkinter'] = None; runpy.run_path({str(_WINDOW)!r})",
            ],
            capture_output=True,
            text=True,
            check=False,
        )
        self.assertEqual(done.returncode, 1)
        self.assertIn("apt-get install python3-tk", done.stderr)
