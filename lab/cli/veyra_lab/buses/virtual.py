"""The bus in the rig, whose time is the laboratory's."""

from collections.abc import Sequence
from contextlib import suppress

from ..windows.camera import read_flash
from ..wire.events import RIG, Event, PeerError
from ..wire.peer import Peer
from .bus import SETTLING_LIMIT, CameraBus


class VirtualBus(CameraBus):
    """The cameras live in the service's process, and end with it."""

    name = "virtual"
    patience = 20.0

    def __init__(self, peer: Peer) -> None:
        self._peer = peer

    def stage(self, rig: Event) -> Event:
        return rig

    def place(self, cameras: Sequence[Event]) -> None:
        del cameras  # they come with the rig's stage

    def plug(self, camera: int) -> None:
        self._peer.command(RIG, "plug", camera=camera)

    def unplug(self, camera: int) -> None:
        self._peer.command(RIG, "unplug", camera=camera)

    def state(self, camera: int) -> Event:
        return self._peer.command(RIG, "state", camera=camera)

    def flash(self, camera: int) -> bytes:
        return read_flash(self._peer, camera)

    def settle(self, patience: float, limit: float = SETTLING_LIMIT) -> None:
        self._peer.command(RIG, "settle", quiet=patience, limit=limit)

    def hear_out(self) -> None:
        # It answers in the order in which things happen. A service that leaves now has said everything as well.
        if self._peer.is_connected_as(RIG):
            with suppress(PeerError):
                self.state(0)

    def complaints(self, cameras: Sequence[Event], events: Sequence[Event]) -> None:
        return None
