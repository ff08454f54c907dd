"""A round that fails made as small as it goes: played alone, as a scenario, with fewer steps and plainer cameras."""

import re
from collections.abc import Callable, Iterator
from dataclasses import replace
from pathlib import Path
from typing import Any

from ..again.digest import digest_of
from ..again.smallest import smallest
from ..scenarios.variant import Variant
from ..scenarios.written import file_name, write_scenario_file
from .plan import RoundId, RoundPlan, plan_of

# What an update that goes wrong leaves, and when a camera is back, is what a round expects: these stay.
_KEPT = ("faults", "two_banks", "reset_ms", "enumerate_ms", "detach_ms")
# The requests that strike in a block's turn, whichever block it is.
_OF_A_BLOCK = ("DNLOAD", "GETSTATUS")
_TRANSFER_SIZE = 1024  # of a camera that does not say it
_SIZES = (402, 1025, 2049, 5000)


def make_smaller(id_: RoundId, play: Callable[[Variant], list[str]], folder: Path) -> tuple[Path | None, str]:
    """Has the round and smaller ones played as scenarios, and writes the smallest that fails as the round does when it is
    played alone; with the words of its first complaint. None, and no words, when the round holds alone. `play` answers what
    did not hold."""
    found, why = smallest(plan_of(id_), lambda plan: same_words(play(plan.variant())), smaller)
    if not why:
        return None, ""
    content = {**found.content(), "description": f"The round {id_} of scripts/soak, made small: {found.fault}: {why}."}
    # No two failures have the same.
    name = f"{file_name('soak', f'{found.fault} {why}')}-{digest_of([why, content['stage'], content['steps']])}"
    return write_scenario_file(content, name, folder), why


def same_words(complaints: list[str]) -> str:
    """The first complaint without where it was and without what another size or number of cameras changes in it."""
    words = re.sub(r"^(steps\[[0-9]+\]|always|end|start|the service died): ", "", complaints[0]) if complaints else ""
    return re.sub(r" of camera [0-9]+|, seen [0-9]+( bytes of which the first [0-9]+ are the image's)?$", "", words)


def smaller(plan: RoundPlan) -> Iterator[RoundPlan]:
    """Each is a road of which the same has to hold, so that it fails for no other reason. The plainest first: what hangs
    takes long to try."""
    if (plainest := _plainest(plan)) != plan:
        yield plainest
    for rest in ("rest_asked", "rest_there"):
        if getattr(plan, rest):
            yield replace(plan, **{rest: 0})
    if plan.visitor is not None:
        yield replace(plan, visitor=None)
    if plan.leaves:
        yield replace(plan, leaves=False, visitor=None)
    yield from plan.fewer_steps()
    for number in range(len(plan.failing)):
        yield replace(plan, failing=plan.failing[:number] + plan.failing[number + 1 :])
    if len(plan.cameras) > 1 and plan.visitor is None:
        yield replace(plan, cameras=(plan.cameras[plan.chosen],), chosen=0)
    elif plan.visitor is None:
        yield from _plainer(plan, plan.cameras[0])


def _plainest(plan: RoundPlan) -> RoundPlan:
    camera = {name: value for name, value in plan.cameras[plan.chosen].items() if name in _KEPT}
    camera["faults"] = [
        {**fault, "skip": 0, "count": 1} if fault["where"] in _OF_A_BLOCK else fault for fault in camera["faults"]
    ]
    image = {**plan.image, "size": _SIZES[0]}
    return replace(
        plan, visitor=None, leaves=False, failing=(), cameras=(camera,), chosen=0, image=image, stays=False,
        rest_asked=0, rest_there=0,
    )  # fmt: skip


def _plainer(plan: RoundPlan, camera: dict[str, Any]) -> Iterator[RoundPlan]:
    for number, fault in enumerate(camera["faults"]):
        if fault["where"] in _OF_A_BLOCK:
            for field, least in (("skip", 0), ("count", 1)):
                for value in range(least, fault.get(field, least)):
                    faults = [*camera["faults"]]
                    faults[number] = {**fault, field: value}
                    yield replace(plan, cameras=({**camera, "faults": faults},))
    for name in camera:
        if name not in _KEPT:
            yield replace(plan, cameras=({field: value for field, value in camera.items() if field != name},))
    # Of a smaller image's blocks there are fewer, and the fault has to strike in one of them.
    blocks = max((fault.get("skip", 0) + fault.get("count", 1) for fault in camera["faults"]), default=1)
    for size in _SIZES:
        if camera.get("transfer_size", _TRANSFER_SIZE) * (blocks - 1) < size < plan.image["size"]:
            yield replace(plan, image={**plan.image, "size": size})
