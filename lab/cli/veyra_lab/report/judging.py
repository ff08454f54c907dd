"""Judges the downloads of a transcript: how far each went, and where it stopped and why."""

from collections.abc import Iterable

from .codes import BAD_LENGTH, DFU_STATES, DFU_STATUSES, E_FAIL, Code, named, win32_as_hresult
from .download import Download, End, gather
from .transcript import Event
from .transfer import Role, Transfer

_IDLE = 2
_DOWNLOAD_IDLE = 5
_MANIFEST_WAIT_RESET = 8
_ERROR = 10
_PROBE_SIZE = 68
# What the service asks before the first block, each with the complaint when it fails; the last is the probe.
_PREPARATIONS = (
    ("GETSTATE", "the camera did not say which state it is in"),
    ("DETACH", "the camera did not accept the request to detach"),
    ("GETSTATE", "the camera did not say which state it is in"),
    ("UPLOAD", "the camera did not answer the trial read before the first block"),
)
_PROBE = 3
# How long the service waits for a block, and for the whole image to be taken into use.
_BLOCK_LIMIT_SECONDS = 5
_IMAGE_LIMIT_SECONDS = 30


def downloads(events: Iterable[Event]) -> list[Download]:
    """Every download, judged, in the order of their beginnings."""
    found = gather(events)
    for download in found:
        _Walk(download).go()
    return found


class _Walk:
    """Goes through a download's transfers as the service did, and finds the step at which it gave up."""

    def __init__(self, download: Download) -> None:
        self._download = download
        self._step = self._prepare
        self._prepared = 0
        self._pending = 0  # bytes of the block that is not confirmed yet
        self._asked_at: float | None = None

    def go(self) -> None:
        for transfer in self._download.transfers:
            if self._download.code is not None:
                return
            self._step(transfer)
        if self._download.ended is not None and self._download.end is End.OPEN:
            self._ended_between_transfers()

    def _fail(self, why: str, code: Code, culprit: Transfer | None) -> None:
        download = self._download
        download.end = End.STOPPED
        download.why = why
        download.code = code
        download.culprit = culprit
        if culprit is not None:
            culprit.role = Role.FAILED

    def _needs(self, transfer: Transfer, what: str) -> bool:
        if transfer.ok or transfer.error == 0:
            return True
        self._fail(f"{what}: {transfer.code.meaning or 'the request failed'}", transfer.code, transfer)
        return False

    def _prepare(self, transfer: Transfer) -> None:
        request, complaint = _PREPARATIONS[self._prepared]
        if transfer.request != request:
            self._next_block(transfer)
            return
        if not self._needs(transfer, complaint):
            return
        self._prepared += 1
        if self._prepared == len(_PREPARATIONS):
            self._step = self._next_block
        elif self._prepared == _PROBE and transfer.state != _IDLE:
            state = named(DFU_STATES, transfer.state)
            self._fail(f"the camera was in state {state} instead of dfuIDLE", E_FAIL, transfer)

    def _next_block(self, transfer: Transfer) -> None:
        download = self._download
        self._step = self._next_block
        if transfer.request != "DNLOAD":
            return
        if transfer.length == 0:
            download.complete_image = download.sent > 0
            self._step = self._manifest
            return
        download.sent += 1
        download.block_size = download.block_size or transfer.length
        transfer.block = download.sent
        if not download.curve:
            download.curve.append((transfer.t, 0, 0))
        if self._needs(transfer, "the camera did not take the block"):
            download.bytes_sent += transfer.length
            self._pending = transfer.length
            self._step = self._block_status

    def _block_status(self, transfer: Transfer) -> None:
        download = self._download
        transfer.block = download.sent
        if transfer.request != "GETSTATUS":
            self._next_block(transfer)
        elif self._awaits(transfer, _DOWNLOAD_IDLE):
            download.confirmed += 1
            download.bytes_confirmed += self._pending
            download.curve.append((transfer.t, download.confirmed, download.bytes_confirmed))
            self._step = self._next_block

    def _manifest(self, transfer: Transfer) -> None:
        if transfer.request == "GETSTATUS" and self._awaits(transfer, _MANIFEST_WAIT_RESET):
            self._step = self._farewell

    def _farewell(self, transfer: Transfer) -> None:
        if not transfer.ok:
            transfer.role = Role.EXPECTED
        self._download.end = End.FINISHED

    def _awaits(self, transfer: Transfer, wanted: int) -> bool:
        """Whether the camera is where the service wants it; if not, it waits or gives up."""
        if self._asked_at is not None:
            self._download.waits += 1
            self._download.wait_seconds += transfer.t - self._asked_at
            self._asked_at = None
        if transfer.ok and transfer.status == 0 and transfer.state == wanted:
            return True
        # A failure with the error 0 counts as an answer, and what is missing in an answer as an error of the camera.
        answered = transfer.ok or transfer.error == 0
        if answered and (transfer.status != 0 or transfer.state in (_ERROR, None)):
            status, state = named(DFU_STATUSES, transfer.status), named(DFU_STATES, transfer.state)
            self._fail(f"the camera reported status {status} in state {state}", E_FAIL, transfer)
            return False
        transfer.role = Role.WAIT
        self._asked_at = transfer.t
        return False

    def _ended_between_transfers(self) -> None:
        download = self._download
        last = download.transfers[-1] if download.transfers else None
        if download.why:
            download.end = End.STOPPED
        elif last is None and download.announced is not None:
            self._fail("the camera was gone before the first request", win32_as_hresult(5), None)
        elif last is None and download.completed:
            self._fail("the image file could not be opened", E_FAIL, None)
        elif last is None:
            download.end = End.STOPPED
            download.why = "the camera shows no interface to download through, or was gone before it could be used"
        elif last.role is Role.WAIT:
            state = f"it stayed in state {named(DFU_STATES, last.state)}"
            said = state if last.ok else f"the last request ended with {last.code}"
            limit = _IMAGE_LIMIT_SECONDS if download.complete_image else _BLOCK_LIMIT_SECONDS
            self._fail(f"the camera was not ready within {limit} s; {said}", E_FAIL, last)
        elif self._step == self._prepare and self._prepared == _PROBE:
            why = f"the service first reads {_PROBE_SIZE} bytes in one transfer, and the camera takes fewer"
            self._fail(why, BAD_LENGTH, None)
        elif self._step == self._farewell:
            download.end = End.FINISHED
        else:
            download.end = End.STOPPED
            download.why = "the service ended it between two transfers, and the record does not show why"
