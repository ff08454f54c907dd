"""What came of an update, in one sentence."""

from dataclasses import dataclass, replace
from enum import Enum

from .codes import Code, duration
from .download import Download, End
from .facts import ACCEPT, Facts
from .remedy import row_of_download
from .transcript import number, text

_CAMERA_VERSION = 23
_IMAGE_VERSION = 27
_UNKNOWN_VERSION = "0.0.0.0"


class Verdict(Enum):
    """What came of it. The values stand in the JSON form."""

    UPDATED = "updated"
    STOPPED = "stopped"
    DECLINED = "declined"
    NOT_ASKED = "not asked"
    UNFINISHED = "unfinished"
    # The camera runs the new firmware, but the service's last look at it failed.
    UNCONFIRMED = "unconfirmed"


@dataclass(frozen=True)
class Failure:
    """Where a download stopped, or what kept it from beginning."""

    t: float
    why: str
    code: Code | None = None
    block: int | None = None
    blocks: int | None = None
    # The download that stopped, if one had begun.
    download: Download | None = None
    # The row of docs/operations.md that it is.
    row: str = ""

    def __str__(self) -> str:
        return f"{self.why} ({self.code.number})" if self.code else self.why


@dataclass(frozen=True)
class Outcome:
    """What came of it; `failure` when something stopped it, the first where there are several; `row` is that of
    docs/operations.md, whether something stopped it or not."""

    verdict: Verdict
    sentence: str
    failure: Failure | None = None
    row: str = ""
    failures: tuple[Failure, ...] = ()


def outcome(facts: Facts) -> Outcome:
    """What came of the whole run."""
    if len(facts.downloads) > 1:
        return _of_several(facts)
    if facts.downloads:
        return _of_download(facts, facts.downloads[0])
    if facts.questions:
        return _of_the_question(facts)
    if not facts.cameras:
        return Outcome(Verdict.NOT_ASKED, "No camera was plugged in, and nobody was asked.", row="before-service")
    why, row = _why_not_asked(facts)
    return Outcome(Verdict.NOT_ASKED, f"Nobody was asked: {why}.", row=row)


def _of_several(facts: Facts) -> Outcome:
    """That of the first download which did not end in an update; if there is none, that of the last one."""
    outcomes = [_of_download(facts, download) for download in facts.downloads]
    unlucky = [place for place, each in enumerate(outcomes) if each.verdict is not Verdict.UPDATED]
    place = unlucky[0] if unlucky else len(outcomes) - 1
    told = outcomes[place]
    updated = f"{len(outcomes) - len(unlucky)} of {len(outcomes)} downloads ended in an update"
    failures = tuple(each.failure for each in outcomes if each.failure)
    return replace(told, sentence=f"{updated}: number {place + 1}: {told.sentence}", failures=failures)


def _of_download(facts: Facts, download: Download) -> Outcome:
    returned = facts.returned(download)
    version = text(returned, "version") if returned else ""
    of = download.of_blocks
    if download.end is End.STOPPED:
        block, row = download.sent or None, row_of_download(download, facts.events)
        failure = Failure(download.stopped_at, download.why, download.code, block, download.blocks, download, row)
        if download.complete_image and version not in ("", facts.version_before):
            because = f"the service counts the download as failed: {failure}"
            return _failed(Verdict.UNCONFIRMED, f"The camera was updated to {version}, but {because}.", failure)
        if not download.sent:
            sentence = "The download stopped before its first block"
        elif download.complete_image:
            sentence = f"All {download.sent:,} blocks were sent, but the camera did not take the image into use"
        else:
            sentence = f"The download stopped at block {download.sent:,}{of}"
        return _failed(Verdict.STOPPED, f"{sentence}: {failure}.", failure)
    if download.end is End.OPEN:
        place = f"after block {download.confirmed:,}{of}"
        return Outcome(Verdict.UNFINISHED, f"The record ends in the middle of the download, {place}.")
    if returned is None:
        sentence = "The whole image was sent, but the record does not show the camera coming back."
        return Outcome(Verdict.UNFINISHED, sentence)
    if version and version == facts.version_before and len(facts.downloads) == 1:
        why = f"the whole image was sent, but the camera came back with firmware {version} as before"
        row = "image-gone" if download.image_size == 0 else "end-failed"
        failure = Failure(download.last, why, download=download, row=row)
        return _failed(Verdict.STOPPED, f"The update changed nothing: {why}.", failure)
    took = facts.update_seconds() or 0.0
    change = f" from {facts.version_before} to {version}" if facts.version_before and version else ""
    return Outcome(Verdict.UPDATED, f"The camera was updated{change} in {duration(took)}.", row="up-to-date")


def _failed(verdict: Verdict, sentence: str, failure: Failure) -> Outcome:
    return Outcome(verdict, sentence, failure, failure.row, (failure,))


def _of_the_question(facts: Facts) -> Outcome:
    answers = [event for event in facts.answers if event["t"] >= facts.questions[-1]["t"]]
    if not answers:
        sentence = "The user was asked, and the record ends before the answer."
        return Outcome(Verdict.UNFINISHED, sentence, row="unanswered")
    answer = answers[-1]
    if number(answer, "sinks") == 0:
        why = "the service did not listen to the user's answer"
        failure = Failure(answer["t"], why, row="cannot-listen")
        return _failed(Verdict.STOPPED, f"Nothing was updated: {why}.", failure)
    if number(answer, "code") != ACCEPT:
        kept = f"firmware {facts.version_before}" if facts.version_before else "its firmware"
        return Outcome(Verdict.DECLINED, f"The user declined. The camera keeps {kept}.", row="declined")
    why = facts.obstacle(answer["t"]) or "the camera did not come back in DFU mode"
    row = facts.row_of_the_obstacle(answer["t"]) or "not-switched"
    failure = Failure(answer["t"], why, facts.code_of_the_answer(), row=row)
    return _failed(Verdict.STOPPED, f"The user accepted, but no download began: {why}.", failure)


def _why_not_asked(facts: Facts) -> tuple[str, str]:
    """In words, and the row of docs/operations.md."""
    if obstacle := facts.obstacle(0.0):
        return obstacle, facts.row_of_the_obstacle(0.0)
    camera, image = facts.traced(_CAMERA_VERSION), facts.traced(_IMAGE_VERSION)
    if camera and camera == image:
        return f"camera and image both have version {camera}", "same-version"
    if camera and image:
        why = f"the camera has {camera}, the image {image}, but no toast controller took the question"
        return why, "no-controller"
    if not facts.of("firmware-command"):
        why = "the service never looked at the camera's version, as when the update mode is not “Service Controlled”"
        return why, "mode"
    if facts.version_before == _UNKNOWN_VERSION:
        return f"the camera's version is {_UNKNOWN_VERSION}, which means unknown", "version-unknown"
    return "the record does not show why", ""
