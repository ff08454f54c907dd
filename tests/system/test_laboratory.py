"""The laboratory's own parts, without a machine: what it prints, what it reads, what it makes of the wire."""

import io
import json
import os
import pty
import re
import socket
import threading
from collections.abc import Iterator, Sequence
from contextlib import contextmanager, redirect_stderr, redirect_stdout
from unittest.mock import Mock, patch

import pytest
from support import Bench, last_events, random_image
from veyra_lab.demo.reporter import Reporter
from veyra_lab.soak.__main__ import run as soak_rounds
from veyra_lab.soak.plan import RoundId
from veyra_lab.soak.soak import Tally, Wrong
from veyra_lab.terminal.parser import give_up
from veyra_lab.terminal.screen import Screen
from veyra_lab.terminal.table import Table
from veyra_lab.traits.trials import TrialError
from veyra_lab.updates.plan import UpdatePlan
from veyra_lab.windows.image import default_image, version_of, with_version
from veyra_lab.windows.service_under_test import Resources, ServiceUnderTest
from veyra_lab.wire.events import GUEST, RIG, TOAST, Event, PeerError
from veyra_lab.wire.peer import Peer

BREACH = "a contract of Windows is broken: one (MFStartup)"


class FakeProcess:
    """A process at the other end of the wire, played by the test."""

    def __init__(self, peer: Peer, source: str, pid: int) -> None:
        self._socket = socket.create_connection(("127.0.0.1", peer.port), timeout=5)
        self._stream = self._socket.makefile("rw", encoding="utf-8")
        self.say({"event": "hello", "source": source, "pid": pid, "command_line": "x.exe"})
        self.stage = self.hear()

    def say(self, line: Event) -> None:
        self._stream.write(json.dumps(line) + "\n")
        self._stream.flush()

    def say_raw(self, text: str) -> None:
        self._stream.write(text)
        self._stream.flush()

    def hear(self) -> Event:
        return json.loads(self._stream.readline())

    def leave(self) -> None:
        self._stream.close()
        self._socket.close()


