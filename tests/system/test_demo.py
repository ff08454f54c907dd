"""scripts/demo, as a person uses it."""

import json
import re
import signal
import subprocess
from pathlib import Path

import pytest
from support import CHECKOUT, DEMO_PREFIX, Run, check_refusal, random_image, run_script, slow
from veyra_lab.demo import __main__ as demo
from veyra_lab.windows.image import default_image, sha256, version_of
from veyra_lab.windows.machine import processes_of

# Two demos of one checkout would share one machine.
pytestmark = pytest.mark.xdist_group("demo")


def check_update(done: subprocess.CompletedProcess[str], image: bytes, camera_version: str, size: int) -> None:
    """The demo succeeded, said so in its last five lines, and left nothing running."""
    assert done.returncode == 0, done.stdout + done.stderr
    *told, firmware, image_digest, flash_digest, transfers, sentence = done.stdout.splitlines()
    versions = f"from {re.escape(camera_version)} to {re.escape(version_of(image))}"
    same = "and the flash is identical to the image, byte for byte"
    assert re.fullmatch(rf"Updated {versions} in \d+\.\d s, {same}; .*", sentence), sentence
    assert firmware == f"camera firmware: {camera_version} -> {version_of(image)}"
    assert image_digest == f"image sha256: {sha256(image)}"
    assert flash_digest == f"flash sha256: {sha256(image)}"
    blocks = -(-len(image) // size)
    assert int(transfers.removeprefix("control transfers: ")) >= 2 * blocks + 7
    assert any("100 %" in line for line in told), "no progress was shown"
    assert "\r" not in done.stdout
    assert processes_of(DEMO_PREFIX) == {}


def test_shows_an_update() -> None:
    check_update(run_script("demo"), default_image(), "5.10.2.0", 1024)


@slow
def test_cleans_up_when_it_is_interrupted_and_shows_an_update_then() -> None:
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
    assert demo.wait(timeout=60) == 130, rest
    assert "interrupted" in rest
    assert processes_of(DEMO_PREFIX) == {}
    assert not (DEMO_PREFIX / "drive_c" / "VeyraLab").exists()
    registry = (DEMO_PREFIX / "system.reg").read_text(encoding="utf-8")
    assert "Services\\\\VeyraCamera" not in registry
    assert "VeyraLaboratory" not in registry
    check_update(run_script("demo"), default_image(), "5.10.2.0", 1024)


@slow
def test_takes_the_image_camera_version_and_transfer_size_of_a_person_and_keeps_a_transcript(tmp_path: Path) -> None:
    image = tmp_path / "my image.bin"
    image.write_bytes(random_image(10_000))
    transcript = tmp_path / "run.jsonl"
    options = ("--image", str(image), "--camera-version", "1.2.3.4", "--transfer-size", "128")
    page = tmp_path / "run.html"
    done = run_script("demo", *options, "--transcript", str(transcript), "--report", str(page))
    check_update(done, image.read_bytes(), "1.2.3.4", 128)
    assert done.stdout.endswith(f"; page at {page}.\n")
    content = page.read_text(encoding="utf-8")
    assert all(words in content for words in ("my image.bin", "expectations held", "Updated"))
    events = [json.loads(line) for line in transcript.read_text(encoding="utf-8").splitlines()]
    assert all({"t", "source", "event"} <= set(event) for event in events)
    assert {event["source"] for event in events} == {"lab", "rig", "toast"}
    times = [event["t"] for event in events]
    assert times == sorted(times)
    traces = [event["text"] for event in events if event["event"] == "trace"]
    assert "The camera's firmware version is 1.2.3.4" in traces
    transfers = sum(event["event"] == "transfer" for event in events)
    assert done.stdout.splitlines()[-2] == f"control transfers: {transfers}"
    assert [event["held"] for event in events if event["event"] == "judgement"] == [True]
    assert events[0]["event"] == "run"


@slow
def test_shows_that_a_declined_update_changes_nothing() -> None:
    done = run_script("demo", "--answer", "decline")
    assert done.returncode == 0, done.stdout + done.stderr
    firmware, image_digest, flash_digest, transfers, sentence = done.stdout.splitlines()[-5:]
    assert sentence == "The user declined. The camera keeps firmware 5.10.2.0; --report FILE makes a page of it."
    assert firmware == "camera firmware: 5.10.2.0 -> 5.10.2.0"
    assert image_digest == f"image sha256: {sha256(default_image())}"
    assert flash_digest.removeprefix("flash ") != image_digest.removeprefix("image ")
    assert transfers == "control transfers: 0"


@slow
def test_says_why_a_camera_with_tiny_transfers_is_not_updated() -> None:
    done = run_script("demo", "--transfer-size", "64")
    assert done.returncode == 1, done.stdout + done.stderr
    failed = [line for line in done.stdout.splitlines() if line.startswith("failed: ")]
    assert len(failed) == 1, failed
    assert "64 bytes in one transfer" in failed[0]
    assert "no block was sent" in failed[0]
    assert done.stdout.splitlines()[-1] == "control transfers: 3"
    reason = "scripts/demo: The download stopped before its first block: the service first reads 68 bytes"
    assert done.stderr.splitlines()[-1].startswith(reason)
    assert "; 1 of " in done.stderr
    assert processes_of(DEMO_PREFIX) == {}


@slow
def test_says_why_equal_versions_are_no_update() -> None:
    done = run_script("demo", "--camera-version", "5.10.3.0")
    assert done.returncode == 1, done.stdout + done.stderr
    assert "camera and image both have version 5.10.3.0" in done.stdout
    assert done.stderr.splitlines()[-1].startswith("scripts/demo: Nobody was asked: camera and image both have version")


def test_explains_itself(run: Run) -> None:
    status, text, errors = run(demo.main, "--help")
    assert (status, errors) == (0, "")
    for option in (
        "--image", "--camera-version", "--transfer-size", "--answer", "--bus", "--transcript", "--report", "--help",
    ):  # fmt: skip
        assert option in text


_NO_VERSIONS = ("", "1.2.3", "1.2.3.4.5", "1.2.3.256", "1.2.3.-4", "a.b.c.d", "1,2,3,4", " 1.2.3.4")
_NO_SIZES = ("", "0", "65536", "-1", "1k", "1.5")


@pytest.mark.parametrize(
    ("options", "because"),
    [
        *((f"--camera-version={version}", "--camera-version") for version in _NO_VERSIONS),
        *((f"--transfer-size={size}", "--transfer-size") for size in _NO_SIZES),
        ("--bus pci", "pci"),
        ("--bus usb --transfer-size 4097", "4096 bytes at most"),
        ("--what", "--what"),
        ("--answer perhaps", "perhaps"),
        ("--image", "--image"),
        ("firmware.bin", "firmware.bin"),
        ("--image /does/not/exist.bin", "does not exist"),
        ("--transcript /does/not/exist/run.jsonl", "cannot be written"),
        ("--report /does/not/exist/run.html", "cannot be written"),
        ("--report /tmp/same --transcript /tmp/same", "name the same file"),
    ],
)
def test_refuses(run: Run, options: str, because: str) -> None:
    words = [options] if "=" in options else options.split()
    check_refusal(run(demo.main, *words), because)


def test_refuses_an_image_that_is_too_short(run: Run, tmp_path: Path) -> None:
    image = tmp_path / "image.bin"
    image.write_bytes(bytes(401))
    check_refusal(run(demo.main, "--image", str(image)), "401 bytes")
