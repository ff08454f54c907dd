"""What scripts/bench measures by counting, with fixed expectations; its table, and its command line."""

import io
import json
import os
import re
import subprocess
from collections.abc import Iterator
from pathlib import Path
from unittest.mock import patch

import pytest
from support import BUILD, CHECKOUT, Run, Shared, check_refusal, run_script, slow
from veyra_lab.bench import __main__ as bench
from veyra_lab.bench import table
from veyra_lab.bench.portable import executable
from veyra_lab.bench.service import reaction, transfers
from veyra_lab.bench.service.contenders import Contenders
from veyra_lab.bench.service.other_host import Download, download_of
from veyra_lab.bench.service.process_view import look
from veyra_lab.bench.service.updates import image_of, update
from veyra_lab.bench.table import Row, above_at_most, at_most, exactly, ratio_at_most, within
from veyra_lab.terminal.screen import Screen
from veyra_lab.windows.machine import Machine

_RELEASE = CHECKOUT / "build" / "windows-release"


def SHARED(machine: Machine) -> Contenders:
    """The services are installed once."""
    return Contenders(machine, BUILD)


@pytest.fixture
def contenders(shared: Shared[Contenders]) -> Iterator[Contenders]:
    """The services, of which none runs."""
    the_contenders = shared.get()
    yield the_contenders
    the_contenders.end_all()


def test_an_update_takes_2n_plus_7_transfers(contenders: Contenders) -> None:
    contenders.start(contenders.product, skip_waits=True)
    for size, transfer_size, blocks in ((1024, 1024, 1), (100 * 512, 512, 100), (3 * 4096 + 1, 4096, 4)):
        assert update(contenders, image_of(size), transfer_size)["transfers"] == 2 * blocks + 7, size


def test_an_update_of_a_busy_camera_takes_3n_plus_8_transfers_and_200_ms_a_block(contenders: Contenders) -> None:
    contenders.start(contenders.product, skip_waits=True)
    for size, transfer_size, blocks in ((1024, 1024, 1), (100 * 512, 512, 100)):
        since = contenders.peer.mark()
        state = update(contenders, image_of(size), transfer_size, **transfers.BUSY_FIRST)
        assert state["transfers"] == 3 * blocks + 8
        # The other waits, of 100 ms, are the pauses before the question and before the device is opened.
        waits = [event["ms"] for event in contenders.peer.events_since(since) if event["event"] == "wait"]
        assert waits.count(200) == blocks + 1


def test_three_descriptors_are_read_and_one_setting_chosen(contenders: Contenders) -> None:
    contenders.start(contenders.product, skip_waits=True)
    since = contenders.peer.mark()
    update(contenders, image_of(1024), 1024)
    assert transfers.opening_requests(contenders, since) == 3 + 1


def test_a_download_is_what_the_served_camera_records() -> None:
    told = [
        {"t": 1.0, "source": "usbredir", "event": "alternate-setting"},
        {"t": 2.5, "source": "usbredir", "event": "transfer"},
        {"t": 2.75, "source": "rig", "event": "transfer"},
        {"t": 3.0, "source": "usbredir", "event": "transfer"},
        {"t": 4.0, "source": "usbredir", "event": "camera"},
    ]
    assert download_of(told) == Download(transfers=2, seconds=0.5)


def test_nothing_is_waited_for_but_the_deliberate_pauses(contenders: Contenders) -> None:
    contenders.start(contenders.product, skip_waits=True)
    seen = reaction.react(contenders)
    # The look for a device in DFU mode, and two readings of the camera's version.
    assert seen.waits_from_plugging_ms == 100 + 2 * 100
    assert seen.waits_to_prompt_ms == 2 * 100
    assert seen.waits_to_block_ms == 0


def test_the_services_that_are_measured_against_run_and_stop(contenders: Contenders) -> None:
    for service in (contenders.minimal, contenders.activating):
        service.start()
        assert service.is_alive()
        service.stop()
        assert not service.is_alive()


def test_is_no_larger_than_its_bar() -> None:
    assert (BUILD / "VeyraCameraDfuService.exe").stat().st_size <= 1 << 20


def test_imports_nothing_but_libraries_of_windows() -> None:
    names = {name.upper() for name in executable.imported_libraries(BUILD / "VeyraCameraDfuService.exe")}
    assert names == {
        "ADVAPI32.DLL", "CFGMGR32.DLL", "KERNEL32.DLL", "MF.DLL", "MFPLAT.DLL", "MSVCRT.DLL", "OLE32.DLL",
        "OLEAUT32.DLL", "RPCRT4.DLL", "USER32.DLL", "WINUSB.DLL",
    }  # fmt: skip


def test_counts_the_wake_ups_of_a_process() -> None:
    command = ["sh", "-c", 'while read x; do echo "$x"; done']
    with subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE) as echo:
        assert echo.stdin is not None and echo.stdout is not None
        times = 10
        for number in range(times + 1):
            # Woken is who sleeps.
            while "S (sleeping)" not in Path(f"/proc/{echo.pid}/status").read_text():
                pass
            if number == 0:
                before = look(echo.pid)
            echo.stdin.write(b"x\n")
            echo.stdin.flush()
            echo.stdout.readline()
        after = look(echo.pid)
    assert after.wake_ups_since(before) >= times
    assert after.processor_ms_since(before) > 0


