"""What scripts/bench measures by counting, with fixed expectations; its table, and its command line."""

import io
import json
import os
import subprocess
import tempfile
import unittest
from pathlib import Path
from unittest.mock import patch

import pytest
from support import BUILD, CHECKOUT, slow, the_machine
from veyra_lab.bench import __main__ as bench
from veyra_lab.bench import table
from veyra_lab.bench.portable import executable
from veyra_lab.bench.service import reaction, transfers
from veyra_lab.bench.service.contenders import Contenders
from veyra_lab.bench.service.process_view import look
from veyra_lab.bench.service.updates import image_of, update
from veyra_lab.bench.table import Row, above_at_most, at_most, exactly, ratio_at_most, within
from veyra_lab.terminal.screen import Screen

pytestmark = pytest.mark.xdist_group("bench")

_RELEASE = CHECKOUT / "build" / "windows-release"
_STAND_IN = CHECKOUT / "build" / "host-bench" / "host" / "libusb"


def run_bench(*arguments: str) -> subprocess.CompletedProcess[str]:
    """The script with its output in pipes."""
    return subprocess.run(
        [str(CHECKOUT / "scripts" / "bench"), *arguments],
        capture_output=True,
        text=True,
        timeout=1200,
        check=False,
        stdin=subprocess.DEVNULL,
    )


class Counts(unittest.TestCase):
    """What depends on no clock."""

    def setUp(self) -> None:
        self.contenders = self.enterContext(Contenders(the_machine(), BUILD))

    def test_an_update_takes_2n_plus_7_transfers(self) -> None:
        self.contenders.start(self.contenders.product, skip_waits=True)
        for size, transfer_size, blocks in ((1024, 1024, 1), (100 * 512, 512, 100), (3 * 4096 + 1, 4096, 4)):
            with self.subTest(size=size):
                state = update(self.contenders, image_of(size), transfer_size)
                self.assertEqual(state["transfers"], 2 * blocks + 7)

    def test_another_host_is_counted_at_the_same_camera(self) -> None:
        # A GETSTATUS comes before the blocks, an empty DNLOAD with its GETSTATUS behind them.
        self.assertEqual(transfers.dfu_util_transfers(image_of(100 * 1024), _STAND_IN), 2 * 100 + 3)

    def test_nothing_is_waited_for_but_the_deliberate_pauses(self) -> None:
        self.contenders.start(self.contenders.product, skip_waits=True)
        seen = reaction.react(self.contenders)
        # The look for a device in DFU mode, and two readings of the camera's version.
        self.assertEqual(seen.waits_from_plugging_ms, 100 + 2 * 100)
        self.assertEqual(seen.waits_to_prompt_ms, 2 * 100)
        self.assertEqual(seen.waits_to_block_ms, 0)

    def test_the_services_that_are_measured_against_run_and_stop(self) -> None:
        for service in (self.contenders.minimal, self.contenders.activating):
            service.start()
            self.assertTrue(service.is_alive())
            service.stop()
            self.assertFalse(service.is_alive())


class Executable(unittest.TestCase):
    def test_is_no_larger_than_its_bar(self) -> None:
        self.assertLessEqual((BUILD / "VeyraCameraDfuService.exe").stat().st_size, 1 << 20)

    def test_imports_nothing_but_libraries_of_windows(self) -> None:
        names = {name.upper() for name in executable.imported_libraries(BUILD / "VeyraCameraDfuService.exe")}
        self.assertEqual(
            names,
            {
                "ADVAPI32.DLL", "CFGMGR32.DLL", "KERNEL32.DLL", "MF.DLL", "MFPLAT.DLL", "MSVCRT.DLL", "OLE32.DLL",
                "OLEAUT32.DLL", "RPCRT4.DLL", "USER32.DLL", "WINUSB.DLL",
            },
        )  # fmt: skip


