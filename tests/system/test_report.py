"""The picture of an update, made from small transcripts."""

import json
import os
import re
import tempfile
import unittest
import zlib
from html.parser import HTMLParser
from pathlib import Path
from typing import Any

from browser import Browser, browser
from support import CHECKOUT, slow
from transcripts import BUSY, DONE, MANIFESTING, Written, good, stopped
from veyra_lab.report import codes
from veyra_lab.report.lanes import BINS, MOST_MARKS, MOST_SINGLED_OUT
from veyra_lab.report.page import page
from veyra_lab.report.story import MOST_LINES
from veyra_lab.report.summary import Summary, Verdict, summarize
from veyra_lab.report.transcript import Transcript, TranscriptError, parse

_TIP = "document.getElementById('tip').textContent"


def summary_of(written: Written) -> Summary:
    return summarize(written.read())


def page_of(written: Written) -> str:
    transcript = written.read()
    return page(transcript, summarize(transcript), "run.jsonl")


def says(test: unittest.TestCase, content: str, words: str) -> None:
    """The page has these words. (assertIn would print the whole page.)"""
    test.assertTrue(words in content, f"the page does not say: {words}")


class Elements(HTMLParser):
    """The elements of a page with their attributes, and its text."""

    def __init__(self, content: str) -> None:
        super().__init__()
        self.elements: list[tuple[str, dict[str, str]]] = []
        self.words = ""
        self.feed(content)

    def handle_starttag(self, tag: str, attrs: list[tuple[str, str | None]]) -> None:
        self.elements.append((tag, {name: value or "" for name, value in attrs}))

    def handle_data(self, data: str) -> None:
        self.words += data

    def of_class(self, name: str) -> list[dict[str, str]]:
        return [attributes for _, attributes in self.elements if name in attributes.get("class", "").split()]


