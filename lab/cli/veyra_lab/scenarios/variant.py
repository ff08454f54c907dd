"""One scenario that is ready to run, and the machine and the bus that it begins with."""

import hashlib
from dataclasses import dataclass, field
from pathlib import Path
from typing import Any

from ..windows.image import SMALLEST_IMAGE, with_version
from ..windows.installation import SERVICE_CONTROLLED
from .errors import ScenarioError

_LONGEST_IMAGE = 64 << 20
_DEFAULT_IMAGE = {"size": 5000, "version": "5.10.3.0"}


@dataclass(frozen=True)
class ImagePlan:
    """The firmware image in the machine: a file with this content, a folder of its name, or nothing."""

    content: bytes | None
    is_folder: bool = False

    @staticmethod
    def of(value: Any) -> "ImagePlan":
        """From what a scenario says, with its files' content. An image of the same size, version and seed is always the
        same."""
        if isinstance(value, str):
            return ImagePlan(None, is_folder=value == "folder")
        if "bytes" in value:
            return ImagePlan(bytes.fromhex(value["bytes"]))
        whole = {**_DEFAULT_IMAGE, **value}
        seed = f"KV400 scenario image {whole.get('seed', 0)}"
        content = hashlib.shake_256(seed.encode()).digest(whole["size"])
        if len(content) >= SMALLEST_IMAGE:
            content = with_version(content, whole["version"])
        return ImagePlan(content)


@dataclass(frozen=True)
class StagePlan:
    """What the machine and the bus look like before the first step."""

    cameras: tuple[dict[str, Any], ...] = ({},)
    image: ImagePlan = field(default_factory=lambda: ImagePlan.of({}))
    update_mode: str | None = SERVICE_CONTROLLED
    toast_controller: str = "there"
    transfer_us: int = 0
    skip_waits: bool = True
    failed_media_starts: int = 0

    @staticmethod
    def of(fields: dict[str, Any]) -> "StagePlan":
        """From a stage as a file tells it; what it leaves out has its default."""
        plan = dict(fields)
        if "cameras" in plan:
            plan["cameras"] = tuple(_camera(camera) for camera in plan["cameras"])
        if "image" in plan:
            plan["image"] = ImagePlan.of(plan["image"])
        return StagePlan(**plan)

    def for_rig(self) -> dict[str, Any]:
        """The stage as the wire carries it to the rig; all cameras start unplugged."""
        return {
            "trace": {"level": 8, "flags": 1},
            "transfer_us": self.transfer_us,
            "skip_waits": self.skip_waits,
            "failed_media_starts": self.failed_media_starts,
            "cameras": list(self.cameras),
        }

    def for_toast_controller(self) -> dict[str, Any]:
        """The stage of the toast controller."""
        return {"refuse_activation": True} if self.toast_controller == "refuses" else {}


@dataclass(frozen=True)
class Variant:
    """One scenario to run: a file, or one item of its "for each"."""

    name: str
    description: str
    slow: bool
    # Why a bus that another kernel drives cannot have it; empty when it can.
    not_on_usb: str
    fresh_service: bool
    stage: StagePlan
    steps: tuple[Any, ...]
    # What its steps set going at once, so that each play may tell another transcript; empty when they do not.
    at_once: str = ""
    # Rows of docs/operations.md that it is.
    rows: tuple[str, ...] = ()


def content_of(path: Path) -> bytes:
    """An image's file. ScenarioError when it cannot be read, or is too long."""
    try:
        with path.open("rb") as file:
            content = file.read(_LONGEST_IMAGE + 1)
    except OSError as error:
        raise ScenarioError(f"image.file: {path} cannot be read: {error.strerror}") from None
    if len(content) > _LONGEST_IMAGE:
        raise ScenarioError(f"image.file: {path} is longer than {_LONGEST_IMAGE >> 20} MiB")
    return content


def _camera(fields: dict[str, Any]) -> dict[str, Any]:
    """A camera as the rig reads it: a descriptor that is told in pieces becomes one hex text."""
    camera = dict(fields)
    if "configuration_descriptor" in camera:
        camera["configuration_descriptor"] = _hex(camera["configuration_descriptor"])
    return camera


def _hex(value: Any) -> str:
    if isinstance(value, list):
        return "".join(_hex(piece) for piece in value)
    if isinstance(value, dict):
        return _hex(value["bytes"]) * value["times"]
    return str(value)
