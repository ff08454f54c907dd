"""What one update is to be: the camera, the image, the user's answer, the settings, what has to come of it."""

from collections.abc import Callable
from dataclasses import dataclass, field
from enum import Enum
from typing import Any

from ..windows.camera import questions_of
from ..windows.image import default_image, version_of
from ..windows.installation import SERVICE_CONTROLLED

PROBE_SIZE = 68
UNKNOWN_VERSION = "0.0.0.0"
_SLOWED_BLOCKS = 2000
_SLOWED_TRANSFER_US = 1000


class Foreseen(Enum):
    """What has to happen once the camera is plugged in."""

    UPDATED = "the user is asked, and the camera is updated"
    DECLINED = "the user is asked and declines, and the camera stays as it is"
    NOT_ASKED = "nobody is asked, and the camera stays as it is"
    PROBE_REFUSED = "the user is asked, the camera enters DFU mode, and no block is ever sent"
    BROKEN_OFF = "the user is asked, and the download fails"


@dataclass(frozen=True)
class UpdatePlan:
    """Everything that makes one update differ from another. The defaults are the demo's."""

    image: bytes = field(default_factory=default_image, repr=False)
    camera_version: str = "5.10.2.0"
    transfer_size: int = 1024
    accept: bool = True
    # Puts the question to a person, whose yes or no takes the place of `accept`: camera's version, image's version.
    ask: Callable[[str, str], bool] | None = None
    # The toast controller that ships asks, in a window, whose yes or no takes the place of `accept`.
    window: bool = False
    update_mode: str | None = SERVICE_CONTROLLED
    toast_server: bool = True
    transfer_us: int = 0
    # Further fields of the stage's camera: personality, block_ms, faults and others.
    camera: dict[str, Any] = field(default_factory=dict)

    @property
    def image_version(self) -> str:
        """The version text that the service and the camera find in the image."""
        return version_of(self.image)

    @property
    def blocks(self) -> int:
        """How many blocks carry the image, the last one perhaps shorter."""
        return -(-len(self.image) // self.transfer_size)

    @property
    def announced_blocks(self) -> int:
        """The count that the service announces: whole blocks only, since it rounds down."""
        return len(self.image) // self.transfer_size

    @property
    def why_not_asked(self) -> str:
        """Why the service has nothing to ask the user; empty when it has."""
        if self.update_mode != SERVICE_CONTROLLED:
            return f"the update mode is {self.update_mode or 'not set'}"
        if not self.toast_server:
            return "there is no toast controller that could ask"
        if self.camera_version == UNKNOWN_VERSION:
            return "the camera's version is 0.0.0.0, which means unknown"
        if self.camera_version == self.image_version:
            return f"camera and image both have version {self.image_version}"
        return ""

    @property
    def questions(self) -> int:
        """How often the user is asked, when he is: at each arrival at which the camera is found."""
        return questions_of(self.camera)

    @property
    def foreseen(self) -> Foreseen:
        """What has to come of it."""
        if self.why_not_asked:
            return Foreseen.NOT_ASKED
        if not self.accept:
            return Foreseen.DECLINED
        if self.transfer_size < PROBE_SIZE:
            return Foreseen.PROBE_REFUSED
        if self.camera.get("faults"):
            return Foreseen.BROKEN_OFF
        return Foreseen.UPDATED

    def stage(self) -> dict[str, Any]:
        """The stage as the wire carries it to the rig: one camera, unplugged, and a trace session that sees all."""
        camera = {"version": self.camera_version, "transfer_size": self.transfer_size, **self.camera}
        stage = {"trace": {"level": 8, "flags": 1}, "transfer_us": self.transfer_us, "cameras": [camera]}
        # That toast controller does not speak to the laboratory.
        return {**stage, "records_prompts": True} if self.window else stage


def transfer_time(blocks: int) -> int:
    """Microseconds on the bus of each transfer of the demo: enough to see a short download, none for a long one."""
    return _SLOWED_TRANSFER_US if blocks <= _SLOWED_BLOCKS else 0
