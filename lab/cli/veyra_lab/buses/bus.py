"""The bus that the cameras of a stage are on, whoever drives it."""

from abc import ABC, abstractmethod
from collections.abc import Sequence

from ..wire.events import Event

# A download whose every block is waited for takes its time, and whole minutes on a real bus.
SETTLING_LIMIT = 900.0


class CameraBus(ABC):
    """Where cameras are plugged in and pulled, and looked at from their own side. PeerError when that fails."""

    # As the command line has it.
    name: str
    # The seconds of silence that are still no failure.
    patience: float

    @abstractmethod
    def stage(self, rig: Event) -> Event:
        """The stage of the rig, for this bus."""

    @abstractmethod
    def place(self, cameras: Sequence[Event]) -> None:
        """Other cameras take the places of those before, all unplugged. A rig that is there has to be told, too."""

    @abstractmethod
    def plug(self, camera: int) -> None:
        """Puts a camera on the bus."""

    @abstractmethod
    def unplug(self, camera: int) -> None:
        """Pulls it."""

    @abstractmethod
    def state(self, camera: int) -> Event:
        """Where it is, what it runs, and what it has counted: the answer to the command "state"."""

    @abstractmethod
    def flash(self, camera: int) -> bytes:
        """Its whole flash."""

    @abstractmethod
    def settle(self, patience: float, limit: float = SETTLING_LIMIT) -> None:
        """Waits until the service has handled everything and no camera has anything pending: for so many seconds of
        silence, and altogether."""

    @abstractmethod
    def hear_out(self) -> None:
        """Has everything that happened on the bus before in the record."""

    @abstractmethod
    def complaints(self, cameras: Sequence[Event], events: Sequence[Event]) -> list[str] | None:
        """What the bus has to say against these cameras since it was asked last, and against what the service did; None
        where nobody but the laboratory drives it."""
