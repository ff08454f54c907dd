"""What came of an update, in one sentence and in numbers."""

from dataclasses import dataclass
from enum import Enum
from typing import Any

from .codes import Code, hresult, win32_as_hresult
from .download import Download, End, downloads
from .transcript import Event, Transcript, number, octets, text, texts

_UPDATE_SERVICE_TRACES = "{fbfbaa6b-fcbc-3745-ac1c-e104c7b6cda1}"
_CAMERA_VERSION = 23
_IMAGE_VERSION = 27
# Trace messages that say why there was no question or no download.
_OBSTACLES = {11, 12, 20, 21, 22, 25, 26}
_ENTER_DFU_MODE = 0x1E
_ACCEPT = 1
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
    code: Code | None
    block: int | None = None
    blocks: int | None = None
    # The download that stopped, if one had begun.
    download: Download | None = None


@dataclass(frozen=True)
class Problem:
    """Something that went wrong on the way. `harmless` when the service expects or ignores it."""

    t: float
    text: str
    harmless: bool


@dataclass(frozen=True)
class Summary:
    """Times in seconds. A number that the transcript does not tell is None."""

    verdict: Verdict
    sentence: str
    failure: Failure | None
    problems: list[Problem]
    downloads: list[Download]
    version_before: str
    version_after: str
    update_seconds: float | None
    record_seconds: float
    events: int
    cut_short: bool

    @property
    def transfers(self) -> int:
        return sum(len(download.transfers) for download in self.downloads)

    @property
    def bytes_sent(self) -> int:
        return sum(download.bytes_sent for download in self.downloads)

    @property
    def blocks_confirmed(self) -> int:
        return sum(download.confirmed for download in self.downloads)

    @property
    def waits(self) -> int:
        return sum(download.waits for download in self.downloads)

    @property
    def wait_seconds(self) -> float:
        return sum(download.wait_seconds for download in self.downloads)

    @property
    def download_seconds(self) -> float:
        return sum(download.last - download.began for download in self.downloads)

    def as_json(self) -> dict[str, Any]:
        """The form for scripts."""
        failure = self.failure
        return {
            "outcome": self.verdict.value,
            "sentence": self.sentence,
            "failure": None
            if failure is None
            else {
                "t": round(failure.t, 6),
                "why": failure.why,
                "block": failure.block,
                "blocks": failure.blocks,
                "code": failure.code.number if failure.code else None,
                "name": failure.code.name or None if failure.code else None,
                "meaning": failure.code.meaning or None if failure.code else None,
            },
            "problems": [
                {"t": round(problem.t, 6), "text": problem.text}
                for problem in self.problems
                if not problem.harmless
            ],
            "version_before": self.version_before or None,
            "version_after": self.version_after or None,
            "seconds": {
                "update": None if self.update_seconds is None else round(self.update_seconds, 3),
                "download": round(self.download_seconds, 3),
                "waiting": round(self.wait_seconds, 3),
                "record": round(self.record_seconds, 3),
            },
            "downloads": len(self.downloads),
            "transfers": self.transfers,
            "bytes": self.bytes_sent,
            "blocks": self.blocks_confirmed,
            "waits": self.waits,
            "events": self.events,
            "cut_short": self.cut_short,
        }


def summarize(transcript: Transcript) -> Summary:
    """The whole of it."""
    return _Reading(transcript).summary()