class Outcome(unittest.TestCase):
    """What the report understands."""

    def check_stop(self, written: Written, sentence: str, code: str | None) -> Summary:
        summary = summary_of(written)
        self.assertEqual((summary.verdict, summary.sentence), (Verdict.STOPPED, sentence))
        assert summary.failure is not None
        self.assertEqual(summary.failure.code.number if summary.failure.code else None, code)
        return summary

    def check_calm(self, written: Written, verdict: Verdict, sentence: str) -> None:
        summary = summary_of(written)
        self.assertEqual((summary.verdict, summary.sentence, summary.failure), (verdict, sentence, None))

    def test_says_from_which_version_to_which_the_camera_was_updated(self) -> None:
        # 1.24 s lie between the answer and the camera's return.
        self.check_calm(good(), Verdict.UPDATED, "The camera was updated from 5.10.2.0 to 5.10.3.0 in 1.2 s.")

    def test_counts_transfers_bytes_blocks_and_waits(self) -> None:
        summary = summary_of(good(4))
        self.assertEqual(
            (summary.transfers, summary.bytes_sent, summary.blocks_confirmed, summary.waits),
            (4 + 8 + 4, 4096, 4, 1),
        )
        self.assertAlmostEqual(summary.wait_seconds, 0.2)

    def test_gives_scripts_the_same_as_json(self) -> None:
        told = json.loads(json.dumps(summary_of(stopped(400)).as_json()))
        self.assertEqual(told["outcome"], "stopped")
        self.assertEqual(
            told["failure"],
            {
                "t": told["failure"]["t"],
                "why": "the camera did not take the block: the device refused the request (a stall on the bus)",
                "block": 400,
                "blocks": 1024,
                "code": "0x8007001F",
                "name": "ERROR_GEN_FAILURE",
                "meaning": "the device refused the request (a stall on the bus)",
            },
        )
        self.assertEqual((told["blocks"], told["transfers"], told["downloads"]), (399, 4 + 2 * 399 + 1, 1))

    def test_names_the_block_that_the_camera_refused(self) -> None:
        self.check_stop(
            stopped(400),
            "The download stopped at block 400 of 1,024: the camera did not take the block: "
            "the device refused the request (a stall on the bus) (0x8007001F).",
            "0x8007001F",
        )

    def test_names_the_block_at_which_the_camera_was_pulled_out(self) -> None:
        written = stopped(3, error=433)
        written.rig("camera", camera=0, change="unplugged", version="5.10.2.0")
        self.check_stop(
            written,
            "The download stopped at block 3 of 1,024: the camera did not take the block: "
            "the device is gone from the bus (0x800701B1).",
            "0x800701B1",
        )

    def begun(self, blocks: int = 8) -> Written:
        written = Written()
        written.begin()
        written.answer()
        written.enter_dfu_mode(blocks)
        return written

    def test_names_the_status_that_the_camera_reported(self) -> None:
        written = self.begun()
        written.prepare()
        written.block(0)
        written.block(1, told=False)
        written.status("070000000500")
        written.close()
        self.check_stop(
            written,
            "The download stopped at block 2 of 8: the camera reported status errVERIFY (the memory does not hold what "
            "was written) in state dfuDNLOAD-IDLE (ready for the next block) (0x80004005).",
            "0x80004005",
        )

    def test_tells_for_how_long_a_camera_was_not_ready(self) -> None:
        written = self.begun()
        written.prepare()
        written.block(0, told=False)
        for _ in range(25):
            written.status(BUSY, after=0.2)
        written.close(after=0.2)
        summary = self.check_stop(
            written,
            "The download stopped at block 1 of 8: the camera was not ready within 5 s; "
            "it stayed in state dfuDNBUSY (writing a block) (0x80004005).",
            "0x80004005",
        )
        self.assertEqual(summary.waits, 24)
        self.assertAlmostEqual(summary.wait_seconds, 24 * 0.2)

    def test_tells_a_wrong_state_before_the_first_block(self) -> None:
        written = self.begun()
        written.prepare(state="05")
        written.close()
        self.check_stop(
            written,
            "The download stopped before its first block: the camera was in state dfuDNLOAD-IDLE (ready for the next "
            "block) instead of dfuIDLE (0x80004005).",
            "0x80004005",
        )

    def test_tells_that_transfers_are_too_short_for_the_trial_read(self) -> None:
        written = self.begun()
        written.prepare()
        written.events.pop()
        written.close()
        self.check_stop(
            written,
            "The download stopped before its first block: the service first reads 68 bytes in one transfer, and the "
            "camera takes fewer (0x80070018).",
            "0x80070018",
        )

    def test_tells_that_the_camera_was_gone_before_the_first_request(self) -> None:
        written = self.begun()
        written.close()
        self.check_stop(
            written,
            "The download stopped before its first block: the camera was gone before the first request (0x80070005).",
            "0x80070005",
        )

    def test_tells_that_the_image_could_not_be_opened(self) -> None:
        written = self.begun()
        written.events.pop()
        written.close()
        self.check_stop(
            written,
            "The download stopped before its first block: the image file could not be opened (0x80004005).",
            "0x80004005",
        )

    def test_tells_that_the_device_was_of_no_use(self) -> None:
        written = self.begun()
        written.events.pop()
        written.rig("usb-close", link="usb", ok=True)
        self.check_stop(
            written,
            "The download stopped before its first block: the camera shows no interface to download through, "
            "or was gone before it could be used.",
            None,
        )

    def test_tells_that_the_service_ended_in_the_middle(self) -> None:
        written = self.begun()
        written.prepare()
        written.block(0)
        written.add("lab", "gone", of="rig", pid=7)
        self.check_stop(
            written,
            "The download stopped at block 1 of 8: the service's process ended in the middle of it.",
            None,
        )

    def test_takes_an_unanswered_question_for_a_wait(self) -> None:
        written = self.begun(1)
        written.prepare()
        written.block(0, told=False)
        written.status(error=121)
        written.status(after=0.2)
        written.finish(1)
        written.come_back()
        summary = summary_of(written)
        self.assertEqual((summary.verdict, summary.waits), (Verdict.UPDATED, 2))

    def test_takes_the_unanswered_last_request_for_what_it_is(self) -> None:
        content = page_of(good())
        says(self, content, "no answer, as expected, since the camera restarts over it")
        self.assertEqual(Elements(content).of_class("f")[1:], [], "only the legend shows a failure")

    def test_tells_an_update_that_the_service_takes_for_failed(self) -> None:
        written = self.begun(1)
        written.prepare()
        written.block(0)
        written.transfer("21 01 01 00 00 00 00 00")
        written.status(MANIFESTING)
        written.status(error=433, after=30.0)
        written.come_back()
        written.close()
        summary = summary_of(written)
        self.assertEqual(summary.verdict, Verdict.UNCONFIRMED)
        self.assertTrue(
            summary.sentence.startswith(
                "The camera was updated to 5.10.3.0, but the service counts the download as failed: the camera was not "
                "ready within 30 s; "
            ),
            summary.sentence,
        )

    def test_tells_that_the_image_was_not_taken_into_use(self) -> None:
        written = self.begun(1)
        written.prepare()
        written.block(0)
        written.transfer("21 01 01 00 00 00 00 00")
        written.status("0a0000000a00")
        written.close()
        summary = summary_of(written)
        self.assertTrue(
            summary.sentence.startswith(
                "All 1 blocks were sent, but the camera did not take the image into use: "
            ),
            summary.sentence,
        )

    def test_tells_that_the_camera_came_back_unchanged(self) -> None:
        written = good()
        written.events.pop()
        written.come_back("5.10.2.0")
        summary = summary_of(written)
        self.assertEqual(summary.verdict, Verdict.STOPPED)
        self.assertIn("came back with firmware 5.10.2.0 as before", summary.sentence)

    def test_tells_that_the_record_ends_in_the_middle(self) -> None:
        written = self.begun()
        written.prepare()
        written.block(0)
        written.block(1)
        self.check_calm(
            written, Verdict.UNFINISHED, "The record ends in the middle of the download, after block 2 of 8."
        )

    def test_tells_that_the_camera_is_not_back(self) -> None:
        written = good()
        written.events.pop()
        self.check_calm(
            written,
            Verdict.UNFINISHED,
            "The whole image was sent, but the record does not show the camera coming back.",
        )

    def test_tells_that_the_user_declined(self) -> None:
        written = Written()
        written.begin()
        written.answer(code=0)
        self.check_calm(written, Verdict.DECLINED, "The user declined. The camera keeps firmware 5.10.2.0.")

    def test_tells_that_nobody_listened_to_the_user(self) -> None:
        written = Written()
        written.begin()
        written.answer(sinks=0)
        self.check_stop(
            written, "Nothing was updated: the service did not listen to the user's answer.", None
        )

    def test_tells_that_the_camera_did_not_come_back_in_dfu_mode(self) -> None:
        written = Written()
        written.begin()
        written.answer()
        self.check_stop(
            written,
            "The user accepted, but no download began: the camera did not come back in DFU mode.",
            None,
        )

    def test_tells_that_the_device_could_not_be_opened(self) -> None:
        written = Written()
        written.begin()
        written.answer()
        written.rig("usb-open", link="usb", ok=False)
        written.trace(20, "The camera in DFU mode could not be opened")
        self.check_stop(
            written,
            "The user accepted, but no download began: the camera in DFU mode could not be opened.",
            None,
        )

    def test_tells_that_the_camera_refused_to_enter_dfu_mode(self) -> None:
        written = Written()
        written.begin()
        written.rig(
            "firmware-command", length=20, magic=52651, opcode=30, parameters=[1, 0, 0, 0], result=-2147024775
        )
        written.add("toast", "answer", code=1, sinks=1, result=0, pid=8)
        self.check_stop(
            written,
            "The user accepted, but no download began: the camera did not come back in DFU mode.",
            "0x80070079",
        )

    def test_tells_that_the_user_has_not_answered(self) -> None:
        written = Written()
        written.begin()
        self.check_calm(
            written, Verdict.UNFINISHED, "The user was asked, and the record ends before the answer."
        )

    def test_tells_why_nobody_was_asked(self) -> None:
        equal = Written()
        equal.begin(image="5.10.2.0")
        self.check_calm(
            equal, Verdict.NOT_ASKED, "Nobody was asked: camera and image both have version 5.10.2.0."
        )
        missing = Written()
        missing.rig("camera", camera=0, change="plugged", version="5.10.2.0")
        missing.trace(25, "The firmware image could not be opened")
        self.check_calm(
            missing, Verdict.NOT_ASKED, "Nobody was asked: the firmware image could not be opened."
        )
        disabled = Written()
        disabled.rig("camera", camera=0, change="plugged", version="5.10.2.0")
        self.check_calm(
            disabled,
            Verdict.NOT_ASKED,
            "Nobody was asked: the service never looked at the camera's version, as when the update mode is not "
            "“Service Controlled”.",
        )
        absent = Written()
        absent.step("Starting the service")
        self.check_calm(absent, Verdict.NOT_ASKED, "No camera was plugged in, and nobody was asked.")

    def test_tells_several_downloads(self) -> None:
        written = stopped(2, 4)
        written.rig("camera", camera=0, change="unplugged", version="5.10.2.0")
        written.events += [{**event, "t": event["t"] + 10} for event in good().events]
        summary = summary_of(written)
        self.assertEqual((summary.verdict, len(summary.downloads)), (Verdict.STOPPED, 2))
        self.assertTrue(
            summary.sentence.startswith(
                "1 of 2 downloads ended in an update: number 1: The download stopped at block 2 of 4: the camera did "
            ),
            summary.sentence,
        )
        assert summary.failure is not None
        self.assertEqual(summary.failure.block, 2)

    def test_takes_a_later_return_of_the_camera_for_the_later_download(self) -> None:
        written = good()
        written.events.pop()
        written.events += [{**event, "t": event["t"] + 10} for event in good().events]
        summary = summary_of(written)
        self.assertEqual(summary.verdict, Verdict.UNFINISHED)
        self.assertIn("number 1: The whole image was sent", summary.sentence)

    def test_keeps_the_announcement_that_stands_before_the_opening(self) -> None:
        written = good()
        opened = next(event for event in written.events if event["event"] == "usb-open")
        written.events.remove(opened)
        announced = next(
            index for index, event in enumerate(written.events) if event.get("texts") == ["start:4"]
        )
        written.events.insert(announced + 1, {**opened, "t": written.events[announced]["t"]})
        self.assertEqual(summary_of(written).downloads[0].announced, 4)

    def test_knows_every_status_code_of_the_service(self) -> None:
        known = {name for name, _ in (*codes._WIN32.values(), *codes._HRESULTS.values())}
        named = set()
        for path in (*(CHECKOUT / "src").rglob("*.cpp"), *(CHECKOUT / "lab" / "rig").rglob("*.cpp")):
            named |= set(re.findall(r"\b(?:E|ERROR|DISP_E|CO_E)_[A-Z_]+\b", path.read_text(encoding="utf-8")))
        self.assertGreater(len(named), 15)
        self.assertEqual(named - known - {"ERROR_SUCCESS"}, set())

    def test_names_codes_as_the_service_makes_them(self) -> None:
        for error, number, name in (
            (31, "0x8007001F", "ERROR_GEN_FAILURE"),
            (24, "0x80070018", "ERROR_BAD_LENGTH"),
            (121, "0x80070079", "ERROR_SEM_TIMEOUT"),
            (1168, "0x80070490", "ERROR_NOT_FOUND"),
            (5, "0x80070005", "E_ACCESSDENIED"),
            (2, "0x80070002", "ERROR_FILE_NOT_FOUND"),
            (433, "0x800701B1", "ERROR_NO_SUCH_DEVICE"),
            (0, "0x00000000", "S_OK"),
            (-2147467259, "0x80004005", "E_FAIL"),
            (65000, "0x8007FDE8", ""),
        ):
            with self.subTest(error=error):
                code = codes.win32_as_hresult(error)
                self.assertEqual((code.number, code.name), (number, name))


