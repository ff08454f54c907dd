"""One scenario on its way: its steps carried out in the machine, its expectations judged."""

from collections.abc import Callable, Iterable
from typing import Any

from ..judgement.checks import judge_each
from ..judgement.growth import KEPT_BY_A_CHECK, STACKS_OF_A_THREAD_KIB, removals
from ..judgement.observed import CameraNow, Observed
from ..judgement.words import words_of
from ..scenarios.sentences import numbered, sentence
from ..scenarios.variant import ImagePlan, Variant
from ..windows.service_under_test import Resources
from ..wire.events import LAB, RIG, SENSOR_CLASS, TOAST, USB_CLASS, VIDEO_CLASS, Event
from .installed_service import InstalledService

_ACCEPT, _DECLINE = 1, 0
# Seconds for the longest rest.
REST_PATIENCE = 300
_FAILURE = -2147467259
CLASSES = {
    "usb": USB_CLASS,
    "sensor camera": SENSOR_CLASS,
    "video camera": VIDEO_CLASS,
    "capture": "{65E8773D-8F56-11D0-A3B9-00A0C9223196}",
    "unknown": "{00000000-1111-2222-3333-444444444444}",
}
EVENT_TYPES = {"arrival": 0x8000, "query": 0x8001, "removal": 0x8004, "custom": 0x8006}


