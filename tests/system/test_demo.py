"""scripts/demo, as a person uses it."""

import hashlib
import json
import signal
import subprocess
import tempfile
import unittest
from pathlib import Path

import pytest
from support import CHECKOUT, DEMO_PREFIX, random_image, run_demo
from veyra_lab.windows.image import default_image, version_of
from veyra_lab.windows.machine import processes_of

# Two demos of one checkout would share one machine.
pytestmark = pytest.mark.xdist_group("demo")


def sha256(content: bytes) -> str:
    return hashlib.sha256(content).hexdigest()


class Demo(unittest.TestCase):
    def check_update(
        self, done: subprocess.CompletedProcess[str], image: bytes, camera_version: str, size: int
    ) -> None:
        """The demo succeeded, said so in its last four lines, and left nothing running."""
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
        *told, firmware, image_digest, flash_digest, transfers = done.stdout.splitlines()
        self.assertEqual(firmware, f"camera firmware: {camera_version} -> {version_of(image)}")
        self.assertEqual(image_digest, f"image sha256: {sha256(image)}")
        self.assertEqual(flash_digest, f"flash sha256: {sha256(image)}")
        blocks = -(-len(image) // size)
        self.assertGreaterEqual(int(transfers.removeprefix("control transfers: ")), 2 * blocks + 7)
        self.assertTrue(any("100 %" in line for line in told), "no progress was shown")
        self.assertNotIn("\r", done.stdout)
        self.assertEqual(processes_of(DEMO_PREFIX), {})

    def check_refusal(self, *options: str, because: str) -> None:
        """The demo refuses its command line in one line."""
        done = run_demo(*options, timeout=30)
        self.assertEqual((done.returncode, done.stdout), (2, ""))
        self.assertEqual(done.stderr.count("\n"), 1, done.stderr)
        self.assertIn(because, done.stderr)

    def test_shows_an_update_and_does_so_again(self) -> None:
        for _ in range(2):
            self.check_update(run_demo(), default_image(), "5.10.2.0", 1024)

    def test_takes_the_image_camera_version_and_transfer_size_of_a_person(self) -> None:
        content = random_image(10_000)
        with tempfile.NamedTemporaryFile(suffix=" my image.bin") as image:
            image.write(content)
            image.flush()
            options = ("--image", image.name, "--camera-version", "1.2.3.4", "--transfer-size", "128")
            self.check_update(run_demo(*options), content, "1.2.3.4", 128)

    def test_shows_that_a_declined_update_changes_nothing(self) -> None:
        done = run_demo("--answer", "decline")
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
        firmware, image_digest, flash_digest, transfers = done.stdout.splitlines()[-4:]
        self.assertEqual(firmware, "camera firmware: 5.10.2.0 -> 5.10.2.0")
        self.assertEqual(image_digest, f"image sha256: {sha256(default_image())}")
        self.assertNotEqual(flash_digest.removeprefix("flash "), image_digest.removeprefix("image "))
        self.assertEqual(transfers, "control transfers: 0")

    def test_says_why_a_camera_with_tiny_transfers_is_not_updated(self) -> None:
        done = run_demo("--transfer-size", "64")
        self.assertEqual(done.returncode, 1, done.stdout + done.stderr)
        failed = [line for line in done.stdout.splitlines() if line.startswith("failed: ")]
        self.assertEqual(len(failed), 1, failed)
        self.assertIn("64 bytes in one transfer", failed[0])
        self.assertIn("no block was sent", failed[0])
        self.assertEqual(done.stdout.splitlines()[-1], "control transfers: 3")
        self.assertEqual(processes_of(DEMO_PREFIX), {})

    def test_says_why_equal_versions_are_no_update(self) -> None:
        done = run_demo("--camera-version", "5.10.3.0")
        self.assertEqual(done.returncode, 1, done.stdout + done.stderr)
        self.assertIn("camera and image both have version 5.10.3.0", done.stdout)

    def test_keeps_a_transcript(self) -> None:
        with tempfile.TemporaryDirectory() as folder:
            transcript = Path(folder) / "run.jsonl"
            done = run_demo("--transcript", str(transcript))
            self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
            events = [json.loads(line) for line in transcript.read_text(encoding="utf-8").splitlines()]
        self.assertTrue(all({"t", "source", "event"} <= set(event) for event in events))
        self.assertEqual({event["source"] for event in events}, {"lab", "rig", "toast"})
        times = [event["t"] for event in events]
        self.assertEqual(times, sorted(times))
        traces = [event["text"] for event in events if event["event"] == "trace"]
        self.assertIn("The camera's firmware version is 5.10.2.0", traces)
        transfers = sum(event["event"] == "transfer" for event in events)
        self.assertEqual(done.stdout.splitlines()[-1], f"control transfers: {transfers}")

    def test_cleans_up_when_it_is_interrupted(self) -> None:
        demo = subprocess.Popen(
            [str(CHECKOUT / "scripts" / "demo")],
            stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
            text=True,
        )
        assert demo.stdout is not None
        with demo.stdout:
            for line in demo.stdout:
                if "50 %" in line:
                    break
            demo.send_signal(signal.SIGINT)
            rest = demo.stdout.read()
        self.assertEqual(demo.wait(timeout=60), 130, rest)
        self.assertIn("interrupted", rest)
        self.assertEqual(processes_of(DEMO_PREFIX), {})
        self.assertFalse((DEMO_PREFIX / "drive_c" / "VeyraLab").exists())
        registry = (DEMO_PREFIX / "system.reg").read_text(encoding="utf-8")
        self.assertNotIn("Services\\\\VeyraCamera", registry)
        self.assertNotIn("VeyraLaboratory", registry)
        self.check_update(run_demo(), default_image(), "5.10.2.0", 1024)

    def test_explains_itself(self) -> None:
        done = run_demo("--help", timeout=30)
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        for option in ("--image", "--camera-version", "--transfer-size", "--answer", "--transcript", "--help"):
            self.assertIn(option, done.stdout)

    def test_refuses_an_image_that_does_not_exist(self) -> None:
        self.check_refusal("--image", "/does/not/exist.bin", because="does not exist")

    def test_refuses_an_image_that_is_too_short(self) -> None:
        with tempfile.NamedTemporaryFile() as image:
            image.write(bytes(401))
            image.flush()
            self.check_refusal("--image", image.name, because="401 bytes")

    def test_refuses_malformed_versions(self) -> None:
        for version in ("", "1.2.3", "1.2.3.4.5", "1.2.3.256", "1.2.3.-4", "a.b.c.d", "1,2,3,4", " 1.2.3.4"):
            with self.subTest(version=version):
                self.check_refusal(f"--camera-version={version}", because="--camera-version")

    def test_refuses_transfer_sizes_out_of_range(self) -> None:
        for size in ("", "0", "65536", "-1", "1k", "1.5"):
            with self.subTest(size=size):
                self.check_refusal(f"--transfer-size={size}", because="--transfer-size")

    def test_refuses_options_that_it_does_not_know(self) -> None:
        self.check_refusal("--what", because="--what")
        self.check_refusal("--answer", "perhaps", because="perhaps")
        self.check_refusal("--image", because="--image")
        self.check_refusal("firmware.bin", because="firmware.bin")

    def test_refuses_a_transcript_that_it_cannot_write(self) -> None:
        self.check_refusal("--transcript", "/does/not/exist/run.jsonl", because="cannot be written")
