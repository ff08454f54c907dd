"""An independent host, Debian's dfu-util, downloads images to the virtual camera and reads them back:
dfu_util_test.py FOLDER RESULTS, the folder with the stand-in for libusb and the file for the cases' results."""

import os
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "support"))

from recorded_results import run_recorded  # noqa: E402

RESULTS = Path(sys.argv.pop()).resolve()
STAND_IN = Path(sys.argv.pop()).resolve()
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
            "LD_LIBRARY_PATH": str(STAND_IN),
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


class DfuUtil(unittest.TestCase):
    def setUp(self) -> None:
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)

    def test_loads_the_stand_in(self) -> None:
        environment = os.environ | {"LD_LIBRARY_PATH": str(STAND_IN)}
        command = ["ldd", "/usr/bin/dfu-util"]
        listed = subprocess.run(command, env=environment, capture_output=True, text=True, check=True).stdout
        self.assertIn(str(STAND_IN), listed)

    def test_finds_the_camera_in_dfu_mode(self) -> None:
        result = Host(self.folder).run("--list")
        self.assertIn("[2f1a:7e01]", result.stdout)

    def _download(self, host: Host, content: bytes, *, answers_to_the_end: bool) -> None:
        """A device that needs a reset after its manifestation answers no more by then, as the standard has
        it; dfu-util says so and ends with EX_IOERR, the image written all the same."""
        result = host.download(content)
        self.assertIn("Download done.", result.stdout)
        self.assertIn("dfuMANIFEST, status(0)", result.stdout)
        if answers_to_the_end:
            self.assertEqual(result.returncode, os.EX_OK, result.stderr)
            self.assertIn("dfuIDLE, status(0)", result.stdout.rsplit("dfuMANIFEST", 1)[1])
        else:
            self.assertEqual(result.returncode, os.EX_IOERR)
            self.assertIn("unable to read DFU status after completion", result.stderr)
        self.assertEqual(host.flash, content)

    def _download_and_read_back(self, size: int, personality: str = "strict", **camera: str) -> None:
        host = Host(self.folder, VEYRA_PERSONALITY=personality, **camera)
        self.assertEqual(len(host.upload()), 4096)
        self._download(host, image(size), answers_to_the_end=personality == "synchronous")
        self.assertEqual(host.upload(), image(size))
        self.assertEqual(host.flash, image(size))

    def test_downloads_to_a_strict_camera_and_reads_back(self) -> None:
        self._download_and_read_back(10 * 1024 + 17)

    def test_downloads_to_a_lenient_camera_and_reads_back(self) -> None:
        self._download_and_read_back(10 * 1024 + 17, "lenient")

    def test_downloads_to_a_synchronous_camera_and_reads_back(self) -> None:
        self._download_and_read_back(10 * 1024 + 17, "synchronous")

    def test_downloads_whole_blocks_and_reads_back(self) -> None:
        self._download_and_read_back(8 * 1024, "synchronous")

    def test_downloads_a_single_byte_and_reads_back(self) -> None:
        self._download_and_read_back(1, "synchronous")

    def test_downloads_to_a_camera_that_takes_its_time_and_reads_back(self) -> None:
        self._download_and_read_back(5000, VEYRA_BLOCK_MS="30")

    def test_downloads_in_blocks_of_64_bytes_and_reads_back(self) -> None:
        self._download_and_read_back(5000, "synchronous", VEYRA_TRANSFER_SIZE="64")

    def test_downloads_to_the_kv400(self) -> None:
        self._download(Host(self.folder, VEYRA_PERSONALITY="kv400"), image(5000), answers_to_the_end=False)

    def test_resets_a_synchronous_camera_into_its_new_firmware(self) -> None:
        host = Host(self.folder, VEYRA_PERSONALITY="synchronous")
        result = host.download(image(5000), "--reset")
        self.assertIn("Resetting USB to switch back to Run-Time mode", result.stdout)
        self.assertEqual(host.flash, image(5000))

    def test_counts_the_control_transfers_of_a_download(self) -> None:
        host = Host(self.folder, VEYRA_PERSONALITY="synchronous")
        blocks = 100
        host.download(image(blocks * 1024))
        self.assertGreaterEqual(host.transfers, 2 * blocks + 1)
        print(f"dfu-util: {host.transfers} control transfers for {blocks} blocks")


if __name__ == "__main__":
    run_recorded(RESULTS)
