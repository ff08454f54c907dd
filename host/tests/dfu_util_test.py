"""An independent host, Debian's dfu-util, downloads images to the virtual camera and reads them back. VEYRA_STAND_IN names the
folder with the stand-in for libusb."""

import os
import subprocess
from pathlib import Path

import pytest

STAND_IN = os.environ["VEYRA_STAND_IN"]
VERSION_OFFSET = 398
SECONDS = 60


def image(size: int) -> bytes:
    """Bytes that differ from block to block, with a version where the camera has it."""
    content = bytearray((place * 7 + (place >> 8) * 13 + 3) & 0xFF for place in range(size))
    content[VERSION_OFFSET : VERSION_OFFSET + 4] = bytes([0, 3, 10, 5])[: max(0, size - VERSION_OFFSET)]
    return bytes(content[:size])


class Host:
    """dfu-util with one camera, whose flash lies in a file."""

    def __init__(self, folder: Path, **camera: str) -> None:
        self._folder = folder
        self._flash = folder / "flash.bin"
        self._transfers = folder / "transfers"
        self._environment = os.environ | {
            "LD_LIBRARY_PATH": STAND_IN,
            "VEYRA_FLASH": str(self._flash),
            "VEYRA_TRANSFERS": str(self._transfers),
            **camera,
        }

    def run(self, *arguments: str) -> subprocess.CompletedProcess[str]:
        command = ["dfu-util", "--device", "2f1a:7e01", *arguments]
        return subprocess.run(
            command, env=self._environment, capture_output=True, text=True, timeout=SECONDS, check=False
        )

    def download(self, content: bytes, *arguments: str) -> subprocess.CompletedProcess[str]:
        path = self._folder / "image.bin"
        path.write_bytes(content)
        return self.run("--download", str(path), *arguments)

    def check_download(self, content: bytes, *, answers_to_the_end: bool) -> None:
        """A device that needs a reset after its manifestation answers no more by then, as the standard has
        it; dfu-util says so and ends with EX_IOERR, the image written all the same."""
        result = self.download(content)
        assert "Download done." in result.stdout
        assert "dfuMANIFEST, status(0)" in result.stdout
        if answers_to_the_end:
            assert result.returncode == os.EX_OK, result.stderr
            assert "dfuIDLE, status(0)" in result.stdout.rsplit("dfuMANIFEST", 1)[1]
        else:
            assert result.returncode == os.EX_IOERR
            assert "unable to read DFU status after completion" in result.stderr
        assert self.flash == content

    def upload(self) -> bytes:
        path = self._folder / "read-back.bin"
        path.unlink(missing_ok=True)
        result = self.run("--upload", str(path))
        return path.read_bytes() if result.returncode == 0 else result.stderr.encode()

    @property
    def flash(self) -> bytes:
        return self._flash.read_bytes()

    @property
    def transfers(self) -> int:
        return int(self._transfers.read_text())


def test_loads_the_stand_in() -> None:
    environment = os.environ | {"LD_LIBRARY_PATH": STAND_IN}
    listed = subprocess.run(["ldd", "/usr/bin/dfu-util"], env=environment, capture_output=True, text=True, check=True)
    assert STAND_IN in listed.stdout


def test_finds_the_camera_in_dfu_mode(tmp_path: Path) -> None:
    assert "[2f1a:7e01]" in Host(tmp_path).run("--list").stdout


@pytest.mark.parametrize(
    ("size", "personality", "camera"),
    [
        pytest.param(10 * 1024 + 17, "strict", {}, id="a strict camera"),
        pytest.param(10 * 1024 + 17, "lenient", {}, id="a lenient camera"),
        pytest.param(10 * 1024 + 17, "synchronous", {}, id="a synchronous camera"),
        pytest.param(8 * 1024, "synchronous", {}, id="whole blocks"),
        pytest.param(1, "synchronous", {}, id="a single byte"),
        pytest.param(5000, "strict", {"VEYRA_BLOCK_MS": "30"}, id="a camera that takes its time"),
        pytest.param(5000, "synchronous", {"VEYRA_TRANSFER_SIZE": "64"}, id="blocks of 64 bytes"),
    ],
)
def test_downloads_and_reads_back(tmp_path: Path, size: int, personality: str, camera: dict[str, str]) -> None:
    host = Host(tmp_path, VEYRA_PERSONALITY=personality, **camera)
    assert len(host.upload()) == 4096
    host.check_download(image(size), answers_to_the_end=personality == "synchronous")
    assert host.upload() == image(size)
    assert host.flash == image(size)


def test_downloads_to_the_kv400(tmp_path: Path) -> None:
    Host(tmp_path, VEYRA_PERSONALITY="kv400").check_download(image(5000), answers_to_the_end=False)


def test_resets_a_synchronous_camera_into_its_new_firmware(tmp_path: Path) -> None:
    host = Host(tmp_path, VEYRA_PERSONALITY="synchronous")
    result = host.download(image(5000), "--reset")
    assert "Resetting USB to switch back to Run-Time mode" in result.stdout
    assert host.flash == image(5000)


def test_counts_the_control_transfers_of_a_download(tmp_path: Path) -> None:
    host = Host(tmp_path, VEYRA_PERSONALITY="synchronous")
    blocks = 100
    host.download(image(blocks * 1024))
    assert host.transfers >= 2 * blocks + 1
