"""The picture of an update, made from small transcripts."""

import json
import os
import re
import zlib
from collections.abc import Iterator
from html.parser import HTMLParser
from pathlib import Path
from typing import Any

import pytest

from browser import Browser, browser
from support import CHECKOUT, slow
from transcripts import BUSY, MANIFESTING, Written, begun, good, sending, stopped
from veyra_lab.report import codes
from veyra_lab.report.lanes import BINS, MOST_MARKS
from veyra_lab.report.page import page
from veyra_lab.report.problems import Problem, problems
from veyra_lab.report.story import MOST_LINES
from veyra_lab.report.summary import Summary, Verdict, summarize
from veyra_lab.report.transcript import TranscriptError, parse

_UNKNOWN = "\N{REPLACEMENT CHARACTER}"
_TIP = "document.getElementById('tip').textContent"
_TIP_IS_HIDDEN = "document.getElementById('tip').hidden"


def summary_of(written: Written) -> Summary:
    return summarize(written.read())


def page_of(written: Written, name: str = "run.jsonl") -> str:
    transcript = written.read()
    return page(transcript, summarize(transcript), name)


def says(content: str, *words: str) -> None:
    """The page has these words. (A plain assert would print the whole page.)"""
    missing = [each for each in words if each not in content]
    assert not missing, f"the page does not say: {missing}"


class Elements(HTMLParser):
    """The elements of a page with their attributes, and its text."""

    def __init__(self, content: str) -> None:
        super().__init__()
        self.elements: list[tuple[str, dict[str, str]]] = []
        self.words = ""
        self.feed(content)
        self.titles = [attributes["title"] for _, attributes in self.elements if "title" in attributes]
        # The legend shows a failure too, without a tip.
        self.failures = [attributes for attributes in self.of_class("f") if "title" in attributes]

    def handle_starttag(self, tag: str, attrs: list[tuple[str, str | None]]) -> None:
        self.elements.append((tag, {name: value or "" for name, value in attrs}))

    def handle_data(self, data: str) -> None:
        self.words += data

    def of_class(self, name: str) -> list[dict[str, str]]:
        return [attributes for _, attributes in self.elements if name in attributes.get("class", "").split()]


def waiting() -> Written:
    """A download whose first block the camera never finishes."""
    written = begun().prepare().block(0, told=False)
    for _ in range(25):
        written.status(BUSY, after=0.2)
    return written.close(after=0.2)


def silent() -> Written:
    """An update in which the camera once did not answer whether it is ready."""
    return begun(1).prepare().block(0, told=False).status(error=121).status(after=0.2).finish(1).come_back()


# What the report understands. Each with its verdict, the failure's code ("" when it has none, None when nothing failed)
# and the sentence.