class _Reading:
    """One transcript being understood."""

    def __init__(self, transcript: Transcript) -> None:
        self._transcript = transcript
        self._events = transcript.events
        self._downloads = downloads(self._events)
        self._cameras = self._of("camera")
        self._prompts = [
            event for event in self._of("prompt-call") if event.get("method") == "ShowUpdatePrompt"
        ]
        self._answers = self._of("answer")
        self._before = self._first_version()

    def summary(self) -> Summary:
        verdict, sentence, failure = self._outcome()
        return Summary(
            verdict=verdict,
            sentence=sentence,
            failure=failure,
            problems=_problems(self._events, self._downloads),
            downloads=self._downloads,
            version_before=self._before,
            version_after=self._last_version(),
            update_seconds=self._update_seconds(),
            record_seconds=self._events[-1]["t"] - self._events[0]["t"],
            events=len(self._events),
            cut_short=self._transcript.cut_short,
        )

    def _of(self, kind: str) -> list[Event]:
        return [event for event in self._events if event["event"] == kind]

    # Versions and times.

    def _first_version(self) -> str:
        for event in self._events:
            if event["event"] == "camera" and text(event, "version"):
                return text(event, "version")
            if event["event"] == "prompt-call" and event.get("method") == "ShowUpdatePrompt":
                return (texts(event, "texts") or [""])[0]
        return ""

    def _last_version(self) -> str:
        return next(
            (text(event, "version") for event in reversed(self._cameras) if text(event, "version")), ""
        )

    def _returned(self, download: Download) -> Event | None:
        """The camera's coming back with firmware after a download and before the next one."""
        until = next((each.began for each in self._downloads if each.began > download.began), float("inf"))
        for event in self._cameras:
            if download.began <= event["t"] < until and event.get("change") == "running":
                return event
        return None

    def _update_seconds(self) -> float | None:
        if not self._downloads:
            return None
        last = self._downloads[-1]
        accepted = [event["t"] for event in self._accepting() if event["t"] <= last.began]
        began: float = accepted[-1] if accepted else last.began
        returned = self._returned(last)
        ended: float = returned["t"] if returned and last.end is End.FINISHED else last.stopped_at
        return ended - began

    def _accepting(self) -> list[Event]:
        """What shows that the user said yes: the command that the answer led to, or the answer itself."""
        return [
            event
            for event in self._events
            if event["event"] == "firmware-command"
            and event.get("opcode") == _ENTER_DFU_MODE
            or event["event"] == "answer"
            and event.get("code") == _ACCEPT
        ]

    # The outcome.

    def _outcome(self) -> tuple[Verdict, str, Failure | None]:
        if len(self._downloads) > 1:
            return self._outcome_of_several()
        if self._downloads:
            return self._outcome_of(self._downloads[0])
        if self._prompts:
            return self._outcome_of_the_question()
        return self._outcome_without_a_question()

    def _outcome_of_several(self) -> tuple[Verdict, str, Failure | None]:
        """That of the first download which did not end in an update; if there is none, that of the last one."""
        outcomes = [self._outcome_of(download) for download in self._downloads]
        unlucky = [place for place, outcome in enumerate(outcomes) if outcome[0] is not Verdict.UPDATED]
        place = unlucky[0] if unlucky else len(outcomes) - 1
        verdict, sentence, failure = outcomes[place]
        updated = len(outcomes) - len(unlucky)
        said = f"{updated} of {len(outcomes)} downloads ended in an update: number {place + 1}: {sentence}"
        return verdict, said, failure

    def _outcome_of(self, download: Download) -> tuple[Verdict, str, Failure | None]:
        if download.end is End.STOPPED:
            failure = Failure(
                download.stopped_at,
                download.why,
                download.code,
                download.sent or None,
                download.blocks,
                download,
            )
            returned = self._returned(download)
            if returned and download.complete_image and text(returned, "version") not in ("", self._before):
                version = text(returned, "version")
                because = f"the service counts the download as failed: {failure.why}{_number_of(failure)}"
                return Verdict.UNCONFIRMED, f"The camera was updated to {version}, but {because}.", failure
            return Verdict.STOPPED, _stopped_sentence(download, failure), failure
        if download.end is End.OPEN:
            place = f"after block {download.confirmed:,}" + (
                f" of {download.blocks:,}" if download.blocks else ""
            )
            return Verdict.UNFINISHED, f"The record ends in the middle of the download, {place}.", None
        returned = self._returned(download)
        if returned is None:
            sentence = "The whole image was sent, but the record does not show the camera coming back."
            return Verdict.UNFINISHED, sentence, None
        return self._outcome_of_return(download, text(returned, "version"))

    def _outcome_of_return(self, download: Download, version: str) -> tuple[Verdict, str, Failure | None]:
        if version and version == self._before and len(self._downloads) == 1:
            why = f"the whole image was sent, but the camera came back with firmware {version} as before"
            return (Verdict.STOPPED, f"The update changed nothing: {why}.", Failure(download.last, why, None))
        took = self._update_seconds() or 0.0
        change = f" from {self._before} to {version}" if self._before and version else ""
        return Verdict.UPDATED, f"The camera was updated{change} in {duration(took)}.", None

    def _outcome_of_the_question(self) -> tuple[Verdict, str, Failure | None]:
        asked = self._prompts[-1]
        answers = [event for event in self._answers if event["t"] >= asked["t"]]
        if not answers:
            return Verdict.UNFINISHED, "The user was asked, and the record ends before the answer.", None
        answer = answers[-1]
        keeps = (
            f"The camera keeps firmware {self._before}." if self._before else "The camera keeps its firmware."
        )
        if number(answer, "sinks") == 0:
            why = "the service did not listen to the user's answer"
            return (Verdict.STOPPED, f"Nothing was updated: {why}.", Failure(answer["t"], why, None))
        if number(answer, "code") != _ACCEPT:
            return Verdict.DECLINED, f"The user declined. {keeps}", None
        why = self._obstacle(answer["t"]) or "the camera did not come back in DFU mode"
        failure = Failure(answer["t"], why, self._code_of_the_answer())
        return Verdict.STOPPED, f"The user accepted, but no download began: {why}.", failure

    def _code_of_the_answer(self) -> Code | None:
        """Why the camera was not sent into DFU mode, when its command shows that."""
        for event in reversed(self._accepting()):
            result = number(event, "result")
            if result is not None and result < 0:
                return hresult(result)
        return None

    def _outcome_without_a_question(self) -> tuple[Verdict, str, Failure | None]:
        if not self._cameras:
            return Verdict.NOT_ASKED, "No camera was plugged in, and nobody was asked.", None
        return Verdict.NOT_ASKED, f"Nobody was asked: {self._why_not_asked()}.", None

    def _why_not_asked(self) -> str:
        obstacle = self._obstacle(0.0)
        if obstacle:
            return obstacle
        camera, image = self._traced(_CAMERA_VERSION), self._traced(_IMAGE_VERSION)
        if camera and camera == image:
            return f"camera and image both have version {camera}"
        if camera and image:
            return f"the camera has {camera}, the image {image}, but no toast server took the question"
        if not self._of("firmware-command"):
            return (
                "the service never looked at the camera's version, as when the update mode is not "
                "“Service Controlled”"
            )
        if self._before == _UNKNOWN_VERSION:
            return f"the camera's version is {_UNKNOWN_VERSION}, which means unknown"
        return "the record does not show why"

    def _traced(self, message: int) -> str:
        """The version in the last trace message of this number."""
        for event in reversed(self._events):
            if event["event"] == "trace" and _is_of_update_service(event) and event.get("number") == message:
                arguments = texts(event, "arguments")
                content = octets({"0": arguments[0]}, "0") if arguments else b""
                return content.split(b"\0", 1)[0].decode("latin-1")
        return ""

    def _obstacle(self, since: float) -> str:
        for event in self._events:
            if event["event"] == "trace" and event["t"] >= since and _is_of_update_service(event):
                if number(event, "number") in _OBSTACLES and text(event, "text"):
                    said = text(event, "text").rstrip(".")
                    return said[:1].lower() + said[1:]
        return ""