class Process(unittest.TestCase):
    def test_counts_the_wake_ups_of_a_process(self) -> None:
        echo = subprocess.Popen(
            ["sh", "-c", 'while read x; do echo "$x"; done'], stdin=subprocess.PIPE, stdout=subprocess.PIPE
        )
        assert echo.stdin is not None and echo.stdout is not None
        self.enterContext(echo)
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
        self.assertGreaterEqual(after.wake_ups_since(before), times)
        self.assertGreater(after.processor_ms_since(before), 0)

    def test_counts_the_memory_that_a_process_has_written(self) -> None:
        before = look(os.getpid())
        written = bytearray(os.urandom(32 << 20))
        after = look(os.getpid())
        self.assertGreaterEqual(after.private_kib - before.private_kib, len(written) // 1024)
        self.assertEqual(after.private_kib, after.private_kib_by_size.total())


class Table(unittest.TestCase):
    def test_a_bar_holds_up_to_its_limit(self) -> None:
        self.assertTrue(at_most(1, "x", 20, 20, "KiB").holds)
        self.assertFalse(at_most(1, "x", 20.1, 20, "KiB").holds)
        self.assertTrue(ratio_at_most(1, "x", 103, 100, 1.03, "ns", against="y").holds)
        self.assertFalse(ratio_at_most(1, "x", 104, 100, 1.03, "ns", against="y").holds)
        self.assertTrue(above_at_most(1, "x", 120, 100, 20, "KiB", against="y").holds)
        self.assertFalse(above_at_most(1, "x", 121, 100, 20, "KiB", against="y").holds)
        self.assertTrue(exactly(1, "x", 7, 7, "", against="y", reference=9, bar="7").holds)
        self.assertFalse(exactly(1, "x", 8, 7, "", against="y", reference=9, bar="7").holds)
        self.assertTrue(within(1, "x", 99, 100, 0.01, "", against="y", bar="1 %").holds)
        self.assertFalse(within(1, "x", 98, 100, 0.01, "", against="y", bar="1 %").holds)

    def test_no_bar_is_a_time(self) -> None:
        """A machine half as fast would miss it though nothing has changed."""
        for unit in ("s", "ms", "us", "ns"):
            with self.subTest(unit=unit):
                self.assertRaises(ValueError, at_most, 1, "x", 1, 2, unit)
                self.assertRaises(ValueError, above_at_most, 1, "x", 1, 1, 2, unit, against="y")

    def test_an_excuse_is_for_a_bar_that_does_not_hold(self) -> None:
        missed = above_at_most(6, "x", 200, 100, 20, "KiB", against="y", note="because", excused=True)
        held = above_at_most(6, "x", 110, 100, 20, "KiB", against="y", note="because", excused=True)
        self.assertEqual((missed.holds, missed.excused, missed.is_missed), (False, True, False))
        self.assertEqual((held.holds, held.excused, held.is_missed), (True, False, False))
        self.assertTrue(at_most(1, "x", 2, 1, "").is_missed)

    def test_shows_every_row_with_its_bar(self) -> None:
        rows = [
            exactly(1, "transfers", 2055, 2055, "", against="dfu-util", reference=2051, bar="2n + 7"),
            at_most(9, "size", 2_000_000, 1 << 20, "bytes", note="It imports nothing."),
            Row(6, "threads", 8, 0, "", "minimal service"),
        ]
        stream = io.StringIO()
        table.show(rows, Screen(stream))
        shown = stream.getvalue().splitlines()
        self.assertRegex(shown[2], r"^1  transfers +2,055 +2,051 +1\.002  dfu-util +2n \+ 7 +yes$")
        self.assertRegex(shown[3], r"^9  size +2,000,000 +- +bytes +- +- +at most 1,048,576 bytes +NO +\[1\]$")
        self.assertRegex(shown[4], r"^6  threads +8 +0 +- +minimal service +- +-$")
        self.assertEqual(shown[5], "[1] It imports nothing.")


class CommandLine(unittest.TestCase):
    def test_measures_what_is_asked_for_and_writes_it_down(self) -> None:
        with tempfile.TemporaryDirectory() as folder:
            path = Path(folder) / "bench.json"
            result = run_bench("size", "--json", str(path))
            self.assertEqual(result.returncode, 0, result.stdout + result.stderr)
            self.assertIn("bars that hold: 1, that cannot here: 0, that are missed: 0", result.stdout)
            written = json.loads(path.read_text(encoding="utf-8"))
        (row,) = written["rows"]
        self.assertEqual((row["line"], row["holds"]), (9, True))
        self.assertEqual(row["ours"], (_RELEASE / "VeyraCameraDfuService.exe").stat().st_size)
        self.assertEqual(written["failures"], [])

    def test_refuses_what_it_does_not_know_in_one_line(self) -> None:
        for arguments in (("speed",), ("--jsn", "x"), ("--json", "/no/such/folder/file.json")):
            with self.subTest(arguments=arguments):
                result = run_bench(*arguments)
                self.assertEqual(result.returncode, 2)
                self.assertEqual(len(result.stderr.splitlines()), 1, result.stderr)
                self.assertEqual(result.stdout, "")

    def test_what_cannot_be_measured_keeps_nothing_else_from_it(self) -> None:
        with patch.object(executable, "measure", side_effect=OSError("no such file")), patch("os.sched_setaffinity"):
            with patch.object(bench.engine, "measure", return_value=iter([at_most(2, "x", 1, 1, "KiB")])):
                rows, failures = bench._measure(["size", "engine"])
        self.assertEqual([row.line for row in rows], [2])
        self.assertEqual([(failure.line, failure.why) for failure in failures], [(9, "OSError: no such file")])

    @slow
    def test_measures_the_services_to_the_end(self) -> None:
        """Whether the bars hold is for a machine that does nothing else."""
        with tempfile.TemporaryDirectory() as folder:
            path = Path(folder) / "bench.json"
            result = run_bench("memory", "start", "rest", "burst", "--json", str(path))
            written = json.loads(path.read_text(encoding="utf-8"))
        self.assertIn(result.returncode, (0, 1), result.stdout + result.stderr)
        self.assertEqual(written["failures"], [])
        self.assertEqual({row["line"] for row in written["rows"]}, {3, 5, 6, 8})