_STOPPED_AT_FIRST = "The download stopped before its first block: "
_NOT_IN_USE = "All 1 blocks were sent, but the camera did not take the image into use: "
_NO_DOWNLOAD = "The user accepted, but no download began: "
_OUTCOMES: dict[str, tuple[Written, Verdict, str | None, str]] = {
    # 1.24 s lie between the answer and the camera's return.
    "an update": (
        good(), Verdict.UPDATED, None, "The camera was updated from 5.10.2.0 to 5.10.3.0 in 1.2 s."
    ),
    "a refused block": (
        stopped(400), Verdict.STOPPED, "0x8007001F",
        "The download stopped at block 400 of 1,024: the camera did not take the block: "
        "the device refused the request (a stall on the bus), or left during it (0x8007001F).",
    ),
    "a camera that was pulled out": (
        stopped(3, error=433).camera("unplugged"), Verdict.STOPPED, "0x800701B1",
        "The download stopped at block 3 of 1,024: the camera did not take the block: "
        "the device is gone from the bus (0x800701B1).",
    ),
    "a status that the camera reported": (
        sending(1, 8).block(1, told=False).status("070000000500").close(), Verdict.STOPPED, "0x80004005",
        "The download stopped at block 2 of 8: the camera reported status errVERIFY (the memory does not hold what "
        "was written) in state dfuDNLOAD-IDLE (ready for the next block) (0x80004005).",
    ),
    "a camera that was not ready": (
        waiting(), Verdict.STOPPED, "0x80004005",
        "The download stopped at block 1 of 8: the camera was not ready within 5 s; "
        "it stayed in state dfuDNBUSY (writing a block) (0x80004005).",
    ),
    "a wrong state before the first block": (
        begun().prepare(state="05").close(), Verdict.STOPPED, "0x80004005",
        _STOPPED_AT_FIRST + "the camera was in state dfuDNLOAD-IDLE (ready for the next block) instead of dfuIDLE "
        "(0x80004005).",
    ),
    "transfers that are too short for the trial read": (
        begun().prepare().without_the_last().close(), Verdict.STOPPED, "0x80070018",
        _STOPPED_AT_FIRST + "the service first reads 68 bytes in one transfer, and the camera takes fewer "
        "(0x80070018).",
    ),
    "a camera that was gone before the first request": (
        begun().close(), Verdict.STOPPED, "0x80070005",
        _STOPPED_AT_FIRST + "the camera was gone before the first request (0x80070005).",
    ),
    "an image that could not be opened": (
        begun().without_the_last().close(), Verdict.STOPPED, "0x80004005",
        _STOPPED_AT_FIRST + "the image file could not be opened (0x80004005).",
    ),
    "a device that was of no use": (
        begun().without_the_last().rig("usb-close", link="usb", ok=True), Verdict.STOPPED, "",
        _STOPPED_AT_FIRST + "the camera shows no interface to download through, or was gone before it could be used.",
    ),
    "a service that ended in the middle": (
        sending(1, 8).add("lab", "gone", of="rig", pid=7), Verdict.STOPPED, "",
        "The download stopped at block 1 of 8: the service's process ended in the middle of it.",
    ),
    "an update that the service takes for failed": (
        sending(1, 1).end_of_image(1).status(MANIFESTING).status(error=433, after=30).come_back().close(),
        Verdict.UNCONFIRMED, "0x80004005",
        "The camera was updated to 5.10.3.0, but the service counts the download as failed: the camera was not "
        "ready within 30 s; the last request ended with 0x800701B1 ERROR_NO_SUCH_DEVICE: "
        "the device is gone from the bus (0x80004005).",
    ),
    "a failed update after which the camera runs its old firmware": (
        sending(1, 1).end_of_image(1).status("0a0000000a00").close().come_back("5.10.2.0"),
        Verdict.STOPPED, "0x80004005",
        _NOT_IN_USE + "the camera reported status errFIRMWARE (the device's firmware is damaged) in state dfuERROR "
        "(has given up) (0x80004005).",
    ),
    "an image that was not taken into use": (
        sending(1, 1).end_of_image(1).status("0a0000000a00").close(), Verdict.STOPPED, "0x80004005",
        _NOT_IN_USE + "the camera reported status errFIRMWARE (the device's firmware is damaged) in state dfuERROR "
        "(has given up) (0x80004005).",
    ),
    "a camera that came back unchanged": (
        good().without_the_last().come_back("5.10.2.0"), Verdict.STOPPED, "",
        "The update changed nothing: the whole image was sent, but the camera came back with firmware 5.10.2.0 as "
        "before.",
    ),
    "a record that ends in the middle": (
        sending(2, 8), Verdict.UNFINISHED, None,
        "The record ends in the middle of the download, after block 2 of 8.",
    ),
    "a camera that is not back": (
        good().without_the_last(), Verdict.UNFINISHED, None,
        "The whole image was sent, but the record does not show the camera coming back.",
    ),
    "a user who declined": (
        Written().begin().answer(code=0), Verdict.DECLINED, None,
        "The user declined. The camera keeps firmware 5.10.2.0.",
    ),
    "a user to whom nobody listened": (
        Written().begin().answer(sinks=0), Verdict.STOPPED, "",
        "Nothing was updated: the service did not listen to the user's answer.",
    ),
    "a camera that did not come back in DFU mode": (
        Written().begin().answer(), Verdict.STOPPED, "",
        _NO_DOWNLOAD + "the camera did not come back in DFU mode.",
    ),
    "a device that could not be opened": (
        Written().begin().answer().rig("usb-open", link="usb", ok=False)
        .trace(20, "The camera in DFU mode could not be opened"),
        Verdict.STOPPED, "",
        _NO_DOWNLOAD + "the camera in DFU mode could not be opened.",
    ),
    "a camera that refused to enter DFU mode": (
        Written().begin().answer(result=-2147024775), Verdict.STOPPED, "0x80070079",
        _NO_DOWNLOAD + "the camera did not come back in DFU mode.",
    ),
    "a user who has not answered": (
        Written().begin(), Verdict.UNFINISHED, None, "The user was asked, and the record ends before the answer."
    ),
    "equal versions": (
        Written().begin(image="5.10.2.0"), Verdict.NOT_ASKED, None,
        "Nobody was asked: camera and image both have version 5.10.2.0.",
    ),
    "a missing image": (
        Written().camera("plugged").trace(25, "The firmware image could not be opened"), Verdict.NOT_ASKED, None,
        "Nobody was asked: the firmware image could not be opened.",
    ),
    "updates that are switched off": (
        Written().camera("plugged"), Verdict.NOT_ASKED, None,
        "Nobody was asked: the service never looked at the camera's version, as when the update mode is not "
        "“Service Controlled”.",
    ),
    "no camera": (
        Written().step("Starting the service"), Verdict.NOT_ASKED, None,
        "No camera was plugged in, and nobody was asked.",
    ),
    "two downloads, of which the first failed": (
        stopped(2, 4).camera("unplugged").and_later(good()), Verdict.STOPPED, "0x8007001F",
        "1 of 2 downloads ended in an update: number 1: The download stopped at block 2 of 4: the camera did not take "
        "the block: the device refused the request (a stall on the bus), or left during it (0x8007001F).",
    ),
    # The later return of the camera belongs to the later download.
    "two downloads, and one return": (
        good().without_the_last().and_later(good()), Verdict.UNFINISHED, None,
        "1 of 2 downloads ended in an update: number 1: "
        "The whole image was sent, but the record does not show the camera coming back.",
    ),
}  # fmt: skip


