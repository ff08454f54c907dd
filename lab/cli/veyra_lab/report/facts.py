"""What a transcript tells of versions, questions, answers and obstacles."""

from .codes import Code, hresult
from .download import Download, End
from .judging import downloads
from .remedy import OBSTACLE_ROWS
from .transcript import Event, number, octets, text, texts

_UPDATE_SERVICE_TRACES = "{fbfbaa6b-fcbc-3745-ac1c-e104c7b6cda1}"
_ENTER_DFU_MODE = 0x1E
ACCEPT = 1


class Facts:
    """One transcript understood, as far as no judgement is needed for it."""

    def __init__(self, events: list[Event]) -> None:
        self.events = events
        self.downloads = downloads(events)
        self.cameras = self.of("camera")
        self.questions = [event for event in events if _is_question(event)]
        self.answers = self.of("answer")
        self.version_before = self._version_before()
        versions = [text(event, "version") for event in self.cameras]
        self.version_after = next((version for version in reversed(versions) if version), "")

    def of(self, kind: str) -> list[Event]:
        """The events of one kind."""
        return [event for event in self.events if event["event"] == kind]

    def returned(self, download: Download) -> Event | None:
        """The camera's coming back with firmware after a download and before the next one."""
        until = next((each.began for each in self.downloads if each.began > download.began), float("inf"))
        for event in self.cameras:
            if download.began <= event["t"] < until and event.get("change") == "running":
                return event
        return None

    def update_seconds(self) -> float | None:
        """How long the last download took from the user's yes to its end; None when there was no download."""
        if not self.downloads:
            return None
        last = self.downloads[-1]
        accepted = [event["t"] for event in self._accepting() if event["t"] <= last.began]
        began: float = accepted[-1] if accepted else last.began
        returned = self.returned(last)
        ended: float = returned["t"] if returned and last.end is End.FINISHED else last.stopped_at
        return ended - began

    def code_of_the_answer(self) -> Code | None:
        """Why the camera was not sent into DFU mode, when its command shows that."""
        results = [number(event, "result") for event in self._accepting()]
        return next((hresult(result) for result in reversed(results) if result is not None and result < 0), None)

    def traced(self, message: int) -> str:
        """The version in the last trace message of this number."""
        for event in reversed(self._traces()):
            if event.get("number") == message:
                arguments = texts(event, "arguments")
                content = octets({"0": arguments[0]}, "0") if arguments else b""
                return content.split(b"\0", 1)[0].decode("latin-1")
        return ""

    def obstacle(self, since: float) -> str:
        """What kept the service from going on, in its own words; none when it has not said."""
        event = self._obstacle(since)
        said = text(event, "text").rstrip(".") if event else ""
        return said[:1].lower() + said[1:]

    def row_of_the_obstacle(self, since: float) -> str:
        """The row of docs/operations.md that it is; none when the service has not said."""
        event = self._obstacle(since)
        return OBSTACLE_ROWS[number(event, "number") or 0] if event else ""

    def _obstacle(self, since: float) -> Event | None:
        for event in self._traces():
            if event["t"] >= since and number(event, "number") in OBSTACLE_ROWS and text(event, "text"):
                return event
        return None

    def _version_before(self) -> str:
        for event in self.events:
            if event["event"] == "camera" and text(event, "version"):
                return text(event, "version")
            if _is_question(event):
                return (texts(event, "texts") or [""])[0]
        return ""

    def _accepting(self) -> list[Event]:
        """What shows that the user said yes: the command that the answer led to, or the answer itself."""
        return [event for event in self.events if _accepts(event)]

    def _traces(self) -> list[Event]:
        return [event for event in self.of("trace") if text(event, "group").lower() == _UPDATE_SERVICE_TRACES]


def _is_question(event: Event) -> bool:
    return event["event"] == "prompt-call" and event.get("method") == "ShowUpdatePrompt"


def _accepts(event: Event) -> bool:
    if event["event"] == "firmware-command":
        return event.get("opcode") == _ENTER_DFU_MODE
    return event["event"] == "answer" and event.get("code") == ACCEPT
