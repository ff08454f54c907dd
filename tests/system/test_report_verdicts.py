"""What the report's page says of what was expected, what to do, and what it was made with; and how it is shown."""

import base64
import re
import subprocess
from collections.abc import Iterator
from pathlib import Path

import pytest

from browser import Browser, browser
from support import CHECKOUT, slow
from test_report import Elements, kept, page_of, says, summary_of
from transcripts import MANIFESTING, Written, begun, good, sending, stopped
from veyra_lab.causes.answer import answer
from veyra_lab.causes.rows import rows
from veyra_lab.causes.sent import Sent
from veyra_lab.causes.trace_text import Message
from veyra_lab.judgement.words import words_of
from veyra_lab.report.page import cause_page
from veyra_lab.report.remedy import OBSTACLE_ROWS
from veyra_lab.scenarios.files import read_folder
from veyra_lab.scenarios.schema import SCENARIOS
from veyra_lab.scenarios.sentences import numbered, sentence


def scenario(of: Written, *complaints: str) -> Written:
    """A scenario in which another transcript's events happen, and which is judged."""
    whole = Written().scenario()
    whole.events += [{**event, "t": event["t"] + 0.02} for event in of.events]
    whole.add("lab", "image", after=30, name="", version="5.10.3.0", size=402, sha256="00")
    return whole.expected("the download ends without an update", *complaints).verdict(*complaints)


def header(written: Written) -> str:
    return page_of(written).partition("</header>")[0].partition("<header")[2]


# Verdicts.


def test_what_held_is_never_red() -> None:
    content = page_of(scenario(stopped(3, 8)))
    elements = Elements(content)
    assert ' class="good"' in header(scenario(stopped(3, 8)))
    assert elements.failures == []
    assert [attributes for attributes in elements.of_class("bad") if attributes] == []
    # The card, the line through all lanes, the end of the progress, the line of the story.
    assert (len(elements.of_class("failure")), len(elements.of_class("expected"))) == (1, 4)
    assert [mark for mark in elements.of_class("g") if "title" in mark]
    says(content, "Held: what happened was expected", "Where it stopped, as was expected", "1 of 1 expectations held")


def test_what_failed_is_never_green() -> None:
    written = scenario(good(), "errors of transfers: expected [31], seen []")
    assert ' class="bad"' in header(written)
    elements = Elements(page_of(written))
    assert [span["title"] for span in elements.of_class("s") if "good" in span["class"].split()] == []
    says(header(written), "Failed: not everything held", "Did not hold: errors of transfers: expected [31], seen []")


def test_tells_each_expectation_with_its_step_and_complaint() -> None:
    written = Written().scenario().expected("camera 0 is updated").expected("errors: 31", "seen 22", step="4.2")
    content = page_of(written.verdict("steps[3].steps[1]: seen 22", "steps[0]: nothing happened for 20 s"))
    items = re.findall(r'<li class="(held|failed)">(.*?)</li>', content, re.DOTALL)
    assert [(kind, re.sub(r"<[^>]*>", "", words).strip()) for kind, words in items] == [
        ("failed", "step 1: nothing happened for 20 s"),
        ("held", "step 3 camera 0 is updated"),
        ("failed", "step 4.2 errors: 31seen 22"),
    ]


def test_a_run_that_was_not_judged_is_neither() -> None:
    summary = summary_of(Written().scenario().expected("something"))
    assert (summary.held, summary.judged[0].held) == (None, None)
    says(page_of(Written().scenario().expected("something")), "Not judged")


def test_tells_by_which_id_each_failure_is_played_again() -> None:
    held, broken = Written().scenario(id_="scenario.one.0a1b2c3d4e"), Written().scenario(id_="scenario.two.0a1b2c3d4e")
    for each, complaints in ((held, ()), (broken, ("seen 22",))):
        each.events += [{**event, "t": event["t"] + 0.02} for event in stopped(2, 4).events]
        each.add("lab", "judgement", after=30, held=not complaints, complaints=list(complaints))
    whole = held.and_later(broken, 100)
    assert summary_of(whole).again == "scenario.two.0a1b2c3d4e"
    content = page_of(whole)
    assert re.findall(r"<dd><code>scripts/lab replay (.*?)</code>", content) == [
        "scenario.one.0a1b2c3d4e", "scenario.two.0a1b2c3d4e",
    ]  # fmt: skip
    assert re.findall(r"<p>Again: <code>scripts/lab replay (.*?)</code>", content) == ["scenario.two.0a1b2c3d4e"]