class TestWire:
    @pytest.fixture(autouse=True)
    def listen(self) -> Iterator[None]:
        self.seen: list[Event] = []
        self.playing: list[FakeProcess] = []
        with Peer({"cameras": []}, lambda event: None, self.seen.append) as self.peer:
            yield
            for process in self.playing:
                process.leave()

    def follow(self, name: str) -> Event:
        return self.peer.follow(lambda event: event["event"] == name, name, since=0, quiet=5)

    def process(self, source: str, pid: int) -> FakeProcess:
        process = FakeProcess(self.peer, source, pid)
        self.playing.append(process)
        return process

    def test_wire_gives_the_stage_to_the_rig_alone(self) -> None:
        assert self.process(RIG, 1).stage == {"reply": "stage", "cameras": []}
        assert self.process(TOAST, 2).stage == {"reply": "stage"}

    def test_wire_records_who_said_what_in_order(self) -> None:
        rig = self.process(RIG, 7)
        for number in range(100):
            rig.say({"event": "number", "number": number})
        self.peer.follow(lambda event: event.get("number") == 99, "the last", since=0, quiet=5)
        numbers = [event for event in self.peer.events() if event["event"] == "number"]
        assert [event["number"] for event in numbers] == list(range(100))
        assert all(event["source"] == RIG and event["pid"] == 7 and event["t"] >= 0 for event in numbers)
        assert self.seen == self.peer.events()

    def test_wire_takes_lines_that_come_in_pieces(self) -> None:
        rig = self.process(RIG, 1)
        rig.say_raw('{"event":"ha')
        rig.say_raw('lf"}\n{"event":"whole"}\n')
        self.follow("half")
        self.follow("whole")

    @pytest.mark.parametrize("line", ["garbage", "[]", "{}", ""])
    def test_wire_ends_the_run_at_a_line_that_is_no_event(self, line: str) -> None:
        self.process(RIG, 1).say_raw(f"{line}\n")
        with pytest.raises(PeerError, match="no event"):
            self.peer.follow(lambda event: False, "anything", since=0, quiet=5)

    def test_wire_ends_the_run_at_a_refused_stage(self) -> None:
        self.process(RIG, 1).say({"event": "done", "command": "stage", "ok": False, "why": "no such fault"})
        with pytest.raises(PeerError, match="no such fault"):
            self.peer.follow(lambda event: False, "anything", since=0, quiet=5)

    def test_wire_carries_a_rigs_question_to_the_guest_and_the_answer_back(self) -> None:
        rig, other, guest = self.process(RIG, 7), self.process(RIG, 8), self.process(GUEST, 1)
        rig.say({"event": "ask", "to": GUEST, "question": 3, "command": {"command": "claim", "interface": 0}})
        asker = {"pid": 7, "question": 3}
        assert guest.hear() == {"command": "claim", "interface": 0, "for": asker}
        answer = {"event": "done", "command": "claim", "ok": True, "errno": "EBUSY"}
        guest.say({**answer, "for": asker})
        assert rig.hear() == {"command": "answer", "question": 3, "answer": answer}
        # Of no use to anybody else, and no event.
        for process in (rig, other, guest):
            process.say({"event": "last"})
        self.peer.follow(lambda event: event["event"] == "last" and event["source"] == GUEST, "the last", since=0, quiet=5)
        assert {event["event"] for event in self.peer.events()} == {"hello", "last"}

    def test_wire_answers_itself_where_there_is_no_guest(self) -> None:
        rig = self.process(RIG, 7)
        rig.say({"event": "ask", "to": GUEST, "question": 3, "command": {"command": "devices"}})
        assert rig.hear()["answer"]["errno"] == "ENODEV"
        # Nor does a guest answer that has gone.
        guest = self.process(GUEST, 1)
        rig.say({"event": "ask", "to": GUEST, "question": 4, "command": {"command": "devices"}})
        guest.hear()
        guest.leave()
        self.playing.remove(guest)
        answer = rig.hear()
        assert (answer["question"], answer["answer"]["errno"]) == (4, "ENODEV")

    def test_wire_ends_the_run_at_a_question_that_makes_no_sense(self) -> None:
        rig, guest = self.process(RIG, 7), self.process(GUEST, 1)
        rig.say({"event": "ask", "to": GUEST, "question": 3, "command": {"command": "control"}})
        asker = guest.hear()["for"]
        guest.say({"event": "done", "command": "control", "ok": False, "why": "setup is missing", "for": asker})
        with pytest.raises(PeerError, match="a rig asked for what makes no sense: setup is missing"):
            self.peer.follow(lambda event: False, "anything", since=0, quiet=5)

    def test_wire_tells_the_rigs_on_the_guests_bus_of_its_devices(self) -> None:
        elsewhere = self.process(RIG, 6)
        self.peer.set_stage({"bus": "usb"})
        rig, guest = self.process(RIG, 7), self.process(GUEST, 1)
        for change in ("arrival", "ready", "removal"):
            guest.say({"event": "device", "change": change, "path": "1-2", "vendor": "2f1a", "product": "7e00"})
        assert rig.hear() == {"command": "device", "path": "1-2", "product": "7e00"}
        assert rig.hear() == {"command": "device", "path": "1-2", "product": ""}
        assert [event["change"] for event in self.peer.events() if event["event"] == "device"][:1] == ["arrival"]
        # A rig with a bus of its own has heard nothing of it before this.
        elsewhere.say({"event": "ask", "to": "nobody", "question": 1, "command": {}})
        assert elsewhere.hear()["command"] == "answer"

    def test_wire_tells_why_a_command_failed(self) -> None:
        with pytest.raises(PeerError, match="no rig is connected"):
            self.peer.command(RIG, "plug")
        rig = self.process(RIG, 1)
        rig.say({"event": "done", "command": "other", "ok": True})
        self.follow("done")
        with pytest.raises(PeerError, match="nothing happened"):
            self.peer.command(RIG, "plug", quiet=0.1, camera=0)
        assert rig.hear() == {"command": "plug", "camera": 0}
        rig.leave()
        self.follow("gone")
        with pytest.raises(PeerError, match="no rig is connected"):
            self.peer.command(RIG, "plug")

    def test_wire_ends_a_run_that_broke_a_contract_of_windows(self) -> None:
        breach = {"event": "contract", "contract": "one", "call": "MFStartup"}
        with pytest.raises(PeerError, match=f"^{re.escape(BREACH)}$"), self.broken():
            pass
        with Peer({}, Mock(), Mock()) as peer:
            rig = FakeProcess(peer, RIG, 1)
            rig.say(breach)
            rig.say(breach)
            rig.leave()
            peer.follow(lambda event: event["event"] == "gone", "the end", since=0, quiet=5)
            assert peer.breaches() == [BREACH]
            assert peer.breaches() == []

    @pytest.mark.parametrize(
        ("ending", "words"),
        [
            (PeerError("the question: nothing happened for 20 s"), f"the question: nothing happened for 20 s; {BREACH}"),
            (TrialError("some trial went wrong"), f"some trial went wrong; {BREACH}"),
            (KeyboardInterrupt(), f"interrupted; {BREACH}"),
        ],
        ids=lambda value: type(value).__name__ if isinstance(value, BaseException) else "",
    )
    def test_wire_tells_a_breach_beside_the_error_that_ends_the_run(self, ending: BaseException, words: str) -> None:
        with pytest.raises(type(ending)) as ended, self.broken():
            raise ending
        with redirect_stderr(io.StringIO()) as said:
            give_up("scripts/some", ended.value)
        assert said.getvalue() == f"scripts/some: {words}\n"

    def test_wire_tells_a_breach_beside_the_test_that_fails(self) -> None:
        with self.broken() as peer:
            bench = Mock(peer=peer)
            bench.__class__ = Bench
            with patch("support._shared", [Mock(**{"values.return_value": [bench]})]):
                assert last_events(1).splitlines()[0] == BREACH

    @contextmanager
    def broken(self) -> Iterator[Peer]:
        """A run in which the program has broken a contract of Windows, and nobody has asked."""
        with Peer({}, Mock(), Mock()) as peer:
            rig = FakeProcess(peer, RIG, 1)
            rig.say({"event": "contract", "contract": "one", "call": "MFStartup"})
            rig.leave()
            peer.follow(lambda event: event["event"] == "gone", "the end", since=0, quiet=5)
            yield peer

    def test_wire_dismisses_a_server_and_waits_for_its_end(self) -> None:
        server = self.process(TOAST, 3)
        assert not self.peer.dismiss(TOAST, seconds=0.1)
        server.leave()
        assert self.peer.dismiss(TOAST, seconds=5)


