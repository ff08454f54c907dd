"""Scenario files: read, checked whole before anything runs, spread into one variant for each item of "for each"."""

import json
import re
from collections.abc import Iterable
from pathlib import Path
from typing import Any

from .errors import ScenarioError
from .schema import check_as_written, check_filled
from .variant import StagePlan, Variant, content_of

_PLACE = re.compile(r"\$([a-z_]+)")


def read_folder(folder: Path) -> list[Variant]:
    """Every scenario of every file of the folder, in the order of their names."""
    return [variant for path in _files(folder) for variant in read_scenario(path)]


def read_readable(folder: Path) -> tuple[list[Variant], list[ScenarioError]]:
    """The same of the files that can be read, and what is wrong with each of the others."""
    variants: list[Variant] = []
    errors: list[ScenarioError] = []
    for path in _files(folder):
        try:
            variants += read_scenario(path)
        except ScenarioError as error:
            errors.append(error)
    return variants, errors


def read_named(folder: Path, names: Iterable[str]) -> list[Variant]:
    """The scenarios of these names, each once; a file's name stands for all of its variants. ScenarioError for an
    unknown one. Other files are not looked at."""
    files = {path.stem: path for path in _files(folder)}
    chosen: list[Variant] = []
    for name in names:
        stem = name.partition("/")[0]
        found = read_scenario(files[stem]) if stem in files else []
        if stem != name:
            found = [variant for variant in found if variant.name == name]
        if not found:
            raise ScenarioError(f"there is no scenario '{name}'")
        chosen += [variant for variant in found if variant not in chosen]
    return chosen


def read_scenario(path: Path) -> list[Variant]:
    """The scenarios of one file. ScenarioError names the file and the field that is wrong."""
    try:
        whole = json.loads(path.read_text(encoding="utf-8"), object_pairs_hook=_without_doubles)
        return _variants(path, whole)
    except (OSError, ValueError, ScenarioError) as error:
        raise ScenarioError(f"{path.name}: {' '.join(str(error).split())}") from None


def _files(folder: Path) -> list[Path]:
    return [path for path in sorted(folder.glob("*.json")) if not path.name.endswith(".schema.json")]


def _variants(path: Path, whole: Any) -> list[Variant]:
    check_as_written(whole)
    items = whole.get("for each", [{}])
    names = [item.get("name", "") for item in items]
    if len(set(names)) != len(names):
        raise ScenarioError("for each: two items have the same name")
    return [_variant(path, whole, item) for item in items]


def _variant(path: Path, whole: dict[str, Any], item: dict[str, Any]) -> Variant:
    name = f"{path.stem}/{item['name']}" if item else path.stem
    used: set[str] = set()
    filled = {key: _fill(content, item, used) for key, content in whole.items() if key != "for each"}
    unused = sorted(item.keys() - used - {"name", "slow", "not on usb"})
    if unused:
        raise ScenarioError(f'for each: "{unused[0]}" of "{item["name"]}" is never used')
    check_filled(filled)
    filled = _with_content(filled, path.absolute().parent)
    return Variant(
        name=name,
        description=filled["description"],
        slow=filled.get("slow", False) or item.get("slow", False),
        not_on_usb=item.get("not on usb") or filled.get("not on usb", ""),
        fresh_service=filled.get("fresh service", False),
        stage=StagePlan.of(filled.get("stage", {})),
        steps=tuple(filled["steps"]),
        at_once=filled.get("at once", ""),
        rows=tuple(filled.get("rows", ())),
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


def _with_content(value: Any, folder: Path) -> Any:
    """The value with what is in the files of its images, wherever an image is told: what happens depends on that alone."""
    if isinstance(value, list):
        return [_with_content(content, folder) for content in value]
    if not isinstance(value, dict):
        return value
    whole = {key: _with_content(content, folder) for key, content in value.items()}
    image = whole.get("image")
    if isinstance(image, dict) and "file" in image:
        whole["image"] = {"bytes": content_of(folder / image["file"]).hex()}
    return whole


def _without_doubles(pairs: list[tuple[str, Any]]) -> dict[str, Any]:
    names = [name for name, _ in pairs]
    for name in names:
        if names.count(name) > 1:
            raise ScenarioError(f'the field "{name}" is there twice')
    return dict(pairs)