def test_judges_each_scenario_of_a_transcript_for_itself() -> None:
    first, second = scenario(stopped(2, 4)), scenario(stopped(3, 4), "seen 22")
    summary = summary_of(first.and_later(second, 100))
    assert [each.held for each in summary.judged] == [True, False]
    assert [summary.held_at(failure.t) for failure in summary.failures] == [True, False]
    assert summary.opens_at is summary.failures[1]
    says(page_of(first), "2 scenarios", "unplugged: seen 22")


# Cards.


def test_every_failed_download_has_its_card() -> None:
    written = Written()
    for run in range(3):
        written.and_later(stopped(run + 1, 4), 100 * run)
    elements = Elements(page_of(written))
    assert len(elements.of_class("failure")) == 3
    says(elements.words, "1 of 3", "2 of 3", "3 of 3", "block 1 of 4", "block 2 of 4", "block 3 of 4")


@pytest.mark.parametrize(
    ("written", "row"),
    [
        (stopped(3, 8), "block-failed"),
        (sending(4, 4).end_of_image(4).status("0a0000000a00").close(), "end-failed"),
        (begun().prepare(state="05").close(), "refused"),
        (begun().without_the_last().close(), "image-gone"),
        (begun().prepare().without_the_last().camera("left").camera("running").close(), "restarts-at-detach"),
        (Written().begin().answer(code=0), "declined"),
        (Written().begin().answer(sinks=0), "cannot-listen"),
        (Written().begin().answer(), "not-switched"),
        (Written().begin(), "unanswered"),
        (Written().begin(image="5.10.2.0"), "same-version"),
        (Written().camera("plugged").trace(25, "The firmware image could not be opened"), "no-image"),
        (Written().camera("plugged"), "mode"),
        (Written().step("Starting the service"), "before-service"),
        (good(), "up-to-date"),
    ],
    ids=lambda value: value if isinstance(value, str) else "",
)
def test_says_what_to_do_now(written: Written, row: str) -> None:
    assert summary_of(written).row == row
    known = rows()[row]
    if row != "up-to-date":
        words = " ".join(Elements(page_of(written)).words.split())
        says(words, f"Row {row} of the operations manual: {known.cause}")
        says(words.lower(), f"what to do now{' ' if known.remedy else ''}"[:14], known.remedy.lower())


def test_a_camera_without_firmware_is_told() -> None:
    written = Written().image(8192).camera("plugged").enter_dfu_mode(8).prepare(state="0a").close()
    assert summary_of(written).row == "no-firmware"


def test_every_row_that_the_report_names_is_there() -> None:
    source = "".join(path.read_text() for path in (CHECKOUT / "lab/cli/veyra_lab/report").glob("*.py"))
    named = set(re.findall(r'row="([a-z-]+)"', source)) | set(OBSTACLE_ROWS.values())
    assert named - rows().keys() == set()


def test_rows_without_a_symptom_have_that_of_the_row_above() -> None:
    assert rows()["mode"].symptom == rows()["not-running"].symptom == "no prompt appears"
    assert rows()["end-failed"].cause == "the camera did not finish within 29.8 s, or refused the image"
    assert "`" not in "".join(row.sign for row in rows().values())


# Numbers.


def test_block_counts_are_those_of_the_image() -> None:
    """Of 5,000 bytes the service announces four blocks of 1,024, and sends five."""
    written = Written().image(5000).begin().answer().enter_dfu_mode(4).prepare().block(0).block(1, error=31).close()
    summary = summary_of(written)
    assert "at block 2 of 5:" in summary.sentence
    says(page_of(written), "block 2 of 5</b>", "<small>of 5</small>")
    # Where the transcript does not tell the image, one more than announced may come.
    written = Written().begin().answer().enter_dfu_mode(4).prepare().block(0).block(1, error=31).close()
    assert "at block 2 of at least 4:" in summary_of(written).sentence
    says(page_of(written), "<small>of at least 4</small>")


def test_an_empty_image_is_told() -> None:
    written = Written().image(0).begin().answer().enter_dfu_mode(0).prepare().end_of_image(0).status(MANIFESTING)
    written.status("0a0000000a00").close()
    assert summary_of(written).row == "image-gone"