@pytest.mark.parametrize(("written", "verdict", "code", "sentence"), _OUTCOMES.values(), ids=_OUTCOMES)
def test_tells_what_came_of_it_at_the_top(written: Written, verdict: Verdict, code: str | None, sentence: str) -> None:
    summary = summary_of(written)
    failure = summary.failure
    assert (summary.verdict, summary.sentence) == (verdict, sentence)
    assert (failure and (failure.code.number if failure.code else "")) == code
    says(Elements(page_of(written).split("</header>")[0]).words, sentence)


@pytest.mark.parametrize(
    ("written", "verdict", "waits"),
    [(good(), Verdict.UPDATED, 1), (waiting(), Verdict.STOPPED, 24), (silent(), Verdict.UPDATED, 2)],
    ids=["good", "waiting", "silent"],
)
def test_counts_how_often_and_how_long_a_camera_was_not_ready(written: Written, verdict: Verdict, waits: int) -> None:
    summary = summary_of(written)
    assert (summary.verdict, summary.waits) == (verdict, waits)
    assert summary.wait_seconds == pytest.approx(0.2 * waits)


def test_counts_transfers_bytes_and_blocks() -> None:
    summary = summary_of(good(4))
    assert (summary.transfers, summary.bytes_sent, summary.blocks_confirmed) == (4 + 8 + 4, 4096, 4)


def test_gives_scripts_the_same_as_json() -> None:
    told = json.loads(json.dumps(summary_of(stopped(400)).as_json()))
    assert told["outcome"] == "stopped"
    assert told["failure"] == {
        "t": told["failure"]["t"],
        "why": "the camera did not take the block: the device refused the request (a stall on the bus), or left during"
        " it",
        "block": 400,
        "blocks": 1024,
        "code": "0x8007001F",
        "name": "ERROR_GEN_FAILURE",
        "meaning": "the device refused the request (a stall on the bus), or left during it",
    }
    assert (told["blocks"], told["transfers"], told["downloads"]) == (399, 4 + 2 * 399 + 1, 1)


