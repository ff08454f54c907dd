"""Where another kernel drives the bus, a rig asks it through here. What it asks and hears is no event: the rig records
what comes of it, as it does on a bus of its own."""

from collections.abc import Sequence

from .connection import Connection
from .events import RIG, Event


def is_relayed(event: Event) -> bool:
    """Whether a line is a rig's question, or the answer to one."""
    return event["event"] == "ask" or "for" in event


def tell_of(device: Event, connections: Sequence[Connection]) -> None:
    """Tells the rigs on that bus of a device that is ready, which is when it has its drivers, or has gone."""
    if device["change"] == "arrival":
        return
    product = device["product"] if device["change"] == "ready" else ""
    for connection in connections:
        if connection.is_on_kernel_bus:
            connection.send_quietly({"command": "device", "path": device["path"], "product": product})


class Relay:
    """The questions that are on their way, and to whom."""

    def __init__(self) -> None:
        self._open: list[tuple[str, Event]] = []

    def hand_on(self, event: Event, sender: Connection, connections: Sequence[Connection]) -> str:
        """A question, or an answer. What is wrong with it, in words: the answer that a question made no sense."""
        if event["event"] == "ask":
            self._ask(event, sender, connections)
            return ""
        asker = event["for"]
        self._open = [entry for entry in self._open if entry[1] != asker]
        _answer(asker, {name: each for name, each in event.items() if name != "for"}, connections)
        return "" if event["ok"] else f"a rig asked for what makes no sense: {event['why']}"

    def forget(self, source: str, connections: Sequence[Connection]) -> None:
        """Nobody of this source answers any more: what it was asked is answered here."""
        unanswered = [asker for asked, asker in self._open if asked == source]
        self._open = [entry for entry in self._open if entry[0] != source]
        for asker in unanswered:
            _answer(asker, _nobody(source), connections)

    def _ask(self, question: Event, rig: Connection, connections: Sequence[Connection]) -> None:
        asker = {"pid": rig.pid, "question": question["question"]}
        for connection in reversed(connections):
            if connection.source == question["to"]:
                self._open.append((connection.source, asker))
                connection.send_quietly({**question["command"], "for": asker})
                return
        _answer(asker, _nobody(question["to"]), connections)


def _nobody(source: str) -> Event:
    return {"ok": True, "errno": "ENODEV", "why": f"there is no {source}"}


def _answer(asker: Event, answer: Event, connections: Sequence[Connection]) -> None:
    for connection in connections:
        if connection.source == RIG and connection.pid == asker["pid"]:
            connection.send_quietly({"command": "answer", "question": asker["question"], "answer": answer})