def test_tells_what_the_run_was_made_with() -> None:
    service = {"name": "VeyraCameraDfuService.exe", "version": "1.0.0.0", "size": 1_019_411, "sha256": "cd" * 32}
    run = {"date": "2026-11-23T13:33:10+00:00", "machine": "wine-8.0 on Debian", "service": service}
    written = Written().add("lab", "run", **run).and_later(scenario(stopped(2, 4)), 1)
    says(
        Elements(page_of(written)).words,
        "2026-11-23 13:33:10+00:00",
        "wine-8.0 on Debian",
        f"VeyraCameraDfuService.exe, version 1.0.0.0, 1,019,411 bytes, SHA-256 {'cd' * 32}",
        f"image.bin, version 5.10.3.0, 4,096 bytes, SHA-256 {'ab' * 32}",
        "KV400, firmware 5.10.2.0",
    )


def test_says_that_waits_were_skipped() -> None:
    written = good().rig("wait", ms=200).rig("wait", ms=4600)
    words = " ".join(Elements(page_of(written)).words.split())
    says(words, "Waits were skipped. The service waited 2 times, 4.8 s in all")
    assert "Waits were skipped" not in page_of(good())


# Steps.


def test_every_step_and_expectation_of_the_scenarios_is_a_sentence() -> None:
    for variant in read_folder(SCENARIOS):
        for step in variant.steps:
            assert re.match(r"[A-Z][^\[\]{}]+$", sentence(step)), (variant.name, step)
            if isinstance(step, dict) and "expect" in step:
                for field in step["expect"].keys() - {"camera"}:
                    assert not re.search(r"[\[{]", words_of(field, step["expect"])), (variant.name, field)


def test_steps_and_expectations_that_the_laboratory_writes_are_sentences() -> None:
    """Images by their bytes or their file, and firmware of which one of several may be left."""
    assert sentence({"image": {"bytes": "00" * 402}}) == "Putting another firmware image into the machine: 402 bytes"
    assert sentence({"image": {"file": "own.bin"}}) == "Putting the firmware image own.bin into the machine"
    firmware = {"cameras": [{"firmware": ["old", "none"], "gaps": 0}]}
    assert words_of("cameras", firmware) == (
        "camera 0: after a power failure it would run its old firmware or after a power failure it would have no firmware,"
        " gaps 0"
    )


def test_numbers_steps_as_people_count() -> None:
    assert (numbered("steps[0]"), numbered("steps[4].steps[1]")) == ("1", "5.2")
    written = Written().scenario()
    written.add("lab", "step", number="1", text="Plugging camera 0 in").add("lab", "step", number="2.1", text="Waiting")
    says(page_of(written), "<b>Step 1</b><span>Plugging camera 0 in</span>", "<b>Step 2.1</b><span>Waiting</span>")


# As Chromium shows it.

# The least contrast of all texts that are shown, with the text that has it.
_CONTRAST = """
(() => {
  const parse = (text) => { const n = text.match(/[\\d.]+/g).map(Number); return [n[0], n[1], n[2], n[3] ?? 1]; };
  const over = (top, below) => [0, 1, 2].map((i) => top[i] * top[3] + below[i] * (1 - top[3])).concat(1);
  const light = (c) => {
    const v = c.slice(0, 3).map((x) => x / 255).map((x) => x <= 0.03928 ? x / 12.92 : ((x + 0.055) / 1.055) ** 2.4);
    return 0.2126 * v[0] + 0.7152 * v[1] + 0.0722 * v[2]; };
  const back = (element) => {
    const chain = [];
    for (let e = element; e; e = e.parentElement) chain.push(parse(getComputedStyle(e).backgroundColor));
    return chain.reverse().reduce((below, top) => over(top, below), [255, 255, 255, 1]); };
  let least = [99, ""];
  for (const element of document.querySelectorAll("body *")) {
    const own = [...element.childNodes].some((node) => node.nodeType === 3 && node.textContent.trim());
    if (!own || !element.checkVisibility() || ["SCRIPT", "STYLE"].includes(element.tagName)) continue;
    const below = back(element);
    const a = light(over(parse(getComputedStyle(element).color), below)), b = light(below);
    const contrast = (Math.max(a, b) + 0.05) / (Math.min(a, b) + 0.05);
    if (contrast < least[0]) least = [contrast, element.className + ": " + element.textContent.slice(0, 60)];
  }
  return least;
})()
"""


@pytest.fixture(scope="module")
def shown() -> Iterator[Browser]:
    with browser() as started:
        yield started


