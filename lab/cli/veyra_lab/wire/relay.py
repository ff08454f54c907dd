"""Where another kernel drives the bus, a rig asks it through here. What it asks and hears is no event: the rig records
what comes of it, as it does on a bus of its own."""

from collections.abc import Sequence

from .connection import Connection
from .events import RIG, Event


def is_relayed(event: Event) -> bool:
    """Whether a line is a rig's question, or the answer to one."""
    return event["event"] == "ask" or "for" in event


def relay(event: Event, sender: Connection, connections: Sequence[Connection]) -> str:
    """Hands it on. What is wrong with it, in words: the answer that a question made no sense."""
    if event["event"] == "ask":
        return _ask(event, sender, connections)
    return _answer(event["for"], {name: each for name, each in event.items() if name != "for"}, connections)


def tell_of(device: Event, connections: Sequence[Connection]) -> None:
    """Tells the rigs on that bus of a device that is ready, which is when it has its drivers, or has gone."""
    if device["change"] == "arrival":
        return
    product = device["product"] if device["change"] == "ready" else ""
    for connection in connections:
        if connection.is_on_kernel_bus:
            connection.send_quietly({"command": "device", "path": device["path"], "product": product})


def _ask(question: Event, rig: Connection, connections: Sequence[Connection]) -> str:
    asker = {"pid": rig.pid, "question": question["question"]}
    for connection in reversed(connections):
        if connection.source == question["to"]:
            connection.send_quietly({**question["command"], "for": asker})
            return ""
    return _answer(asker, {"ok": True, "errno": "ENODEV", "why": f"there is no {question['to']}"}, connections)


def _answer(asker: Event, answer: Event, connections: Sequence[Connection]) -> str:
    for connection in connections:
        if connection.source == RIG and connection.pid == asker["pid"]:
            connection.send_quietly({"command": "answer", "question": asker["question"], "answer": answer})
    return "" if answer["ok"] else f"a rig asked for what makes no sense: {answer['why']}"