def test_counts_the_memory_that_a_process_has_written() -> None:
    before = look(os.getpid())
    written = bytearray(os.urandom(32 << 20))
    after = look(os.getpid())
    assert after.private_kib - before.private_kib >= len(written) // 1024
    assert after.private_kib == after.private_kib_by_size.total()


def test_a_bar_holds_up_to_its_limit() -> None:
    assert at_most(1, "x", 20, 20, "KiB").holds
    assert not at_most(1, "x", 20.1, 20, "KiB").holds
    assert ratio_at_most(1, "x", 103, 100, 1.03, "ns", against="y").holds
    assert not ratio_at_most(1, "x", 104, 100, 1.03, "ns", against="y").holds
    assert above_at_most(1, "x", 120, 100, 20, "KiB", against="y").holds
    assert not above_at_most(1, "x", 121, 100, 20, "KiB", against="y").holds
    assert exactly(1, "x", 7, 7, "", against="y", reference=9, bar="7").holds
    assert not exactly(1, "x", 8, 7, "", against="y", reference=9, bar="7").holds
    assert within(1, "x", 99, 100, 0.01, "", against="y", bar="1 %").holds
    assert not within(1, "x", 98, 100, 0.01, "", against="y", bar="1 %").holds


@pytest.mark.parametrize("unit", ["s", "ms", "us", "ns"])
def test_no_bar_is_a_time(unit: str) -> None:
    """A machine half as fast would miss it though nothing has changed."""
    with pytest.raises(ValueError):
        at_most(1, "x", 1, 2, unit)
    with pytest.raises(ValueError):
        above_at_most(1, "x", 1, 1, 2, unit, against="y")


def test_an_excuse_is_for_a_bar_that_does_not_hold() -> None:
    missed = above_at_most(6, "x", 200, 100, 20, "KiB", against="y", note="because", excused=True)
    held = above_at_most(6, "x", 110, 100, 20, "KiB", against="y", note="because", excused=True)
    assert (missed.holds, missed.excused, missed.is_missed) == (False, True, False)
    assert (held.holds, held.excused, held.is_missed) == (True, False, False)
    assert at_most(1, "x", 2, 1, "").is_missed


def test_shows_every_row_with_its_bar() -> None:
    rows = [
        exactly(1, "transfers", 2055, 2055, "", against="dfu-util", reference=2051, bar="2n + 7"),
        at_most(9, "size", 2_000_000, 1 << 20, "bytes", note="It imports nothing."),
        Row(6, "threads", 8, 0, "", "minimal service"),
    ]
    stream = io.StringIO()
    table.show(rows, Screen(stream))
    shown = stream.getvalue().splitlines()
    assert re.search(r"^1  transfers +2,055 +2,051 +1\.002  dfu-util +2n \+ 7 +yes$", shown[2])
    assert re.search(r"^9  size +2,000,000 +- +bytes +- +- +at most 1,048,576 bytes +NO +\[1\]$", shown[3])
    assert re.search(r"^6  threads +8 +0 +- +minimal service +- +-$", shown[4])
    assert shown[5] == "[1] It imports nothing."


def test_measures_what_is_asked_for_and_writes_it_down(tmp_path: Path) -> None:
    path = tmp_path / "bench.json"
    result = run_script("bench", "size", "--json", str(path))
    assert result.returncode == 0, result.stdout + result.stderr
    assert "bars that hold: 1, that cannot here: 0, that are missed: 0" in result.stdout
    written = json.loads(path.read_text(encoding="utf-8"))
    (row,) = written["rows"]
    assert (row["line"], row["holds"]) == (9, True)
    assert row["ours"] == (_RELEASE / "VeyraCameraDfuService.exe").stat().st_size
    assert written["failures"] == []


@pytest.mark.parametrize("arguments", ["speed", "--jsn x", "--json /no/such/folder/file.json"])
def test_refuses_what_it_does_not_know_in_one_line(run: Run, arguments: str) -> None:
    check_refusal(run(bench.main, *arguments.split()), because=arguments.split()[-1])


def test_what_cannot_be_measured_keeps_nothing_else_from_it() -> None:
    with patch.object(executable, "measure", side_effect=OSError("no such file")), patch("os.sched_setaffinity"):
        with patch.object(bench.engine, "measure", return_value=iter([at_most(2, "x", 1, 1, "KiB")])):
            rows, failures = bench._measure(["size", "engine"])
    assert [row.line for row in rows] == [2]
    assert [(failure.line, failure.why) for failure in failures] == [(9, "OSError: no such file")]


@slow
def test_measures_the_services_to_the_end(tmp_path: Path) -> None:
    """Whether the bars hold is for a machine that does nothing else."""
    path = tmp_path / "bench.json"
    result = run_script("bench", "memory", "start", "rest", "burst", "--json", str(path), timeout=1200)
    written = json.loads(path.read_text(encoding="utf-8"))
    assert result.returncode in (0, 1), result.stdout + result.stderr
    assert written["failures"] == []
    assert {row["line"] for row in written["rows"]} == {3, 5, 6, 8}