class TestHeld:
    """What the service's process holds, told look by look by a rig that the test plays."""

    def threads_seen(self, told: Sequence[int], wanted: int, patience: float) -> int:
        """What the process holds once it has no more threads than wanted."""
        with Peer({}, lambda event: None, lambda event: None) as peer:
            rig = FakeProcess(peer, RIG, 1)

            def tell() -> None:
                for threads in told:
                    rig.hear()
                    held = {"handles": 100, "threads": threads, "private_bytes": 9 << 10, "thread_block_bytes": 1 << 10}
                    rig.say({"event": "done", "command": "resources", "ok": True, **held})

            telling = threading.Thread(target=tell)
            telling.start()
            seen = ServiceUnderTest(Mock(), peer).resources_once(lambda now: now.threads <= wanted, patience)
            telling.join()
            rig.leave()
            return seen.threads

    def test_held_is_looked_at_again_while_threads_leave(self) -> None:
        assert self.threads_seen([12, 11, 9], wanted=10, patience=20) == 9

    def test_held_is_told_as_it_is_when_threads_stay(self) -> None:
        assert self.threads_seen([12], wanted=10, patience=0) == 12


class TestSoak:
    def test_soak_tells_a_breach_whatever_else_is_wrong(self) -> None:
        wrong = [Wrong(RoundId(1, number), "no fault", ("the flash is not the image",)) for number in range(1, 101)]
        soak = Mock(tally=Tally(wrong=wrong))
        soak.peer.breaches.return_value = [BREACH]
        service = soak.service
        service.resources.return_value = service.resources_once.return_value = Resources(1, 1, 1)
        service.stop.return_value = 0.1
        with redirect_stdout(io.StringIO()) as said:
            assert soak_rounds(soak, Mock(**{"crashes.return_value": []})) == 1
        assert f"wrong: {BREACH}\nwrong: soak.1.1: no fault: the flash is not the image\n" in said.getvalue()
        assert said.getvalue().endswith("101 things wrong\n")

    @pytest.mark.parametrize("rounds", [1, 20, 33])
    def test_a_soak_is_played_again_by_the_number_of_its_rounds(self, rounds: int) -> None:
        soak = Mock(tally=Tally(), last=RoundId(7, 0))
        soak.peer.breaches.return_value = []
        soak.round.side_effect = lambda: setattr(soak, "last", RoundId(7, soak.last.number + 1, is_real_time=True))
        soak.service.resources.return_value = soak.service.resources_once.return_value = Resources(1, 1, 1)
        soak.service.stop.return_value = 0.1
        with redirect_stdout(io.StringIO()) as said:
            assert soak_rounds(soak, Mock(**{"crashes.return_value": []}), rounds=rounds) == 0
        assert soak.last.number == rounds
        assert f"plays one of them, scripts/soak --rounds {rounds} --real-time --seed 7 all)\n" in said.getvalue()