def _is_of_update_service(event: Event) -> bool:
    return text(event, "group").lower() == _UPDATE_SERVICE_TRACES


def _number_of(failure: Failure) -> str:
    return f" ({failure.code.number})" if failure.code else ""


def _stopped_sentence(download: Download, failure: Failure) -> str:
    why = f"{failure.why}{_number_of(failure)}"
    if not download.sent:
        return f"The download stopped before its first block: {why}."
    if download.complete_image:
        return (
            f"All {download.sent:,} blocks were sent, but the camera did not take the image into use: {why}."
        )
    of = f" of {download.blocks:,}" if download.blocks else ""
    return f"The download stopped at block {download.sent:,}{of}: {why}."


def duration(seconds: float) -> str:
    """A length of time for a person."""
    return f"{seconds:.1f} s" if seconds < 120 else f"{int(seconds // 60)} min {seconds % 60:.0f} s"


def _problems(events: list[Event], found: list[Download]) -> list[Problem]:
    """What went wrong outside of the transfers, which belong to their downloads."""
    problems = []
    for event in events:
        said, harmless = _problem(event)
        if said:
            problems.append(Problem(event["t"], said, harmless))
    return problems


def _problem(event: Event) -> tuple[str, bool]:
    kind = event["event"]
    result = number(event, "result") or 0
    if kind in ("firmware-command", "firmware-reply") and result < 0:
        return f"a firmware command failed with {hresult(result)}", False
    if kind == "answer" and result < 0:
        return f"the service did not take the user's answer: {hresult(result)}", False
    if kind == "handled" and result != 0:
        return f"the service answered a control with {win32_as_hresult(result)}", False
    if kind in ("usb-open", "descriptor", "alternate-setting", "process") and event.get("ok") is False:
        error = number(event, "error")
        because = f": {win32_as_hresult(error)}" if error else ""
        return f"{_FAILED_CALLS[kind]}{because}", False
    if kind == "done" and event.get("ok") is False:
        return (
            f"{text(event, 'command') or 'a command'} was refused: {text(event, 'why') or 'no reason given'}",
            False,
        )
    if kind == "event-log" and number(event, "type") == 1:
        return f"an error stands in the event log: {(texts(event, 'strings') or [''])[-1]}", False
    if kind == "command-run" and result != 0:
        return f"{text(event, 'command')}: result {result}, there is no service of that name", True
    return "", False


_FAILED_CALLS = {
    "usb-open": "the device in DFU mode could not be opened",
    "descriptor": "a descriptor could not be read",
    "alternate-setting": "the DFU interface could not be chosen",
    "process": "a program could not be started",
}
