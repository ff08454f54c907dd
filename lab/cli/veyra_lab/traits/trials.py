"""One process of the service, and cameras with boot loaders of other kinds, each followed by a faultless one."""

from collections.abc import Callable
from typing import Any

from ..judgement.always import judge_always
from ..judgement.flash import old_flash
from ..runner.installed_service import InstalledService
from ..scenarios.variant import ImagePlan, StagePlan
from ..windows.camera import read_flash
from ..wire.events import RIG, TOAST, VIDEO_CLASS, Event
from .attempt import Attempt, read_attempt
from .kinds import Kind

_ACCEPT = 1
_ARRIVAL, _REMOVAL = 0x8000, 0x8004
_DFU_DEVICE = "pid_7e01"
# A camera that leaves the bus comes back when the laboratory lets that much time pass, and not before.
_AWAY_MS = 600_000
_FAULTLESS = {"detach_ms": 1, "enumerate_ms": 5, "reset_ms": 5}


class TrialError(Exception):
    """Something that must hold whatever a camera does, and did not."""


class Trials:
    """Starts the service, which is installed."""

    def __init__(self, installed: InstalledService) -> None:
        self._peer = installed.peer
        # What everybody did in the last one, as far as it came.
        self.events: list[Event] = []
        self._service = installed.service
        image = ImagePlan.of({})
        assert image.content is not None
        self._image = image.content
        installed.put_image(image)
        self._peer.set_stage(StagePlan().for_rig())
        self._service.start()

    def check_that_the_process_is_the_first(self) -> None:
        """Nothing has ended it, and nothing has started it again."""
        if len(self._service.pids) != 1 or not self._service.is_alive():
            raise TrialError("the service's process is not the one that began")

    def run(self, kind: Kind, id_: str) -> tuple[Attempt, str]:
        """An update of such a camera, and what is in its flash then; afterwards that of a faultless one, which has to
        succeed."""
        self._peer.record("scenario", name="traits", description=kind.words, id=id_)
        since = self._peer.mark()
        try:
            done = self._run(kind, since)
            self._peer.record("judgement", held=True, complaints=[], id=id_)
            return done
        except TrialError as error:
            self._peer.record("judgement", held=False, complaints=[str(error)], id=id_)
            raise TrialError(f"{id_}: {error}") from error
        finally:
            self.events = self._peer.events_since(since)

    def _run(self, kind: Kind, since: int) -> tuple[Attempt, str]:
        camera = {**kind.camera, "detach_ms": 1, "enumerate_ms": _AWAY_MS, "two_banks": True}
        self._peer.command(RIG, "restage", stage={"cameras": [camera, _FAULTLESS]})
        self._peer.command(TOAST, "behave")
        self._accept(0)
        begun = self._peer.mark()
        attempt = self._come_back()
        if attempt is None:
            raise TrialError(f"{kind.words}: it did not come to DFU mode")
        if self._peer.command(RIG, "state", camera=0)["mode"] == "absent":
            # Time that passes meanwhile would be the handler's, here too.
            self._service.follow(_end_of_handling(_is_dfu_removal), "the end of its removal", begun)
            again = self._come_back()
            if again not in (None, attempt):
                raise TrialError(f"{kind.words}: its next arrival in DFU mode went another way")
        flash = read_flash(self._peer, 0)
        self._peer.command(RIG, "unplug", camera=0)
        self._service.settle()
        self._update_faultless(kind)
        for complaint in judge_always(self._service_events(since)):
            raise TrialError(f"{kind.words}: {complaint}")
        old = old_flash(camera)
        return attempt, "image" if flash == self._image else "old" if flash == old else "other"

    def _accept(self, camera: int) -> None:
        since = self._peer.mark()
        self._peer.command(RIG, "plug", camera=camera)
        self._service.follow(
            lambda event: event["event"] == "prompt-call" and event["method"] == "ShowUpdatePrompt", "question", since
        )
        self._service.settle()
        since = self._peer.mark()
        self._peer.command(TOAST, "respond", code=_ACCEPT)
        self._service.follow(lambda event: _is_change(event, camera, "left"), "the camera's leaving", since)
        # Time that passes meanwhile would be the handler's.
        self._service.follow(_end_of_handling(_is_last_removal), "the end of its removal", since)

    def _come_back(self) -> Attempt | None:
        """The camera is on the bus again. The attempt to update it; none when it runs its firmware."""
        since = self._peer.mark()
        self._peer.command(RIG, "pass", ms=_AWAY_MS)
        came = self._service.follow(lambda event: _is_change(event, 0, "dfu", "running"), "the camera's return", since)
        if came["change"] == "running":
            # Before it is pulled, so that the service has met it in whatever time it takes.
            self._service.settle()
            return None
        self._service.follow(_end_of_handling(_is_dfu_arrival), "the end of the attempt", since)
        return read_attempt(self._service_events(since))

    def _update_faultless(self, kind: Kind) -> None:
        self._accept(1)
        self._service.settle()
        state = self._peer.command(RIG, "state", camera=1)
        if state["mode"] != "running" or read_flash(self._peer, 1) != self._image:
            raise TrialError(f"{kind.words}: the faultless camera after it was not updated: {state}")
        self._peer.command(RIG, "unplug", camera=1)
        self._service.settle()

    def _service_events(self, since: int) -> list[dict[str, Any]]:
        return [event for event in self._peer.events_since(since) if event.get("pid") in self._service.pids]


def _is_dfu_arrival(control: Event) -> bool:
    return control.get("type") == _ARRIVAL and _DFU_DEVICE in control["link"].lower()


def _is_dfu_removal(control: Event) -> bool:
    return control.get("type") == _REMOVAL and _DFU_DEVICE in control["link"].lower()


def _is_last_removal(control: Event) -> bool:
    """Of those that a camera's leaving brings about."""
    return control.get("type") == _REMOVAL and control["class"] == VIDEO_CLASS


def _end_of_handling(is_meant: Callable[[Event], bool]) -> Callable[[Event], bool]:
    """Tells the event with which the service has handled such a control."""
    has_come = False

    def is_handled(event: Event) -> bool:
        nonlocal has_come
        has_come |= event["event"] == "control" and is_meant(event)
        return has_come and event["event"] == "handled"

    return is_handled


def _is_change(event: Event, camera: int, *changes: str) -> bool:
    return event["event"] == "camera" and event["camera"] == camera and event["change"] in changes