def test_tells_several_downloads() -> None:
    summary = summary_of(_OUTCOMES["two downloads, of which the first failed"][0])
    assert len(summary.downloads) == 2
    assert summary.failure and summary.failure.block == 2


def test_takes_the_unanswered_last_request_for_what_it_is() -> None:
    content = page_of(good())
    says(content, "no answer, as expected, since the camera restarts over it")
    assert len(Elements(content).of_class("f")) == 1, "only the legend shows a failure"


def test_keeps_the_announcement_that_stands_before_the_opening() -> None:
    written = good()
    opened = next(event for event in written.events if event["event"] == "usb-open")
    written.events.remove(opened)
    announced = next(index for index, event in enumerate(written.events) if event.get("texts") == ["start:4"])
    written.events.insert(announced + 1, {**opened, "t": written.events[announced]["t"]})
    assert summary_of(written).downloads[0].announced == 4


def test_knows_every_status_code_of_the_service() -> None:
    known = {name for name, _ in (*codes._WIN32.values(), *codes._HRESULTS.values())}
    named = set()
    for path in (*(CHECKOUT / "src").rglob("*.cpp"), *(CHECKOUT / "lab" / "rig").rglob("*.cpp")):
        named |= set(re.findall(r"\b(?:E|ERROR|DISP_E|CO_E)_[A-Z_]+\b", path.read_text(encoding="utf-8")))
    assert len(named) > 15
    assert named - known - {"ERROR_SUCCESS"} == set()


@pytest.mark.parametrize(
    ("error", "number", "name"),
    [
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
    ],
)
def test_names_codes_as_the_service_makes_them(error: int, number: str, name: str) -> None:
    code = codes.win32_as_hresult(error)
    assert (code.number, code.name) == (number, name)


# What counts as a transcript.


def damaged() -> bytes:
    lines = good().lines()
    lines[10] = lines[10][:-20] + b"\n"
    return b"".join(lines)


_REFUSED = {
    "empty": (b"", "is empty"),
    "empty lines": (b"\n\n", "is empty"),
    "half a line": (good().lines()[0][:20], "line 1"),
    "HTML": (b"<!doctype html>\n<p>hello</p>\n", "line 1"),
    "another log": (b'{"level":"info","message":"hello"}\n', "line 1"),
    "other events": (b'{"event":"login","user":"a"}\n{"event":"logout"}\n', "no event of the laboratory"),
    "binary": (b"\x00\xff\xfe binary \x80\n", "line 1"),
    "deeply nested": (b"[" * 100_000 + b"\n", "line 1"),
    "an endless number": (b'{"t":' + b"9" * 5000 + b',"source":"lab","event":"step"}\n', "line 1"),
    "a damaged line": (damaged(), "line 11"),
}


@pytest.mark.parametrize(("content", "because"), _REFUSED.values(), ids=_REFUSED)
def test_refuses_what_is_no_transcript(content: bytes, because: str) -> None:
    with pytest.raises(TranscriptError) as caught:
        parse(content.splitlines(keepends=True), "run.jsonl")
    says(str(caught.value), because, "scripts/demo --transcript")


def test_tells_a_bus_once_that_the_camera_told_as_well() -> None:
    lines = [
        {"source": "rig", "event": "transfer", "t": 1},
        {"source": "usbredir", "event": "transfer", "t": 1},
        {"source": "usbredir", "event": "camera", "change": "left", "t": 2},
        {"source": "guest", "event": "device", "change": "removal", "t": 3},
    ]
    text = [json.dumps(line).encode() + b"\n" for line in lines]
    told = [(event["source"], event["event"]) for event in parse(text, "run.jsonl").events]
    assert told == [("rig", "transfer"), ("usbredir", "camera"), ("guest", "device")]
    # Of a server that somebody else's host has used, everything.
    assert len(parse(text[1:], "run.jsonl").events) == 3