class TestTexts:
    def test_images_carry_their_version_where_the_camera_looks(self) -> None:
        assert version_of(default_image()) == "5.10.3.0"
        assert default_image()[398:402] == bytes([0, 3, 10, 5])
        assert len(default_image()) == 256 * 1024
        image = random_image(402)
        assert version_of(with_version(image, "1.2.11.5")) == "1.2.11.5"
        assert with_version(image, "1.2.11.5")[:398] == image[:398]

    @pytest.mark.parametrize(
        ("error", "status", "line"),
        [(PeerError("two\nlines"), 1, "two lines"), (KeyboardInterrupt("SIGTERM"), 130, "interrupted")],
    )
    def test_programs_say_in_one_line_why_they_give_up(self, error: BaseException, status: int, line: str) -> None:
        with redirect_stderr(io.StringIO()) as said:
            assert give_up("scripts/some", error) == status
        assert said.getvalue() == f"scripts/some: {line}\n"

    def test_screen_prints_plain_lines_into_a_pipe(self) -> None:
        stream = io.StringIO()
        screen = Screen(stream)
        for block in range(1, 257):
            screen.progress(block, 256)
        assert len(stream.getvalue().splitlines()) == 10
        assert stream.getvalue().endswith("100 %: block 256 of 256\n")
        assert "\r" not in stream.getvalue()

    def test_reporter_tells_a_control_that_windows_would_give_up(self) -> None:
        stream = io.StringIO()
        tell = Reporter(Screen(stream), UpdatePlan())
        tell({"event": "late-control", "control": 11, "ms": 30_400, "id": 7011, "refused": [], "error": 1053})
        told = "    Windows would write event 7011 into its log: one control took 30.4 s\n"
        assert stream.getvalue() == told

    def test_screen_neither_wraps_nor_colours_what_goes_into_a_pipe(self) -> None:
        stream = io.StringIO()
        with patch.dict(os.environ, COLUMNS="40", FORCE_COLOR="1"):
            screen = Screen(stream)
            screen.step("[red]a :smile:[/red] " + "x" * 200)
            screen.table(Table([("name", "y" * 200), ("longer", "z")]))
        lines = [f"==> [red]a :smile:[/red] {'x' * 200}", f"name    {'y' * 200}", "longer  z"]
        assert stream.getvalue().splitlines() == lines

    def test_screen_goes_on_in_silence_when_nobody_reads(self) -> None:
        read, write = os.pipe()
        os.close(read)
        with os.fdopen(write, "w") as stream:
            screen = Screen(stream)
            screen.step("one")
            screen.step("two")

    def test_screen_draws_a_bar_on_a_terminal(self) -> None:
        controller, terminal = pty.openpty()
        with os.fdopen(terminal, "w") as stream, patch.dict(os.environ, TERM="xterm"):
            screen = Screen(stream)
            screen.progress(1, 2)
            screen.progress(2, 2)
            screen.note("after")
            drawn = ""
            while "after" not in drawn:
                drawn += os.read(controller, 10_000).decode()
        os.close(controller)
        assert re.search(r"(?s) 50 %  block 1 of 2\r.*100 %  block 2 of 2\r\n.*    after", drawn)
