"""The laboratory's end of the wire: what the service's rig and the toast controller report, and what they are told."""

import json
import math
import selectors
import socket
import threading
import time
from collections.abc import Callable, Sequence
from pathlib import Path
from types import TracebackType
from typing import Any, TextIO

from .connection import Connection
from .events import LAB, RIG, TOAST, Event, PeerError, breach_of
from .relay import Relay, is_relayed, tell_of


class Peer:
    """Listens on a port of 127.0.0.1, records every event and writes the transcript.

    A thread of its own receives; whoever waits sees the events in the order of their arrival, each exactly once handed
    to the observer, on the waiting thread. Use it as a context; a PeerError ends it when the program broke a contract of
    Windows and nobody has asked for its breaches. Another error that ends it tells them too, a PeerError in its words and
    any other in a note.
    """

    def __init__(
        self,
        stage: Event,
        decorate: Callable[[Event], None],
        observer: Callable[[Event], None],
        transcript: Path | None = None,
    ) -> None:
        self._stages: dict[str, Event] = {RIG: stage}
        self._decorate = decorate
        self._observer = observer
        self._began = time.monotonic()
        self._events: list[Event] = []
        self._seen = 0
        self._breaches: list[str] = []
        self._connections: list[Connection] = []
        self._relay = Relay()
        self._changed = threading.Condition()
        self._failure = ""
        # Half a surrogate pair, which UTF-8 does not have, is written as JSON's escape for it.
        self._transcript: TextIO | None = (
            transcript.open("w", encoding="utf-8", errors="backslashreplace") if transcript else None
        )
        self._listener = socket.create_server(("127.0.0.1", 0))
        self._listener.setblocking(False)
        self._selector = selectors.DefaultSelector()
        self._wake_read, self._wake_write = socket.socketpair()
        self._selector.register(self._listener, selectors.EVENT_READ)
        self._selector.register(self._wake_read, selectors.EVENT_READ)
        self._thread = threading.Thread(target=self._receive, name="wire", daemon=True)

    @property
    def port(self) -> int:
        """The port that the registry has to name."""
        return self._listener.getsockname()[1]

    def __enter__(self) -> "Peer":
        self._thread.start()
        return self

    def __exit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None
    ) -> None:
        self._wake_write.send(b"x")
        self._thread.join()
        for connection in self._connections:
            connection.channel.close()
        for channel in (self._listener, self._wake_read, self._wake_write):
            channel.close()
        self._selector.close()
        if self._transcript:
            self._transcript.close()
        untold = "; ".join(self.breaches())
        if untold and isinstance(error, PeerError | None):
            raise PeerError(f"{error}; {untold}" if error else untold) from error
        if untold and error:
            error.add_note(untold)

    def set_stage(self, rig: Event, toast: Event | None = None) -> None:
        """What the processes that connect from now on are told. A stage that was refused before is forgotten."""
        with self._changed:
            self._stages |= {RIG: rig, TOAST: toast or {}}
            self._failure = ""

    def set_server_stage(self, source: str, cameras: Sequence[Event]) -> None:
        """The same for a server of cameras."""
        with self._changed:
            self._stages[source] = {"cameras": list(cameras)}
            self._failure = ""

    # What happened.

    def events(self) -> list[Event]:
        """Everything so far."""
        with self._changed:
            return list(self._events)

    def events_since(self, mark: int) -> list[Event]:
        """Everything behind a mark."""
        with self._changed:
            return self._events[mark:]

    def breaches(self) -> list[str]:
        """The contracts of Windows that the program broke, in words, each call once; each is told to one who asks."""
        with self._changed:
            told, self._breaches = self._breaches, []
        return list(dict.fromkeys(told))

    def mark(self) -> int:
        """A point in the record: the number of events before it."""
        with self._changed:
            return len(self._events)

    def record(self, event: str, **fields: Any) -> Event:
        """Adds an event of the laboratory's own."""
        with self._changed:
            return self._append({"source": LAB, "event": event, **fields})

    def follow(
        self, wanted: Callable[[Event], bool], what: str, *, since: int, quiet: float, limit: float = math.inf
    ) -> Event:
        """Waits for an event after the mark `since` and returns it. Gives up with a PeerError that names `what` after
        `quiet` seconds in which nothing at all happened, and after `limit` seconds whatever happened."""
        position = since
        deadline = time.monotonic() + limit
        while True:
            with self._changed:
                if position >= len(self._events) and not self._changed.wait_for(
                    lambda: position < len(self._events) or self._failure, quiet
                ):
                    raise PeerError(f"{what}: nothing happened for {quiet:.0f} s")
                if self._failure:
                    raise PeerError(self._failure)
                if time.monotonic() > deadline:
                    raise PeerError(f"{what}: it did not come in {limit:.0f} s, in which other things happened")
                arrived = self._events[position:]
            for event in arrived:
                self._show(position)
                position += 1
                if wanted(event):
                    return event

    def catch_up(self) -> None:
        """Hands the observer what it has not seen yet."""
        for position in range(self.mark()):
            self._show(position)

    def _show(self, position: int) -> None:
        if position == self._seen:
            self._seen += 1
            self._observer(self._events[position])

    # What they are told.

    def command(
        self, source: str, command: str, *, quiet: float = 20, limit: float = math.inf, **fields: Any
    ) -> Event:
        """Has the newest process of the source do something, and returns its answer."""
        since = self.mark()
        self.record("command", to=source, command=command, **fields)
        pid = self._send(source, {"command": command, **fields})
        answer = self.follow(
            lambda event: event.get("pid") == pid
            and (event["event"] == "gone" or event["event"] == "done" and event.get("command") == command),
            f"the {source}'s answer to {command}",
            since=since,
            quiet=quiet,
            limit=limit,
        )
        if answer["event"] != "done":
            raise PeerError(f"the {source} went away over {command}")
        if not answer.get("ok"):
            raise PeerError(f"the {source} refused {command}: {answer.get('why', 'no reason given')}")
        return answer

    def is_connected(self, pid: int) -> bool:
        """Whether the process of this id is there."""
        with self._changed:
            return any(connection.pid == pid for connection in self._connections)

    def is_connected_as(self, source: str) -> bool:
        """Whether any process of this source is there."""
        with self._changed:
            return self._newest(source) is not None

    def dismiss(self, source: str, seconds: float) -> bool:
        """Closes the laboratory's end of every connection of the source, as a sign to leave. True when all were gone
        in time."""
        with self._changed:
            for connection in self._connections:
                if connection.source == source:
                    connection.shut_down()
            return self._changed.wait_for(lambda: self._newest(source) is None, seconds)

    def _newest(self, source: str) -> Connection | None:
        for connection in reversed(self._connections):
            if connection.source == source:
                return connection
        return None

    def _send(self, source: str, line: Event) -> int:
        with self._changed:
            connection = self._newest(source)
        if connection is None:
            raise PeerError(f"no {source} is connected that could be told: {line}")
        try:
            connection.send(line)
        except OSError as error:
            raise PeerError(f"the {source} cannot be told {line}: {error}") from error
        return connection.pid

    # The receiving thread.

    def _receive(self) -> None:
        while True:
            ready = [key.fileobj for key, _ in self._selector.select()]
            if self._listener in ready:
                self._accept()
            with self._changed:
                # The toast controller is read last and taken first: what it said before the rig spoke stands before it in
                # the record as well.
                received = [
                    (each, each.received()) for each in sorted(self._connections, key=lambda each: each.is_toast_server)
                ]
                for connection, some in sorted(received, key=lambda each: not each[0].is_toast_server):
                    if some is not None:
                        self._read(connection, some)
                self._changed.notify_all()
            if self._wake_read in ready:
                return

    def _accept(self) -> None:
        channel, _ = self._listener.accept()
        channel.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        self._selector.register(channel, selectors.EVENT_READ)
        with self._changed:
            self._connections.append(Connection(channel))

    def _read(self, connection: Connection, received: bytes) -> None:
        for line in connection.lines(received):
            self._take(connection, line)
        if not received:
            self._selector.unregister(connection.channel)
            connection.channel.close()
            self._connections.remove(connection)
            self._relay.forget(connection.source, self._connections)
            self._append({"source": LAB, "event": "gone", "of": connection.source, "pid": connection.pid})

    def _take(self, connection: Connection, line: bytes) -> None:
        """What cannot become an event, or be written down as one, is refused: the receiving thread survives it."""
        try:
            self._take_event(connection, json.loads(line))
        except (ValueError, LookupError, TypeError, AttributeError, RecursionError) as error:
            sender = connection.source or "newcomer"
            self._failure = f"the {sender} sent a line that is no event: {line[:200]!r} ({error})"

    def _take_event(self, connection: Connection, event: Event) -> None:
        name = event["event"]
        if is_relayed(event):
            self._failure = self._relay.hand_on(event, connection, self._connections) or self._failure
            return
        if name == "device":
            tell_of(event, self._connections)
        if name == "hello":
            self._greet(connection, event)
        elif name == "done" and event.get("command") == "stage":
            self._failure = f"the {connection.source} refused the stage: {event.get('why', 'no reason given')}"
        self._append({**event, "source": connection.source, "pid": connection.pid})

    def _greet(self, connection: Connection, hello: Event) -> None:
        connection.source = hello.get("source", "")
        connection.pid = hello.get("pid", 0)
        stage = self._stages.get(connection.source, {})
        connection.is_on_kernel_bus = stage.get("bus") == "usb"
        connection.send_quietly({"reply": "stage", **stage})

    def _append(self, event: Event) -> Event:
        whole = {"t": round(time.monotonic() - self._began, 6), **event}
        self._decorate(whole)
        if self._transcript:
            self._transcript.write(json.dumps(whole, ensure_ascii=False) + "\n")
        self._events.append(whole)
        if breach := breach_of(whole):
            self._breaches.append(breach)
        self._changed.notify_all()
        return whole