def test_reads_a_transcript_whose_last_line_is_half_written() -> None:
    transcript = parse((good().text()[:-30]).splitlines(keepends=True), "run.jsonl")
    assert transcript.cut_short
    assert transcript.events == good().read().events[:-1]
    says(page(transcript, summarize(transcript), "run.jsonl"), "half-written")
    assert "half-written" not in Elements(page_of(good())).words


def test_takes_a_scenario_for_a_step() -> None:
    written = Written().add("lab", "scenario", name="unplugged", description="The camera goes.")
    says(page_of(written), "<b>Scenario</b><span>Unplugged: The camera goes.</span>")


def test_tells_by_which_id_a_failure_is_played_again() -> None:
    name = "soak.42.17"
    written = stopped(400)
    begin = {"t": 0.0, "source": "lab", "event": "scenario", "name": "round 17", "description": "A fault.", "id": name}
    last = written.events[-1]["t"]
    end = {"t": last, "source": "lab", "event": "judgement", "held": False, "complaints": ["a flash"], "id": name}
    written.events = [begin, *written.events, end]
    text = page_of(written)
    says(text, f"<dt>Again</dt><dd><code>scripts/lab replay {name}</code></dd>")
    says(text, f"<b>Scenario</b><span>Round 17: A fault. (again: scripts/lab replay {name})</span>")
    says(text, "Did not hold: a flash", f"<p>Again: <code>scripts/lab replay {name}</code></p>")
    assert summary_of(written).as_json()["again"] == name
    assert summary_of(stopped(400)).as_json()["again"] is None


def test_says_nothing_of_playing_again_what_held() -> None:
    held = Written().add("lab", "judgement", held=True, complaints=[], id="soak.42.17")
    text = page_of(held)
    says(text, "Everything held")
    assert "Went wrong on the way" not in text


def test_reads_an_event_that_is_new_to_it() -> None:
    says(page_of(good().rig("something-new", colour="blue")), "Something-new")


def check_reads(written: Written, position: int, event: dict[str, Any]) -> None:
    """The report bears this event in the place of the one there."""
    changed = Written()
    changed.events = [*written.events[:position], event, *written.events[position + 1 :]]
    try:
        says(page_of(changed), "</html>")
        json.dumps(summary_of(changed).as_json())
    except Exception as error:
        raise AssertionError(f"the report does not bear {event}") from error


@pytest.mark.parametrize(
    "written", [pytest.param(good(2), id="good"), pytest.param(stopped(2), id="stopped", marks=slow)]
)
def test_reads_events_without_their_fields(written: Written) -> None:
    for position, event in enumerate(written.events):
        for name in set(event) - {"event"}:
            check_reads(written, position, {key: event[key] for key in event if key != name})


@slow
def test_reads_events_whose_fields_are_of_another_kind() -> None:
    odd = [None, True, -1, 1 << 70, 1e300, float("nan"), "", "x", "zz", [], [None], [[]], {}, {"a": 1}]
    written = good(2)
    first_of_kind = {event["event"]: place for place, event in reversed([*enumerate(written.events)])}
    for position in first_of_kind.values():
        event = written.events[position]
        for name in set(event) - {"event"}:
            for value in odd:
                check_reads(written, position, {**event, name: value})


# What the page shows.


@pytest.mark.parametrize("written", [good(), stopped(400)], ids=["good", "stopped"])
def test_needs_nothing_but_itself(written: Written) -> None:
    content = page_of(written)
    assert re.findall(r"https?:|//\w|@import|url\(", content.replace("//.", "")) == []
    for tag, attributes in Elements(content).elements:
        assert tag not in ("link", "img", "iframe", "object", "base", "form")
        assert not {"src", "href", "action"} & set(attributes)


def test_has_a_lane_for_each_of_those_who_act() -> None:
    names = ("Service control manager", "Service", "User", "Camera", "Bus")
    says(page_of(good()), *(f'<div class="name"><b>{name}</b>' for name in names))


