"""What came of an update, in one sentence."""

from dataclasses import dataclass
from enum import Enum

from .codes import Code, duration
from .download import Download, End
from .facts import ACCEPT, Facts
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

    def __str__(self) -> str:
        return f"{self.why} ({self.code.number})" if self.code else self.why


@dataclass(frozen=True)
class Outcome:
    """What came of it; `failure` when something stopped it."""

    verdict: Verdict
    sentence: str
    failure: Failure | None = None


def outcome(facts: Facts) -> Outcome:
    """What came of the whole run."""
    if len(facts.downloads) > 1:
        return _of_several(facts)
    if facts.downloads:
        return _of_download(facts, facts.downloads[0])
    if facts.questions:
        return _of_the_question(facts)
    if not facts.cameras:
        return Outcome(Verdict.NOT_ASKED, "No camera was plugged in, and nobody was asked.")
    return Outcome(Verdict.NOT_ASKED, f"Nobody was asked: {_why_not_asked(facts)}.")


def _of_several(facts: Facts) -> Outcome:
    """That of the first download which did not end in an update; if there is none, that of the last one."""
    outcomes = [_of_download(facts, download) for download in facts.downloads]
    unlucky = [place for place, each in enumerate(outcomes) if each.verdict is not Verdict.UPDATED]
    place = unlucky[0] if unlucky else len(outcomes) - 1
    told = outcomes[place]
    updated = f"{len(outcomes) - len(unlucky)} of {len(outcomes)} downloads ended in an update"
    return Outcome(told.verdict, f"{updated}: number {place + 1}: {told.sentence}", told.failure)


def _of_download(facts: Facts, download: Download) -> Outcome:
    returned = facts.returned(download)
    version = text(returned, "version") if returned else ""
    of = f" of {download.blocks:,}" if download.blocks else ""
    if download.end is End.STOPPED:
        block = download.sent or None
        failure = Failure(download.stopped_at, download.why, download.code, block, download.blocks, download)
        if download.complete_image and version not in ("", facts.version_before):
            because = f"the service counts the download as failed: {failure}"
            return Outcome(
                Verdict.UNCONFIRMED, f"The camera was updated to {version}, but {because}.", failure
            )
        if not download.sent:
            sentence = "The download stopped before its first block"
        elif download.complete_image:
            sentence = f"All {download.sent:,} blocks were sent, but the camera did not take the image into use"
        else:
            sentence = f"The download stopped at block {download.sent:,}{of}"
        return Outcome(Verdict.STOPPED, f"{sentence}: {failure}.", failure)
    if download.end is End.OPEN:
        place = f"after block {download.confirmed:,}{of}"
        return Outcome(Verdict.UNFINISHED, f"The record ends in the middle of the download, {place}.")
    if returned is None:
        sentence = "The whole image was sent, but the record does not show the camera coming back."
        return Outcome(Verdict.UNFINISHED, sentence)
    if version and version == facts.version_before and len(facts.downloads) == 1:
        why = f"the whole image was sent, but the camera came back with firmware {version} as before"
        return Outcome(Verdict.STOPPED, f"The update changed nothing: {why}.", Failure(download.last, why))
    took = facts.update_seconds() or 0.0
    change = f" from {facts.version_before} to {version}" if facts.version_before and version else ""
    return Outcome(Verdict.UPDATED, f"The camera was updated{change} in {duration(took)}.")


def _of_the_question(facts: Facts) -> Outcome:
    answers = [event for event in facts.answers if event["t"] >= facts.questions[-1]["t"]]
    if not answers:
        return Outcome(Verdict.UNFINISHED, "The user was asked, and the record ends before the answer.")
    answer = answers[-1]
    if number(answer, "sinks") == 0:
        why = "the service did not listen to the user's answer"
        return Outcome(Verdict.STOPPED, f"Nothing was updated: {why}.", Failure(answer["t"], why))
    if number(answer, "code") != ACCEPT:
        kept = f"firmware {facts.version_before}" if facts.version_before else "its firmware"
        return Outcome(Verdict.DECLINED, f"The user declined. The camera keeps {kept}.")
    why = facts.obstacle(answer["t"]) or "the camera did not come back in DFU mode"
    failure = Failure(answer["t"], why, facts.code_of_the_answer())
    return Outcome(Verdict.STOPPED, f"The user accepted, but no download began: {why}.", failure)


def _why_not_asked(facts: Facts) -> str:
    if obstacle := facts.obstacle(0.0):
        return obstacle
    camera, image = facts.traced(_CAMERA_VERSION), facts.traced(_IMAGE_VERSION)
    if camera and camera == image:
        return f"camera and image both have version {camera}"
    if camera and image:
        return f"the camera has {camera}, the image {image}, but no toast controller took the question"
    if not facts.of("firmware-command"):
        return "the service never looked at the camera's version, as when the update mode is not “Service Controlled”"
    if facts.version_before == _UNKNOWN_VERSION:
        return f"the camera's version is {_UNKNOWN_VERSION}, which means unknown"
    return "the record does not show why"