def pages() -> dict[str, Written]:
    return {
        "held": scenario(stopped(3, 8)).rig("wait", ms=200),
        "failed": scenario(stopped(3, 8), "seen 22"),
        "good": good(),
        "declined": Written().begin().answer(code=0),
        "odd": sending(2, 8),
    }


@slow
@pytest.mark.parametrize("name", pages())
def test_every_text_can_be_read(shown: Browser, tmp_path: Path, name: str) -> None:
    path = kept(pages()[name], tmp_path)
    for dark in (False, True):
        shown.show(path, 1300, dark=dark)
        shown.value("document.getElementById('details').click()")
        contrast, where = shown.value(_CONTRAST)
        assert contrast >= 4.5, where


@slow
def test_the_page_of_a_cause_can_be_read_and_fits(shown: Browser, tmp_path: Path) -> None:
    sent = Sent([Message("base 13"), Message("update 19"), Message("base 12")], traces=["veyra.txt"])
    path = tmp_path / "cause.html"
    path.write_text(cause_page(answer(sent), sent, "veyra.txt"), encoding="utf-8")
    for width in (1300, 768, 360):
        for dark in (False, True):
            shown.show(path, width, dark=dark)
            assert shown.value("document.documentElement.scrollWidth") <= width
            contrast, where = shown.value(_CONTRAST)
            assert contrast >= 4.5, where


@slow
def test_opens_on_the_failure(shown: Browser, tmp_path: Path) -> None:
    shown.show(kept(scenario(stopped(3, 8), "seen 22"), tmp_path), 1300)
    view, mark = (
        shown.value(f"(b => [b.left, b.right])(document.querySelector('{what}').getBoundingClientRect())")
        for what in (".scroll", ".bus i.f")
    )
    assert view[0] < mark[0] < mark[1] < view[1]
    assert shown.value("document.querySelector('.failure').getBoundingClientRect().bottom") < 900


_DOTS_PER_INCH = 72
_MARGIN_MM = 12  # as in the page's style
_INK = 0xC0  # Darker are letters and pictures, but not the frame of a card.


def fillings(pdf: bytes, folder: Path) -> list[float]:
    """How far down each page of a PDF its lowest ink is: 0 at the head of what may be printed on, 1 at its foot."""
    (folder / "printed.pdf").write_bytes(pdf)
    subprocess.run(["pdftoppm", "-r", str(_DOTS_PER_INCH), "-gray", "printed.pdf", "page"], cwd=folder, check=True, timeout=60)
    margin = _MARGIN_MM / 25.4 * _DOTS_PER_INCH
    found = []
    for path in sorted(folder.glob("page-*.pgm")):
        # Three words, each with one blank or line break behind it, and a byte for each dot.
        _, width, height, _, dots = re.split(rb"\s", path.read_bytes(), maxsplit=4)
        lines = [dots[start : start + int(width)] for start in range(0, int(width) * int(height), int(width))]
        inked = [number for number, row in enumerate(lines, 1) if min(row) < _INK]
        found.append((max(inked, default=0) - margin) / (int(height) - 2 * margin))
    return found


@slow
def test_prints_light(shown: Browser, tmp_path: Path) -> None:
    """Dark on the screen or not. Without the browser's leave to print backgrounds, too."""
    shown.show(kept(scenario(stopped(3, 8), "seen 22"), tmp_path), 1300, dark=True)
    assert shown.printed("getComputedStyle(document.body).backgroundColor") == "rgb(255, 255, 255)"
    assert shown.printed("getComputedStyle(document.body).color") == "rgb(27, 31, 36)"
    assert shown.printed("getComputedStyle(document.querySelector('.sign')).printColorAdjust") == "exact"


@slow
@pytest.mark.parametrize("name", pages())
def test_prints_no_half_blank_page_but_the_last(shown: Browser, tmp_path: Path, name: str) -> None:
    shown.show(kept(pages()[name], tmp_path), 1300)
    pdf = base64.b64decode(shown.pdf())
    filled = fillings(pdf, tmp_path)
    assert [part for part in filled[:-1] if part < 0.5] == []
    assert filled[-1] > 0
    assert 2 <= len(filled) == len(re.findall(rb"/Type\s*/Page\b", pdf)) <= 5


@slow
def test_a_half_blank_page_is_seen(shown: Browser, tmp_path: Path) -> None:
    shown.show(kept(good(), tmp_path), 1300)
    shown.value("document.querySelector('main > .card').style.breakAfter = 'page'")
    assert min(fillings(base64.b64decode(shown.pdf()), tmp_path)[:-1]) < 0.5