def test_shows_each_transfer_with_what_it_was() -> None:
    titles = Elements(page_of(good(4))).titles
    blocks = [title.split("\n")[1] for title in titles if "DNLOAD of block" in title]
    assert blocks == [f"DNLOAD of block {n}, number {n - 1}, 1,024 bytes: done" for n in range(1, 5)]
    assert sum("GETSTATUS after block" in title for title in titles) == 4


def test_shows_prompts_traces_and_states() -> None:
    says(
        "\n".join(Elements(page_of(good())).titles),
        "the user is asked: the camera has firmware 5.10.2.0, the image 5.10.3.0. Update?",
        "The firmware image's version is 5.10.3.0",
        "the service is in state: running",
        "the camera is back on the bus, in DFU mode",
    )


def test_shows_the_point_of_failure() -> None:
    written = stopped(400)
    content = page_of(written)
    elements = Elements(content)
    begin, end = written.events[0]["t"], written.events[-1]["t"]
    refused = next(event["t"] for event in written.events if event.get("error") == 31)
    place = 100 * (refused - begin) / (end - begin)
    assert [mark["style"] for mark in elements.failures] == [f"left:{place:.3f}%"]
    says(elements.failures[0]["title"], "0x8007001F ERROR_GEN_FAILURE: the device refused the request")
    assert [line["style"] for line in elements.of_class("stopline")] == [f"--at:{place / 100:.5f}"]
    says(content, "stopped at block 400", "block 400 of 1,024</b> · 399 had arrived (39&nbsp;%)")


def test_draws_no_failure_into_a_good_update() -> None:
    elements = Elements(page_of(good()))
    assert elements.of_class("stopline") + elements.of_class("failure") + elements.of_class("bad") == []


def test_draws_the_progress_block_by_block() -> None:
    points = re.search(r'<polyline points="([^"]*)"', page_of(good(4)))
    assert points is not None
    assert [float(point.split(",")[1]) for point in points[1].split()] == [100, 75, 50, 25, 0, 0]


def test_shows_cameras_below_each_other() -> None:
    spans = Elements(page_of(good().camera("plugged", "1.2.3.4", number=1))).of_class("s")
    second = [span for span in spans if "camera 1 is plugged in, firmware 1.2.3.4" in span["title"]]
    assert [span["style"].split(";")[-1] for span in second] == ["--level:1"]
    assert sum("--level" in span["style"] for span in spans) == 1


def test_shows_no_numbers_where_nothing_was_downloaded() -> None:
    for written, count in ((Written().begin().answer(code=0), 0), (good(), 1)):
        assert len(Elements(page_of(written)).of_class("totals")) == count


def test_draws_no_thicket_of_lines_where_many_downloads_stopped() -> None:
    written = Written()
    for run in range(20):
        written.and_later(stopped(1, 4), 10 * run)
    elements = Elements(page_of(written))
    assert elements.of_class("stopline") == []
    assert len(elements.failures) == 20


def test_tells_equal_transfers_in_one_line() -> None:
    content = page_of(stopped(400))
    says(content, "Blocks 1 to 399 sent: 408,576 bytes")
    assert content.count('<li class="bus bad">') == 1


def test_lists_what_went_wrong_beside_the_download() -> None:
    failed = {"application": "C:\\x.exe", "command_line": "/RegServer", "ok": False, "error": 2}
    says(
        page_of(good().rig("process", **failed)),
        "Went wrong on the way",
        "a program could not be started: 0x80070002 ERROR_FILE_NOT_FOUND",
    )


