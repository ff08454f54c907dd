"""Tells a person what the events of a run mean."""

from collections.abc import Callable

from ..report.codes import SERVICE_STATES, WHY_NO_SUCH_SERVICE
from ..terminal.screen import Screen
from ..updates.plan import UpdatePlan
from ..wire.events import CAMERA_VENDOR, ENTER_DFU_MODE, USBREDIR, Event
from ..wire.trace_formats import SCOPE_TRACES

_CAMERA_CHANGES = {
    "plugged": "the camera is on the bus, firmware {version}",
    "left": "the camera leaves the bus",
    "dfu": "the camera is back on the bus, in DFU mode",
    "running": "the camera is back on the bus, running firmware {version}",
    "unplugged": "the camera is unplugged",
}


class Reporter:
    """Turns each event into a line on the screen, or into none. The observer of a peer."""

    def __init__(self, screen: Screen, plan: UpdatePlan) -> None:
        self._screen = screen
        self._plan = plan
        self._blocks_done = 0
        self._tellers: dict[str, Callable[[Event], None]] = {
            "step": self._step,
            "bus": lambda event: self._screen.note(event["text"]),
            "service-status": self._service_status,
            "prompt-call": self._prompt_call,
            "answer": self._answer,
            "firmware-command": self._firmware_command,
            "camera": self._camera,
            "device": self._device,
            "trace": self._trace,
            "command-run": self._command_run,
            "event-log": self._event_log,
            "process": self._process,
            "late-control": self._late_control,
        }

    def __call__(self, event: Event) -> None:
        teller = self._tellers.get(event["event"])
        # Of what crosses the bus of a guest its cameras' server tells, too: the camera's own side of it.
        is_told_twice = event.get("source") == USBREDIR and event["event"] != "camera"
        if teller is not None and not is_told_twice:
            teller(event)

    def _step(self, event: Event) -> None:
        self._screen.step(event["text"])

    def _service_status(self, event: Event) -> None:
        words = event["words"]
        point = f", check point {words[5]}" if words[5] else ""
        self._screen.note(f"the service reports: {SERVICE_STATES.get(words[1], words[1])}{point}")

    def _prompt_call(self, event: Event) -> None:
        texts = event["texts"]
        if event["method"] == "ShowUpdatePrompt":
            self._screen.note(f"the service asks: camera firmware is {texts[0]}, the image has {texts[1]}: update?")
        elif event["method"] == "NotifyComplete":
            self._screen.note("the service says: the download is over")
        elif texts[0].startswith("start:"):
            self._screen.note(f"the service says: {texts[0].removeprefix('start:')} blocks to download")
        elif texts[0].isdecimal():
            # The value is the block's number, which begins again after 65,535: the values themselves are counted.
            self._blocks_done += 1
            self._screen.progress(self._blocks_done, self._plan.blocks)

    def _answer(self, event: Event) -> None:
        if event["sinks"] == 0:
            self._screen.note("nobody listens to the answer")

    def _firmware_command(self, event: Event) -> None:
        if event["opcode"] == ENTER_DFU_MODE:
            self._screen.note("the service sends the camera into DFU mode")

    def _camera(self, event: Event) -> None:
        sentence = _CAMERA_CHANGES.get(event["change"])
        if sentence:
            self._screen.note(sentence.format(version=event.get("version", "")))

    def _device(self, event: Event) -> None:
        if event["change"] == "ready" and event["vendor"] == CAMERA_VENDOR:
            device = f"{event['path']}, {event['vendor']}:{event['product']}"
            self._screen.note(f"the guest's kernel has configured it: {device}")

    def _trace(self, event: Event) -> None:
        # Scopes are for the transcript: they say where the service is, not what happens.
        if event["group"] != SCOPE_TRACES:
            self._screen.note(f"trace: {event['text'] or 'a message without words'}")

    def _command_run(self, event: Event) -> None:
        # The name that the service knows is deliberately not its own, so on a machine without that service it fails.
        outcome = "done" if event["result"] == 0 else f"result {event['result']}"
        self._screen.note(f"the service runs: {event['command']} ({outcome})")
        if event["result"] != 0:
            self._screen.note(f"    that is no error: {WHY_NO_SUCH_SERVICE}")

    def _event_log(self, event: Event) -> None:
        self._screen.note(f"event log: {event['strings'][-1]}")

    def _late_control(self, event: Event) -> None:
        took = event["ms"] / 1000
        self._screen.note(f"Windows would write event {event['id']} into its log: one control took {took:.1f} s")

    def _process(self, event: Event) -> None:
        if event["command_line"] == "/RegServer":
            said = "registers the toast controller" if event["ok"] else "finds no toast controller to register"
            self._screen.note(f"the program {said}")
