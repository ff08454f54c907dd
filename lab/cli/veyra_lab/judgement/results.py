"""What the results mean that an expectation can name: updated, failed, not opened, asked, not asked."""

from collections.abc import Callable, Iterator
from typing import Any

from ..scenarios.transfer_pattern import compile_pattern, shortened, spell
from ..windows.camera import questions_of
from ..windows.image import SMALLEST_IMAGE, version_of
from ..wire.events import BLOCK_NUMBERS
from .flash import check_flash
from .observed import Observed, differ

_DEFAULT_TRANSFER_SIZE = 1024


def check_transfers(observed: Observed, wanted: str) -> Iterator[str]:
    """A complaint unless the transfers are those of the pattern, or none at all."""
    seen = spell(observed.transfers)
    if not compile_pattern("" if wanted == "none" else wanted).fullmatch(seen):
        yield f"transfers: expected {wanted}, seen {shortened(seen)}"


def _blocks(observed: Observed, camera: int) -> tuple[int, int]:
    """The blocks that the service announces, and those that it sends."""
    size = observed.cameras[camera].get("transfer_size", _DEFAULT_TRANSFER_SIZE)
    length = len(observed.image or b"")
    return length // size, -(-length // size)


def _updated(observed: Observed, expectation: dict[str, Any]) -> Iterator[str]:
    number = expectation.get("camera", 0)
    announced, sent = _blocks(observed, number)
    if "commands" not in expectation:
        yield from differ("commands into DFU mode", 1, observed.commands)
    pattern = f"GETSTATE DETACH GETSTATE UPLOAD (DNLOAD GETSTATUS?+)x{sent} EMPTY? GETSTATUS?+"
    yield from check_transfers(observed, pattern)
    progress = [f"start:{announced}", *(str(block % BLOCK_NUMBERS) for block in range(1, sent + 1))]
    if "progress" not in expectation:
        yield from differ("progress", progress, observed.progress)
    if "completions" not in expectation:
        yield from differ("ends of a download", 1, len(observed.calls("NotifyComplete")))
    now = observed.look(number)
    image = observed.image or b""
    version = version_of(image) if len(image) >= SMALLEST_IMAGE else now.version
    yield from differ("mode, version and block gaps", ("running", version, 0), (now.mode, now.version, now.gaps))
    yield from check_flash(observed, number, "image", now)


def _failed(observed: Observed, expectation: dict[str, Any]) -> Iterator[str]:
    if "completions" not in expectation:
        yield from differ("ends of a download", 1, len(observed.calls("NotifyComplete")))
    if "cameras" in expectation:
        return
    now = observed.look(expectation.get("camera", 0))
    if now.mode == "running" and now.flash == observed.image:
        yield "the camera runs the image although the download failed"


def _not_opened(observed: Observed, expectation: dict[str, Any]) -> Iterator[str]:
    del expectation
    yield from differ("transfers", "nothing", shortened(spell(observed.transfers)))
    yield from differ("progress", [], observed.progress)
    yield from differ("ends of a download", 0, len(observed.calls("NotifyComplete")))
    if not any(trace.startswith("update 20:") for trace in observed.traces):
        yield "the trace does not say that the device was not opened (update 20)"


def _left_alone(observed: Observed) -> Iterator[str]:
    yield from differ("commands into DFU mode", 0, observed.commands)
    yield from differ("transfers", "nothing", shortened(spell(observed.transfers)))
    yield from differ("progress", [], observed.progress)
    yield from differ("ends of a download", 0, len(observed.calls("NotifyComplete")))


def _asked(observed: Observed, expectation: dict[str, Any]) -> Iterator[str]:
    yield from _left_alone(observed)
    if "questions" not in expectation:
        asked = questions_of(observed.cameras[expectation.get("camera", 0)])
        yield from differ("number of questions", asked, len(observed.calls("ShowUpdatePrompt")))


def _not_asked(observed: Observed, expectation: dict[str, Any]) -> Iterator[str]:
    del expectation
    yield from _left_alone(observed)
    yield from differ("questions", [], [event["texts"] for event in observed.calls("ShowUpdatePrompt")])


RESULTS: dict[str, Callable[[Observed, dict[str, Any]], Iterator[str]]] = {
    "updated": _updated,
    "failed": _failed,
    "not opened": _not_opened,
    "asked": _asked,
    "not asked": _not_asked,
}