class Reading(unittest.TestCase):
    """What counts as a transcript."""

    def check_refusal(self, content: bytes, because: str) -> None:
        with self.assertRaises(TranscriptError) as caught:
            parse(content.splitlines(keepends=True), "run.jsonl")
        self.assertIn(because, str(caught.exception))
        self.assertIn("scripts/demo --transcript", str(caught.exception))

    def test_refuses_an_empty_file(self) -> None:
        self.check_refusal(b"", "is empty")
        self.check_refusal(b"\n\n", "is empty")

    def test_refuses_a_file_with_half_a_line(self) -> None:
        self.check_refusal(good().lines()[0][:20], "line 1")

    def test_refuses_what_is_no_transcript(self) -> None:
        self.check_refusal(b"<!doctype html>\n<p>hello</p>\n", "line 1")
        self.check_refusal(b'{"level":"info","message":"hello"}\n', "line 1")
        self.check_refusal(
            b'{"event":"login","user":"a"}\n{"event":"logout"}\n', "no event of the laboratory"
        )
        self.check_refusal(b"\x00\xff\xfe binary \x80\n", "line 1")
        self.check_refusal(b"[" * 100_000 + b"\n", "line 1")
        self.check_refusal(b'{"t":' + b"9" * 5000 + b',"source":"lab","event":"step"}\n', "line 1")

    def test_names_the_line_that_is_damaged(self) -> None:
        lines = good().lines()
        lines[10] = lines[10][:-20] + b"\n"
        self.check_refusal(b"".join(lines), "line 11")

    def test_reads_a_transcript_whose_last_line_is_half_written(self) -> None:
        whole = good().read()
        transcript = parse((good().text()[:-30]).splitlines(keepends=True), "run.jsonl")
        self.assertTrue(transcript.cut_short)
        self.assertEqual(transcript.events, whole.events[:-1])
        content = page(transcript, summarize(transcript), "run.jsonl")
        says(self, content, "half-written")
        self.assertFalse("half-written" in page_of(good()))

    def test_takes_a_scenario_for_a_step(self) -> None:
        written = Written()
        written.add("lab", "scenario", name="unplugged", description="The camera goes.")
        says(self, page_of(written), "<b>Step 1</b><span>Scenario unplugged: The camera goes.</span>")

    def test_reads_an_event_that_is_new_to_it(self) -> None:
        written = good()
        written.rig("something-new", colour="blue")
        says(self, page_of(written), "Something-new")

    def test_reads_events_without_their_fields(self) -> None:
        for written in (good(), stopped(2)):
            for position, event in enumerate(written.events):
                for name in set(event) - {"event"}:
                    with self.subTest(event=event["event"], without=name):
                        reduced = Written()
                        reduced.events = list(written.events)
                        reduced.events[position] = {key: event[key] for key in event if key != name}
                        says(self, page_of(reduced), "</html>")

    def test_reads_events_whose_fields_are_of_another_kind(self) -> None:
        odd: list[Any] = [
            None,
            True,
            -1,
            1 << 70,
            1e300,
            float("nan"),
            "",
            "x",
            "zz",
            [],
            [None],
            [[]],
            {},
            {"a": 1},
        ]
        written = good(2)
        for kind in {event["event"] for event in written.events}:
            position, event = next(
                (index, each) for index, each in enumerate(written.events) if each["event"] == kind
            )
            for name in set(event) - {"event"}:
                for value in odd:
                    with self.subTest(event=kind, field=name, value=value):
                        changed = Written()
                        changed.events = list(written.events)
                        changed.events[position] = {**event, name: value}
                        transcript = changed.read()
                        summary = summarize(transcript)
                        self.assertIn("</html>", page(transcript, summary, "run.jsonl"))
                        json.dumps(summary.as_json())


