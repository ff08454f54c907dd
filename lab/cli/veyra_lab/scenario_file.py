"""Scenario files: read, checked whole before anything runs, spread into one variant for each item of "for each"."""

import hashlib
import json
import re
from collections.abc import Iterable, Sequence
from dataclasses import dataclass, field
from pathlib import Path
from typing import Any

from .fields import ScenarioError, list_of
from .image import SMALLEST_IMAGE, with_version
from .scenario import SERVICE_CONTROLLED
from .scenario_words import FILE, STAGE, check_step

_PLACE = re.compile(r"\$([a-z_]+)")
_DEFAULT_IMAGE = {"size": 5000, "version": "5.10.3.0"}


@dataclass(frozen=True)
class ImagePlan:
    """The firmware image in the machine: a file with this content, a folder of its name, or nothing."""

    content: bytes | None
    is_folder: bool = False

    @staticmethod
    def of(value: Any) -> "ImagePlan":
        """From what a file says. An image of the same size, version and seed is always the same."""
        if isinstance(value, str):
            return ImagePlan(None, is_folder=value == "folder")
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
    prompt_server: str = "there"
    transfer_us: int = 0
    skip_waits: bool = True

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
            "cameras": list(self.cameras),
        }

    def for_prompt_server(self) -> dict[str, Any]:
        """The stage of the prompt server."""
        return {"refuse_activation": True} if self.prompt_server == "refuses" else {}


@dataclass(frozen=True)
class Variant:
    """One scenario to run: a file, or one item of its "for each"."""

    name: str
    description: str
    slow: bool
    fresh_service: bool
    stage: StagePlan
    steps: tuple[Any, ...]


def read_folder(folder: Path) -> list[Variant]:
    """Every scenario of every file of the folder, in the order of their names."""
    return [variant for path in sorted(folder.glob("*.json")) for variant in read_scenario(path)]


def read_scenario(path: Path) -> list[Variant]:
    """The scenarios of one file. ScenarioError names the file and the field that is wrong."""
    try:
        whole = json.loads(path.read_text(encoding="utf-8"), object_pairs_hook=_without_doubles)
        return _variants(path.stem, whole)
    except (OSError, ValueError, ScenarioError) as error:
        raise ScenarioError(f"{path.name}: {' '.join(str(error).split())}") from None


def choose(variants: Sequence[Variant], names: Iterable[str]) -> list[Variant]:
    """The variants of these names; a file's name stands for all of its variants. ScenarioError for an unknown one."""
    chosen: list[Variant] = []
    for name in names:
        found = [variant for variant in variants if name in (variant.name, variant.name.partition("/")[0])]
        if not found:
            raise ScenarioError(f"there is no scenario '{name}'")
        chosen += [variant for variant in found if variant not in chosen]
    return chosen


def _variants(stem: str, whole: Any) -> list[Variant]:
    FILE("file", whole)
    items = whole.get("for each", [{}])
    names = [item.get("name", "") for item in items]
    if len(set(names)) != len(names):
        raise ScenarioError("for each: two items have the same name")
    return [_variant(stem, whole, item) for item in items]


def _variant(stem: str, whole: dict[str, Any], item: dict[str, Any]) -> Variant:
    name = f"{stem}/{item['name']}" if item else stem
    used: set[str] = set()
    filled = {key: _fill(whole[key], item, used) for key in ("description", "stage", "steps") if key in whole}
    unused = sorted(item.keys() - used - {"name"})
    if unused:
        raise ScenarioError(f'for each: "{unused[0]}" of "{item["name"]}" is never used')
    STAGE("stage", filled.get("stage", {}))
    list_of(check_step)("steps", filled["steps"])
    return Variant(
        name=name,
        description=filled["description"],
        slow=whole.get("slow", False),
        fresh_service=whole.get("fresh service", False),
        stage=StagePlan.of(filled.get("stage", {})),
        steps=tuple(filled["steps"]),
    )


def _fill(value: Any, item: dict[str, Any], used: set[str]) -> Any:
    """The value with $parameters replaced: a text that is one becomes the parameter's value, of any type."""
    if isinstance(value, dict):
        return {key: _fill(content, item, used) for key, content in value.items()}
    if isinstance(value, list):
        return [_fill(content, item, used) for content in value]
    if not isinstance(value, str):
        return value

    def parameter(match: re.Match[str]) -> Any:
        if match[1] not in item:
            raise ScenarioError(f'there is no parameter "{match[0]}" in "for each"')
        used.add(match[1])
        return item[match[1]]

    if match := _PLACE.fullmatch(value):
        return parameter(match)
    return _PLACE.sub(lambda match: str(parameter(match)), value)


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


def _without_doubles(pairs: list[tuple[str, Any]]) -> dict[str, Any]:
    names = [name for name, _ in pairs]
    for name in names:
        if names.count(name) > 1:
            raise ScenarioError(f'the field "{name}" is there twice')
    return dict(pairs)
