"""The toast controller that ships, asked by the service that ships, with its window on a display.

With VEYRA_TOAST_PICTURES=FOLDER its pictures go there."""

import os
import subprocess
import threading
from collections.abc import Callable, Iterator
from pathlib import Path
from typing import Any

import pytest
from support import CHECKOUT, DEMO_PREFIX, Bench, Shared, complaints, slow
from toast_display import ALL_TAKEN, DOWNLOAD, PATIENCE, QUESTION, Display
from veyra_lab.updates.plan import Foreseen, UpdatePlan
from veyra_lab.updates.record import Record
from veyra_lab.windows.image import ODD_IMAGE_SIZE, default_image, sha256
from veyra_lab.windows.machine import Machine, processes_of

pytestmark = [slow, pytest.mark.usefixtures("display")]

SHARED = Bench

_DESKTOP_KEY = r"HKEY_CURRENT_USER\Control Panel\Desktop"


@pytest.fixture
def on(shared: Shared[Bench]) -> Bench:
    return shared.get()


@pytest.fixture
def pictures(tmp_path: Path) -> Path:
    """Where they go."""
    return CHECKOUT / os.environ["VEYRA_TOAST_PICTURES"] if "VEYRA_TOAST_PICTURES" in os.environ else tmp_path


@pytest.fixture(params=[96, 192], ids=lambda dpi: f"{dpi} dpi")
def dpi(request: pytest.FixtureRequest, on: Bench) -> Iterator[int]:
    """The display's density, which the window goes by."""
    on.machine.change_registry({_DESKTOP_KEY: {"LogPixels": f"dword:{request.param:08x}"}})
    yield request.param
    on.machine.change_registry({_DESKTOP_KEY: {"LogPixels": "dword:00000060"}})


def slowly(**camera: Any) -> UpdatePlan:
    """An update of 41 blocks, which takes some seconds."""
    return UpdatePlan(window=True, image=default_image(40 * 1024 + 17), transfer_us=60_000, camera=camera)


def updated(on: Bench, plan: UpdatePlan, person: Callable[[Display], None]) -> Record:
    """An update with somebody before the window; what is wrong there is raised here."""
    wrong: list[BaseException] = []

    display = Display(on.machine)

    def use() -> None:
        try:
            person(display)
        except BaseException as error:
            wrong.append(error)
            # Nobody would answer any more.
            on.machine.run("taskkill", "/F", "/IM", "VeyraCameraToastCntl.exe")

    using = threading.Thread(target=use)
    using.start()
    try:
        record = on.walk(plan)
    finally:
        display.is_over.set()
        using.join(timeout=2 * PATIENCE)
    assert record.broken_off == ""
    if wrong:
        raise wrong[0]
    return record


def test_asks_shows_the_download_and_tells_its_end(on: Bench, dpi: int, pictures: Path) -> None:
    percents = []

    def person(display: Display) -> None:
        question = display.wait_for_text(QUESTION, "Update")
        versions = "has firmware 5.10.2.0. This computer has firmware 5.10.3.0 for it, which is newer."
        assert any(versions in text for text in question.texts)
        assert list(question.buttons) == ["Update", "Not now"]
        display.picture(pictures / f"toast-question-{dpi}.png")
        display.click(question, "Update")
        download = display.wait_for(lambda window: (window.percent or 0) >= 30, "a third of the download")
        percents.append(download.percent)
        assert any(text.startswith(DOWNLOAD) for text in download.texts)
        display.picture(pictures / f"toast-download-{dpi}.png")
        end = display.wait_for_text(ALL_TAKEN, "Close")
        assert end.percent is None
        display.picture(pictures / f"toast-done-{dpi}.png")
        display.click(end, "Close")

    record = updated(on, slowly(), person)
    assert record.plan.foreseen is Foreseen.UPDATED
    assert complaints(record) == []
    assert percents and percents[0] < 100


def test_tells_where_the_download_stopped(on: Bench, dpi: int, pictures: Path) -> None:
    def person(display: Display) -> None:
        display.click(display.wait_for_text(QUESTION, "Update"), "Update")
        end = display.wait_for_text("The download stopped at 48 %", "Close")
        display.picture(pictures / f"toast-stopped-{dpi}.png")
        display.click(end, "Close")

    fault = {"where": "DNLOAD", "what": "stall", "skip": 20, "count": 1}
    record = updated(on, slowly(faults=[fault]), person)
    assert record.plan.foreseen is Foreseen.BROKEN_OFF
    assert complaints(record) == []


@pytest.mark.parametrize("key", [None, "Escape", "Return"], ids=["a click", "Escape", "Return"])
def test_leaves_the_camera_alone_when_the_answer_is_no(on: Bench, key: str | None) -> None:
    def person(display: Display) -> None:
        question = display.wait_for_text(QUESTION, "Update")
        if key is None:
            display.click(question, "Not now")
            return
        # Keys go to the window once it was clicked, and not before.
        left, top, *_ = question.place
        place = [str(left + 60), str(top + 8)]
        subprocess.run(["xdotool", "mousemove", *place, "sleep", "0.2", "click", "1", "key", key], check=True, timeout=PATIENCE)

    record = updated(on, UpdatePlan(window=True), person)
    assert record.plan.foreseen is Foreseen.DECLINED
    assert complaints(record) == []


@pytest.mark.xdist_group("demo")
def test_demo_shows_it() -> None:
    display = Display(Machine(DEMO_PREFIX))
    demo = subprocess.Popen(
        [str(CHECKOUT / "scripts" / "demo"), "--answer", "window"],
        stdin=subprocess.DEVNULL,
        stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT,
        text=True,
    )
    assert demo.stdout is not None
    try:
        with demo.stdout:
            for line in demo.stdout:
                if "Asking you" in line:
                    break
            display.click(display.wait_for_text(QUESTION, "Update"), "Update")
            display.click(display.wait_for_text(ALL_TAKEN, "Close"), "Close")
            rest = demo.stdout.read()
        assert demo.wait(timeout=PATIENCE) == 0, rest
    finally:
        demo.terminate()
        demo.wait(timeout=PATIENCE)
    assert f"flash sha256: {sha256(default_image(ODD_IMAGE_SIZE))}" in rest
    assert processes_of(DEMO_PREFIX) == {}