class Page(unittest.TestCase):
    """What the page shows."""

    def test_needs_nothing_but_itself(self) -> None:
        for written in (good(), stopped(400)):
            content = page_of(written)
            self.assertIsNone(re.search(r"https?:|//\w|@import|url\(", content.replace("//.", "")))
            for tag, attributes in Elements(content).elements:
                self.assertNotIn(tag, ("link", "img", "iframe", "object", "base", "form"))
                self.assertEqual({"src", "href", "action"} & set(attributes), set())

    def test_has_a_lane_for_each_of_those_who_act(self) -> None:
        content = page_of(good())
        for name in ("Service control manager", "Service", "User", "Camera", "Bus"):
            says(self, content, f'<div class="name"><b>{name}</b>')

    def test_shows_the_outcome_first(self) -> None:
        content = page_of(good())
        self.assertIn(
            "The camera was updated from 5.10.2.0 to 5.10.3.0 in 1.2 s.", content.split("</header>")[0]
        )

    def test_shows_each_transfer_with_what_it_was(self) -> None:
        titles = [attributes.get("title", "") for _, attributes in Elements(page_of(good(4))).elements]
        blocks = [title.split("\n")[1] for title in titles if "DNLOAD of block" in title]
        self.assertEqual(
            blocks, [f"DNLOAD of block {n}, number {n - 1}, 1,024 bytes: done" for n in range(1, 5)]
        )
        self.assertEqual(sum("GETSTATUS after block" in title for title in titles), 4)

    def test_shows_prompts_traces_and_states(self) -> None:
        titles = "\n".join(
            attributes.get("title", "") for _, attributes in Elements(page_of(good())).elements
        )
        for words in (
            "the user is asked: the camera has firmware 5.10.2.0, the image 5.10.3.0. Update?",
            "The firmware image's version is 5.10.3.0",
            "the service is in state: running",
            "the camera is back on the bus, in DFU mode",
        ):
            self.assertIn(words, titles)

    def test_shows_the_point_of_failure(self) -> None:
        written = stopped(400)
        content = page_of(written)
        elements = Elements(content)
        begin, end = written.events[0]["t"], written.events[-1]["t"]
        refused = next(event["t"] for event in written.events if event.get("error") == 31)
        place = 100 * (refused - begin) / (end - begin)
        marks = [each for each in elements.of_class("f") if "title" in each]
        self.assertEqual(len(marks), 1)
        self.assertIn("0x8007001F ERROR_GEN_FAILURE: the device refused the request", marks[0]["title"])
        self.assertEqual(marks[0]["style"], f"left:{place:.3f}%")
        lines = elements.of_class("stopline")
        self.assertEqual([line["style"] for line in lines], [f"--at:{place / 100:.5f}"])
        says(self, content, "stopped at block 400")
        says(self, content, "block 400 of 1,024</b> · 399 had arrived (39&nbsp;%)")

    def test_draws_no_failure_into_a_good_update(self) -> None:
        elements = Elements(page_of(good()))
        self.assertEqual(
            elements.of_class("stopline") + elements.of_class("failure") + elements.of_class("bad"), []
        )

    def test_draws_the_progress_block_by_block(self) -> None:
        content = page_of(good(4))
        points = re.search(r'<polyline points="([^"]*)"', content)
        assert points is not None
        heights = [float(point.split(",")[1]) for point in points[1].split()]
        self.assertEqual(heights, [100, 75, 50, 25, 0, 0])

    def test_shows_cameras_below_each_other(self) -> None:
        written = good()
        written.rig("camera", camera=1, change="plugged", version="1.2.3.4")
        spans = Elements(page_of(written)).of_class("s")
        second = [span for span in spans if "camera 1 is plugged in, firmware 1.2.3.4" in span["title"]]
        self.assertEqual([span["style"].split(";")[-1] for span in second], ["--level:1"])
        self.assertEqual(sum("--level" in span["style"] for span in spans), 1)

    def test_shows_no_numbers_where_nothing_was_downloaded(self) -> None:
        written = Written()
        written.begin()
        written.answer(code=0)
        self.assertEqual(Elements(page_of(written)).of_class("totals"), [])
        self.assertEqual(len(Elements(page_of(good())).of_class("totals")), 1)

    def test_draws_no_thicket_of_lines_where_many_downloads_stopped(self) -> None:
        written = Written()
        for run in range(20):
            written.events += [{**event, "t": event["t"] + 10 * run} for event in stopped(1, 4).events]
        elements = Elements(page_of(written))
        self.assertEqual(elements.of_class("stopline"), [])
        self.assertEqual(len([each for each in elements.of_class("f") if "title" in each]), 20)

    def test_tells_equal_transfers_in_one_line(self) -> None:
        content = page_of(stopped(400))
        says(self, content, "Blocks 1 to 399 sent: 408,576 bytes")
        self.assertEqual(len(re.findall(r"<li class=\"bus bad\">", content)), 1)

    def test_lists_what_went_wrong_beside_the_download(self) -> None:
        written = good()
        written.rig("process", application="C:\\x.exe", command_line="/RegServer", ok=False, error=2)
        content = page_of(written)
        says(self, content, "Went wrong on the way")
        says(self, content, "a program could not be started: 0x80070002 ERROR_FILE_NOT_FOUND")

    def test_takes_no_part_of_a_hostile_text_for_its_own(self) -> None:
        hostile = "</script></style></title><script>alert(1)</script><img src=x onerror=alert(2)>\" onload='x' ]]>&lt;"
        written = stopped(2)
        for event in list(written.events):
            for name, value in event.items():
                if isinstance(value, str) and name not in ("event", "source", "setup", "data", "method"):
                    event[name] = hostile
                if name == "texts" and not str(value[:1]).startswith("['start"):
                    event[name] = [hostile, hostile]
        written.rig(hostile)
        written.rig("debug-string", text=hostile)
        written.rig("event-log", type=1, strings=[hostile])
        transcript = written.read()
        content = page(transcript, summarize(transcript), hostile)
        elements = Elements(content)
        self.assertEqual(
            [tag for tag, _ in elements.elements if tag in ("script", "img", "style")], ["style", "script"]
        )
        for _, attributes in elements.elements:
            self.assertEqual([name for name in attributes if name.startswith("on") or name == "src"], [])
        says(self, elements.words, "<script>alert(1)</script>")
        says(self, content, "Content-Security-Policy")

    def test_shows_texts_that_html_cannot_hold(self) -> None:
        written = good()
        written.step("a\ud800b\u0000c\u202ed")
        content = page_of(written)
        says(self, content, "A\N{REPLACEMENT CHARACTER}b\N{REPLACEMENT CHARACTER}c")
        content.encode("utf-8")

    def test_cuts_very_long_texts(self) -> None:
        written = good()
        written.step("x" * 1_000_000)
        self.assertLess(len(page_of(written)), 400_000)

    def huge(self) -> Transcript:
        """65,537 blocks, the last of which the camera refuses."""
        return stopped(65_537, 65_537).read()

    def test_stays_small_for_a_huge_transcript(self) -> None:
        transcript = self.huge()
        summary = summarize(transcript)
        content = page(transcript, summary, "run.jsonl")
        self.assertEqual((summary.transfers, summary.blocks_confirmed), (4 + 2 * 65_536 + 1, 65_536))
        says(self, content, "stopped at block 65,537")
        says(self, content, "too many events to draw each one (131,0")
        self.assertLess(len(content), 1 << 20)
        elements = Elements(content)
        self.assertLess(len(elements.elements), MOST_MARKS + MOST_LINES * 4)
        self.assertLessEqual(len(elements.of_class("b")), BINS)
        self.assertLessEqual(
            len([each for each in elements.of_class("f") if "title" in each]), MOST_SINGLED_OUT
        )
        self.assertEqual(len([each for each in elements.of_class("f") if "title" in each]), 1)

    def test_stays_small_for_a_transcript_of_many_other_events(self) -> None:
        written = good()
        for count in range(20_000):
            written.trace(23, f"message {count}")
        content = page_of(written)
        self.assertLess(len(content), 2 << 20)
        says(self, content, "lines of technical detail do not fit")