def test_takes_no_part_of_a_hostile_text_for_its_own() -> None:
    hostile = "</script></style></title><script>alert(1)</script><img src=x onerror=alert(2)>\" onload='x' ]]>&lt;"
    hostile += "{{ 7 * 7 }}{% raw %}\x00\x1b[31m\x7f\x85\u202e\ud800"
    written = stopped(2)
    for event in list(written.events):
        for name, value in event.items():
            if isinstance(value, str) and name not in ("event", "source", "setup", "data", "method"):
                event[name] = hostile
            if name == "texts" and not str(value[:1]).startswith("['start"):
                event[name] = [hostile, hostile]
    written.rig(hostile).rig("debug-string", text=hostile).rig("event-log", type=1, strings=[hostile])
    written.rig("watch-callback", action=hostile, link=hostile)
    content = page_of(written, hostile)
    elements = Elements(content)
    assert [tag for tag, _ in elements.elements if tag in ("script", "img", "style")] == ["style", "script"]
    for _, attributes in elements.elements:
        assert [name for name in attributes if name.startswith("on") or name == "src"] == []
    shown = "".join(each if each.isprintable() else _UNKNOWN for each in hostile)
    says(elements.words, shown)
    says("\n".join(elements.titles), f"the watch sees: {shown} of {shown}")
    assert {each for each in content if not each.isprintable()} == {"\n"}
    says(content, "Content-Security-Policy")


def test_shows_texts_that_html_cannot_hold() -> None:
    content = page_of(good().step("a\ud800b\u0000c\u202ed"))
    says(content, f"A{_UNKNOWN}b{_UNKNOWN}c{_UNKNOWN}d")
    content.encode("utf-8")


def test_cuts_very_long_texts() -> None:
    assert len(page_of(good().step("x" * 1_000_000))) < 400_000


@slow
def test_stays_small_for_a_huge_transcript() -> None:
    # The camera refuses the last block.
    transcript = stopped(65_537, 65_537).read()
    summary = summarize(transcript)
    content = page(transcript, summary, "run.jsonl")
    elements = Elements(content)
    assert (summary.transfers, summary.blocks_confirmed) == (4 + 2 * 65_536 + 1, 65_536)
    says(content, "stopped at block 65,537", "too many events to draw each one (131,0")
    assert len(content) < 1 << 20
    assert len(elements.elements) < MOST_MARKS + MOST_LINES * 4
    assert len(elements.of_class("b")) <= BINS
    assert len(elements.failures) == 1


def test_stays_small_for_a_transcript_of_many_other_events() -> None:
    written = good()
    for count in range(20_000):
        written.trace(23, f"message {count}")
    content = page_of(written)
    assert len(content) < 2 << 20
    says(content, "lines of technical detail do not fit")


# The page as Chromium shows it.


@pytest.fixture
def shown() -> Iterator[Browser]:
    with browser() as started:
        yield started


def kept(written: Written, folder: Path) -> Path:
    """The page as a file in the folder."""
    path = folder / "report.html"
    path.write_text(page_of(written), encoding="utf-8")
    return path


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


def check_picture(png: bytes, name: str) -> None:
    """It is not blank. With VEYRA_SCREENSHOTS in the environment it is kept in that folder, to be looked at."""
    assert colours(png) > 60
    if folder := os.environ.get("VEYRA_SCREENSHOTS"):
        (Path(folder) / f"report-{name}.png").write_bytes(png)


@slow
def test_fits_into_any_window_light_and_dark(shown: Browser, tmp_path: Path) -> None:
    for name, written in (("good", good(256)), ("failed", stopped(400))):
        path = kept(written, tmp_path)
        for width in (1300, 768, 360):
            papers = []
            for dark in (False, True):
                shown.show(path, width, dark=dark)
                assert shown.value("innerWidth") == width
                assert shown.value("document.documentElement.scrollWidth") <= width
                check_picture(shown.screenshot(), f"{name}-{width}-{'dark' if dark else 'light'}")
                papers.append(shown.value("getComputedStyle(document.body).backgroundColor"))
                assert shown.requests == [path.as_uri()]
            assert papers[0] != papers[1]


@slow
def test_shows_where_it_stopped_without_scrolling(shown: Browser, tmp_path: Path) -> None:
    for width, height in ((1300, 800), (360, 740)):
        shown.show(kept(stopped(400), tmp_path), width, height)
        for what in ("h1", ".far .stop", ".farwords"):
            bottom = shown.value(f"document.querySelector('{what}').getBoundingClientRect().bottom")
            assert bottom < height, f"{what} at {width}"