class ScenarioRun:
    """The service runs when it begins. PeerError and MachineError end it."""

    def __init__(self, variant: Variant, installed: InstalledService, complaints: list[str]) -> None:
        self._variant = variant
        self._installed = installed
        self._complaints = complaints
        self._peer = installed.peer
        self._service = installed.service
        self._bus = installed.bus
        self._image = variant.stage.image.content
        self._earlier: list[bytes] = []
        self._begin = self._window = self._cursor = self._peer.mark()
        self._remembered: tuple[Resources, int] | None = None
        self._created: list[str] = []
        self.place = "start"

    def carry_out(self) -> None:
        """All the steps."""
        for number, step in enumerate(self._variant.steps):
            self._do(f"steps[{number}]", step)

    def clear_away(self) -> None:
        """Removes the services that it made."""
        for name in self._created:
            self._installed.delete_service(name)

    def unplug_all(self) -> None:
        """Takes every camera off the bus that is on it, or on its way back to it."""
        for camera in range(len(self._variant.stage.cameras)):
            self._take_away(camera)

    def events(self) -> list[Event]:
        """What the service and the toast controller did in this scenario."""
        return self._events(self._begin)

    def complaints_of_the_bus(self) -> list[str]:
        """What the bus has to say against the cameras, and against what the service did."""
        return self._bus.complaints(self._variant.stage.cameras, self._peer.events_since(self._begin)) or []

    # Steps.

    def _do(self, place: str, step: Any) -> None:
        self.place = place
        name, argument = (step, None) if isinstance(step, str) else next(iter(step.items()))
        self._peer.record("step", number=numbered(place), text=sentence(step))
        if name not in ("wait for", "expect", "repeat"):
            self._cursor = max(self._cursor, self._peer.mark())
        if isinstance(step, str):
            PLAIN_STEPS[name](self)
        else:
            STEPS_WITH_ARGUMENT[name](self, argument)

    def _repeat(self, argument: dict[str, Any]) -> None:
        place = self.place
        for _ in range(argument["times"]):
            for number, inner in enumerate(argument["steps"]):
                self._do(f"{place}.steps[{number}]", inner)

    def _stop(self) -> None:
        self._complain(self._installed.stop_service())

    def _restart(self) -> None:
        self._stop()
        self._service.start()

    def _take_away(self, camera: int) -> None:
        if self._bus.state(camera)["on_its_way"]:
            self._bus.unplug(camera)

    def _set_faults(self, fields: dict[str, Any]) -> None:
        self._peer.command(RIG, "faults", camera=fields["camera"], faults=fields["list"])

    def _answer(self, code: int) -> None:
        self._peer.command(TOAST, "respond", code=code)

    def _ask_and_answer(self, camera: int, code: int) -> None:
        self._bus.plug(camera)
        # The service knows the camera to which the answer goes only when the question has returned.
        self._installed.settle()
        self._answer(code)
        self._installed.settle()

    def _update(self, camera: int) -> None:
        """A whole update of a camera that is not plugged in, which has to succeed."""
        self._installed.settle()
        self._window = self._peer.mark()
        self._bus.plug(camera)
        self._wait_for("question")
        self._installed.settle()
        self._answer(_ACCEPT)
        self._wait_for("download end")
        self._wait_for(f"camera {camera} running")
        self._installed.settle()
        self._expect({"result": "updated", "camera": camera})

    def _deliver(self, fields: dict[str, Any]) -> None:
        kind = fields["type"]
        link = fields.get("link", r"\\?\usb#vid_0000&pid_0000#1#{0}")
        link += "x" * (fields.get("link_length", 0) - len(link))
        event = {"type": EVENT_TYPES.get(kind, kind), "class": CLASSES[fields["class"]], "link": link}
        self._peer.command(RIG, "deliver", times=fields.get("times", 1), **event)

    def _pass(self, ms: int) -> None:
        self._peer.command(RIG, "pass", ms=ms)

    def _rest(self, ms: int) -> None:
        answer = self._peer.command(RIG, "rest", quiet=REST_PATIENCE, ms=ms)
        self._peer.record("rest", ms=ms, sleeps=answer["sleeps"])

    def _control(self, control: int) -> None:
        self._peer.command(RIG, "control", control=control)

    def _put_image(self, value: Any) -> None:
        image = ImagePlan.of(value)
        self._installed.put_image(image)
        if self._image is not None and image.content not in (None, self._image):
            self._earlier.append(self._image)
        # When an image goes, the one that was there is what a camera may still get.
        self._image = self._image if image.content is None else image.content

    def _set_update_mode(self, mode: str | None) -> None:
        self._installed.set_update_mode(mode)

    def _remove_driver(self) -> None:
        self._installed.remove_driver()

    def _command_toast_controller(self, value: Any) -> None:
        if isinstance(value, str):
            self._peer.command(TOAST, value)
        elif "fail" in value:
            self._peer.command(TOAST, "fail", method=value["fail"], hresult=value.get("hresult", _FAILURE))
        else:
            ms, skip = value.get("ms", 0), value.get("skip", 0)
            self._peer.command(TOAST, "hang", method=value["hang"], ms=ms, skip=skip)

    def _create_service(self, name: str) -> None:
        self._created.append(name)
        self._installed.create_service(name)

    def _remember_resources(self) -> None:
        self._remembered = (self._service.resources(), self._peer.mark())

    def _wait_for(self, what: str) -> None:
        found = self._service.follow(self._sign(what), what, self._cursor, self._bus.patience)
        self._cursor = self._peer.events_since(0).index(found, self._cursor) + 1

    def _sign(self, what: str) -> Callable[[Event], bool]:
        """Whether an event is the one that a step waits for."""
        first, _, rest = what.partition(" ")
        if what in ("question", "download end"):
            method = "ShowUpdatePrompt" if what == "question" else "NotifyComplete"
            return lambda event: event["event"] == "prompt-call" and event["method"] == method
        if first == "progress":
            return lambda event: event["event"] == "prompt-call" and event["texts"] == [rest]
        if first == "camera":
            number, _, change = rest.partition(" ")
            wanted = {"event": "camera", "camera": int(number), "change": change}
            return lambda event: wanted.items() <= event.items()
        if first == "command":
            return lambda event: event["event"] == "command-run" and f" {rest} " in event["command"]
        if what == "answer":
            return lambda event: event["event"] == "answer"
        if what == "service gone":
            return self._service.has_left
        return lambda event: event["event"] == "gone" and event["of"] == TOAST

    # Looking.

    def _expect(self, expectation: dict[str, Any]) -> None:
        # The toast controller's word of a call comes on a wire of its own: what the service did before may still be on its way.
        self._bus.hear_out()
        observed = Observed(
            events=self._events(self._window),
            cameras=self._variant.stage.cameras,
            image=self._image,
            look=self._look,
            service_state=self._service.wait_for_state,
            earlier=self._earlier,
        )
        for field, complaints in judge_each(expectation, observed):
            self._judged(field, expectation, complaints)
        if "growth" in expectation:
            self._judged("growth", expectation, self._growth(expectation["growth"]))
        self._window = self._peer.mark()

    def _judged(self, field: str, expectation: dict[str, Any], complaints: list[str]) -> None:
        words = words_of(field, expectation)
        self._peer.record("expectation", step=numbered(self.place), text=words, complaints=complaints)
        self._complain(complaints)

    def _growth(self, limits: dict[str, int]) -> list[str]:
        """What grew beyond the limits since "remember resources", less what the uninstall monitor keeps open."""
        if self._remembered is None:
            return ["growth: nothing is remembered"]
        before, mark = self._remembered
        kept = KEPT_BY_A_CHECK * removals(self._events(mark))

        def grown_beyond(now: Resources) -> list[str]:
            threads = now.threads - before.threads
            grown = {
                "handles": now.handles - before.handles - kept,
                "threads": threads,
                "private_kib": now.private_kib - before.private_kib - STACKS_OF_A_THREAD_KIB * max(threads, 0),
            }
            return [
                f"growth of {name}: at most {limit} was expected, {grown[name]} was seen"
                for name, limit in limits.items()
                if grown[name] > limit
            ]

        return grown_beyond(self._service.resources_once(lambda now: not grown_beyond(now)))

    def _look(self, camera: int) -> CameraNow:
        answer = self._bus.state(camera)
        return CameraNow(
            mode=answer["mode"],
            version=answer["version"],
            dfu_state=answer["dfu_state"],
            dfu_status=answer["dfu_status"],
            gaps=answer["block_number_gaps"],
            flash=self._bus.flash(camera),
            survivor=answer["after_power_failure"],
        )

    def _events(self, since: int) -> list[Event]:
        """What the service and the toast controller did; an installer of the service is neither."""
        return [
            event
            for event in self._peer.events_since(since)
            if event["source"] in (LAB, TOAST) or event.get("pid") in self._service.pids
        ]

    def _complain(self, complaints: Iterable[str]) -> None:
        self._complaints += [f"{self.place}: {complaint}" for complaint in complaints]