def colours(png: bytes) -> int:
    """How many different values the pixels of a PNG have, roughly: 1 for a blank one."""
    compressed = b""
    position = 8
    while position < len(png):
        length = int.from_bytes(png[position : position + 4], "big")
        if png[position + 4 : position + 8] == b"IDAT":
            compressed += png[position + 8 : position + 8 + length]
        position += 12 + length
    return len(set(zlib.decompress(compressed)))


class InTheBrowser(unittest.TestCase):
    """The page as Chromium shows it."""

    WIDTHS = (1300, 768, 360)

    def setUp(self) -> None:
        self._folder = tempfile.TemporaryDirectory()
        self.addCleanup(self._folder.cleanup)

    def page(self, written: Written) -> Path:
        path = Path(self._folder.name) / "report.html"
        path.write_text(page_of(written), encoding="utf-8")
        return path

    def check_picture(self, png: bytes, name: str) -> None:
        """It is not blank. With VEYRA_SCREENSHOTS in the environment it is kept in that folder, to be looked at."""
        self.assertGreater(colours(png), 60)
        if folder := os.environ.get("VEYRA_SCREENSHOTS"):
            (Path(folder) / f"report-{name}.png").write_bytes(png)

    @slow
    def test_fits_into_any_window_light_and_dark(self) -> None:
        with browser() as shown:
            for name, written in (("good", good(256)), ("failed", stopped(400))):
                path = self.page(written)
                for width in self.WIDTHS:
                    papers = []
                    for dark in (False, True):
                        shown.show(path, width, dark=dark)
                        self.assertEqual(shown.value("innerWidth"), width)
                        self.assertLessEqual(shown.value("document.documentElement.scrollWidth"), width)
                        self.check_picture(
                            shown.screenshot(), f"{name}-{width}-{'dark' if dark else 'light'}"
                        )
                        papers.append(shown.value("getComputedStyle(document.body).backgroundColor"))
                        self.assertEqual(shown.requests, [path.as_uri()])
                    self.assertNotEqual(*papers)

    @slow
    def test_shows_where_it_stopped_without_scrolling(self) -> None:
        with browser() as shown:
            for width, height in ((1300, 800), (360, 740)):
                shown.show(self.page(stopped(400)), width, height)
                for what in ("h1", ".far .stop", ".farwords"):
                    bottom = shown.value(f"document.querySelector('{what}').getBoundingClientRect().bottom")
                    self.assertLess(bottom, height, f"{what} at {width}")

    def place_of_the_failure(self, shown: Browser) -> tuple[float, float]:
        x, y = shown.value(
            "(() => { const box = document.querySelector('.bus i.f').getBoundingClientRect();"
            " return [box.x + box.width / 2, box.y + box.height / 2]; })()"
        )
        return x, y

    @slow
    def test_tells_the_failure_under_the_mouse_and_under_a_finger(self) -> None:
        with browser() as shown:
            shown.show(self.page(stopped(400)), 1300, 2000)
            shown.point(*self.place_of_the_failure(shown))
            self.assertIn("ERROR_GEN_FAILURE", shown.value(_TIP))
            shown.point(5, 5)
            self.assertTrue(shown.value("document.getElementById('tip').hidden"))
            shown.click(*self.place_of_the_failure(shown))
            self.assertIn("DNLOAD of block 400, number 399", shown.value(_TIP))

    @slow
    def test_walks_through_a_lane_with_the_arrow_keys(self) -> None:
        with browser() as shown:
            shown.show(self.page(good(4)), 1300, 2000)
            shown.value("document.querySelector('.user .track').focus()")
            shown.press("Home")
            told = [shown.value(_TIP)]
            for _ in range(4):
                shown.press("ArrowRight")
                told.append(shown.value(_TIP))
            self.assertTrue(any("the user is asked" in words for words in told), told)
            self.assertTrue(any("the user accepts" in words for words in told), told)
            shown.press("Escape")
            self.assertTrue(shown.value("document.getElementById('tip').hidden"))

    @slow
    def test_zooms_to_the_download(self) -> None:
        with browser() as shown:
            shown.show(self.page(good(8)), 1300, 2000)
            width = "document.querySelector('.bus i.o').parentElement.offsetWidth"
            whole = shown.value(width)
            shown.value(
                "[...document.querySelectorAll('.zoom button')].find(b => b.textContent == 'The download').click()"
            )
            self.assertGreater(shown.value(width), 1.5 * whole)
            view = "document.querySelector('.scroll').getBoundingClientRect()"
            for end in ("o", "e"):
                x = shown.value(f"document.querySelector('.bus i.{end}').getBoundingClientRect().x")
                self.assertGreaterEqual(x, shown.value(f"{view}.left"))
                self.assertLessEqual(x, shown.value(f"{view}.right"))
            self.assertLessEqual(shown.value("document.documentElement.scrollWidth"), 1300)

    @slow
    def test_runs_nothing_that_a_transcript_smuggles_in(self) -> None:
        written = good()
        written.step(
            "<img src=x onerror=\"document.title='caught'\"></script><script>document.title='caught'</script>"
        )
        with browser() as shown:
            shown.show(self.page(written), 1300)
            self.assertNotIn("caught", shown.value("document.title"))


if __name__ == "__main__":
    unittest.main()