@slow
def test_tells_the_failure_under_the_mouse_and_under_a_finger(shown: Browser, tmp_path: Path) -> None:
    place = (
        "(() => { const box = document.querySelector('.bus i.f').getBoundingClientRect();"
        " return [box.x + box.width / 2, box.y + box.height / 2]; })()"
    )
    shown.show(kept(stopped(400), tmp_path), 1300, 2000)
    shown.point(*shown.value(place))
    says(shown.value(_TIP), "ERROR_GEN_FAILURE")
    shown.point(5, 5)
    assert shown.value(_TIP_IS_HIDDEN)
    shown.click(*shown.value(place))
    says(shown.value(_TIP), "DNLOAD of block 400, number 399")


def test_tells_a_broken_contract_of_windows() -> None:
    breach = {"t": 1.5, "event": "contract", "contract": "one", "call": "MFStartup"}
    assert problems([breach]) == [Problem(1.5, "a contract of Windows is broken: one (MFStartup)")]


def late(refused: list[int]) -> Written:
    told = {"control": 11, "ms": 30_400, "id": 7011, "text": "A timeout was reached.", "error": 1053}
    return good().rig("late-control", refused=refused, **told)


def test_tells_a_control_that_windows_would_give_up() -> None:
    note = "Windows would write event 7011 after this device event of 30.4 s: A timeout was reached."
    titles = Elements(page_of(late([]))).titles
    assert [title.partition("\n")[2] for title in titles if "7011" in title] == [note]
    meanwhile = "Refused meanwhile: interrogate, stop (0x8007041D ERROR_SERVICE_REQUEST_TIMEOUT: "
    says(page_of(late([4, 1])), f"{note} {meanwhile}")
    assert summary_of(late([4, 1])).verdict is Verdict.UPDATED
    assert problems(late([4, 1]).events) == []


def test_shows_a_question_until_it_is_answered_or_gives_way_to_the_next_one() -> None:
    written = Written().begin().prompt("ShowUpdatePrompt", "5.10.2.0", "5.10.3.0").answer()
    asked = [event["t"] for event in written.events if event.get("method") == "ShowUpdatePrompt"]
    ends = [*asked[1:], *(event["t"] for event in written.events if event["event"] == "answer")]
    shown = [span["title"] for span in Elements(page_of(written)).of_class("asked")]
    assert [title.partition(" (")[0] for title in shown] == [
        f"{begin:.3f} s to {end:.3f} s" for begin, end in zip(asked, ends, strict=True)
    ]


@slow
def test_walks_through_a_lane_with_the_arrow_keys(shown: Browser, tmp_path: Path) -> None:
    shown.show(kept(good(4), tmp_path), 1300, 2000)
    shown.value("document.querySelector('.user .track').focus()")
    told = ""
    for key in ("Home", *["ArrowRight"] * 4):
        shown.press(key)
        told += shown.value(_TIP) + "\n"
    says(told, "the user is asked", "the user accepts")
    shown.press("Escape")
    assert shown.value(_TIP_IS_HIDDEN)


@slow
def test_zooms_to_the_download(shown: Browser, tmp_path: Path) -> None:
    shown.show(kept(good(8), tmp_path), 1300, 2000)
    width = "document.querySelector('.bus i.o').parentElement.offsetWidth"
    whole = shown.value(width)
    shown.value("[...document.querySelectorAll('.zoom button')].find(b => b.textContent == 'The download').click()")
    assert shown.value(width) > 1.5 * whole
    view = "document.querySelector('.scroll').getBoundingClientRect()"
    for end in ("o", "e"):
        x = shown.value(f"document.querySelector('.bus i.{end}').getBoundingClientRect().x")
        assert shown.value(f"{view}.left") <= x <= shown.value(f"{view}.right")
    assert shown.value("document.documentElement.scrollWidth") <= 1300


@slow
def test_runs_nothing_that_a_transcript_smuggles_in(shown: Browser, tmp_path: Path) -> None:
    caught = "document.title='caught'"
    written = good().step(f'<img src=x onerror="{caught}"></script><script>{caught}</script>')
    shown.show(kept(written, tmp_path), 1300)
    assert "caught" not in shown.value("document.title")