PLAIN_STEPS: dict[str, Callable[[ScenarioRun], object]] = {
    "settle": lambda run: run._installed.settle(),
    "start": lambda run: run._service.start(),
    "stop": ScenarioRun._stop,
    "restart": ScenarioRun._restart,
    "ask to stop": lambda run: run._service.ask_to_stop(),
    "await stop": lambda run: run._service.await_stop(),
    "shut down": lambda run: run._service.shut_down(),
    "remove driver": ScenarioRun._remove_driver,
    "remember resources": ScenarioRun._remember_resources,
}
STEPS_WITH_ARGUMENT: dict[str, Callable[[ScenarioRun, Any], None]] = {
    "plug": lambda run, camera: run._bus.plug(camera),
    "unplug": lambda run, camera: run._bus.unplug(camera),
    "accept": lambda run, camera: run._ask_and_answer(camera, _ACCEPT),
    "decline": lambda run, camera: run._ask_and_answer(camera, _DECLINE),
    "take away": ScenarioRun._take_away,
    "faults": ScenarioRun._set_faults,
    "answer": ScenarioRun._answer,
    "wait for": ScenarioRun._wait_for,
    "update": ScenarioRun._update,
    "deliver": ScenarioRun._deliver,
    "pass": ScenarioRun._pass,
    "rest": ScenarioRun._rest,
    "control": ScenarioRun._control,
    "image": ScenarioRun._put_image,
    "update mode": ScenarioRun._set_update_mode,
    "toast controller": ScenarioRun._command_toast_controller,
    "create service": ScenarioRun._create_service,
    "repeat": ScenarioRun._repeat,
    "expect": ScenarioRun._expect,
}
