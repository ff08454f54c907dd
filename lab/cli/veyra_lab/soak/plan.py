"""What is tried in one round of the long run, chosen by its seed and its number alone, and the round as a scenario."""

import random
import re
from collections.abc import Iterator, Sequence
from dataclasses import dataclass, replace
from typing import Any

from ..scenarios.variant import StagePlan, Variant

PREFIX = "soak"
_SEED = "[0-9]{1,18}"
_ID = re.compile(PREFIX + r"\.(0|[1-9][0-9]{0,17})\.([1-9][0-9]{0,11})(\.real-time|\.year)?")

_CAMERAS = 3
_OLD_VERSION = "5.10.2.0"
_SMALLEST, _LARGEST = 5_000, 20_000
_IMAGES = 1_000_000  # seeds of them
_ACCEPT, _DECLINE = 1, 0
_STAYING, _VISITING = 0.5, 0.25  # how often a camera stays for a while, and another one comes by
# Of a year: how often a camera that comes needs no update, and how often some time passes while the user is asked, or while
# the camera stays.
_NEEDING_NONE, _RESTING = 0.1, 0.2
_LONGEST_REST_MS = 8 * 60 * 60 * 1000

_PULLED = "unplugged while the user is asked"
# A fault, and how much of an update it leaves: none of them keeps the next camera from being updated.
_FAULTS: dict[str, dict[str, Any] | None] = {
    "no fault": None,
    "unplugged at the first request": {"where": "GETSTATE", "what": "unplug"},
    "unplugged during a block": {"where": "DNLOAD", "what": "unplug", "skip": 3},
    "unplugged after a block": {"where": "GETSTATUS", "what": "unplug", "skip": 3},
    "unplugged while descriptors are read": {"where": "GET-DESCRIPTOR", "what": "unplug", "skip": 1},
    "descriptor refused": {"where": "GET-DESCRIPTOR", "what": "stall", "skip": 2},
    "block refused": {"where": "DNLOAD", "what": "stall", "skip": 2},
    "block unanswered": {"where": "DNLOAD", "what": "timeout", "skip": 4},
    "probe refused": {"where": "UPLOAD", "what": "stall"},
    "wrong state after DETACH": {"where": "GETSTATE", "what": "state", "skip": 1, "value": 5},
    "error status after a block": {"where": "GETSTATUS", "what": "status", "skip": 2, "value": 3},
    "status fails now and then": {"where": "GETSTATUS", "what": "stall", "skip": 1, "count": 3, "sets_error": False},
    "version unknown": {"where": "COMMAND-READ", "what": "echo", "count": 0, "value": 7},
    "switch refused": {"where": "COMMAND-WRITE", "what": "stall", "skip": 4, "count": 0},
    "toast controller fails": None,
    "user declines": None,
    _PULLED: None,
}
# The settling, the answer, and the settling behind it.
_SPARE_WHERE_PULLED = (1, 3, 4, 5)
# One that has the image's version: nobody is asked.
UP_TO_DATE = "up to date"
HARMLESS = ("no fault", "status fails now and then", "toast controller fails")
# Behind these the camera runs its firmware. One that is stuck in DFU mode is tried again whenever a USB device arrives, so
# it goes before another one comes.
_LEFT_RUNNING = (*HARMLESS, "version unknown", "switch refused", "user declines", UP_TO_DATE)
_UNASKED = ("version unknown", UP_TO_DATE)


@dataclass(frozen=True)
class RoundId:
    """A round by its name, "soak.42.17", or "soak.42.17.year" when it is one of a year."""

    seed: int
    number: int
    is_real_time: bool = False
    is_of_a_year: bool = False

    def __str__(self) -> str:
        kind = ["real-time"] if self.is_real_time else ["year"] if self.is_of_a_year else []
        return ".".join([PREFIX, str(self.seed), str(self.number), *kind])


def is_seed(text: str) -> bool:
    """Whether it is a seed that the ids of its rounds can say."""
    return re.fullmatch(_SEED, text) is not None


def read_id(text: str) -> RoundId:
    """ValueError when it is none."""
    whole = _ID.fullmatch(text)
    if whole is None:
        raise ValueError(f"'{text}' is not the id of a round of scripts/soak")
    return RoundId(int(whole[1]), int(whole[2]), whole[3] == ".real-time", whole[3] == ".year")


@dataclass(frozen=True)
class RoundPlan:
    """One round, from the arrival of a camera to its removal."""

    id: RoundId
    fault: str
    image: dict[str, Any]
    cameras: tuple[dict[str, Any], ...]
    chosen: int
    # The methods of the toast controller that fail.
    failing: tuple[str, ...]
    stays: bool
    visitor: int | None
    # The camera leaves in the end.
    leaves: bool = True
    # Milliseconds of rest when the user has been asked, or nobody is, and before the camera leaves.
    rest_asked: int = 0
    rest_there: int = 0
    # Of the steps of a camera that is pulled while the user is asked: the places of those that are left out, beside its
    # coming and going.
    left_out: frozenset[int] = frozenset()

    @property
    def is_pulled(self) -> bool:
        """The camera goes while the user is asked."""
        return self.fault == _PULLED

    def content(self) -> dict[str, Any]:
        """The round in the words of a scenario file."""
        return {
            "description": f"The round {self.id} of scripts/soak: {self.fault}.",
            "not on usb": "a round of scripts/soak, which is in virtual time",
            "stage": {
                "cameras": list(self.cameras),
                "image": self.image,
                **({"skip_waits": False} if self.id.is_real_time else {}),
            },
            "steps": list(self._steps()),
        }

    def variant(self) -> Variant:
        """The round as a scenario to run."""
        content = self.content()
        return Variant(
            name=str(self.id), description=content["description"], slow=False, not_on_usb=content["not on usb"],
            fresh_service=False, stage=StagePlan.of(content["stage"]), steps=tuple(content["steps"]),
        )  # fmt: skip

    def _steps(self) -> Iterator[Any]:
        for method in self.failing:
            yield {"toast controller": {"fail": method}}
        yield from self._arrival()
        wanted = {"flash": "image", "mode": "running"} if self.fault in HARMLESS else {"flash": "old"}
        asked = {"result": "not asked", "camera": self.chosen} if self.fault == UP_TO_DATE else {}
        yield {"expect": {**asked, "cameras": [*[None] * self.chosen, {**wanted, "gaps": 0}]}}
        yield from _rest(self.rest_there)
        if self.leaves and not self.stays:
            yield {"take away": self.chosen}
        if self.visitor is not None:
            # One that comes and goes, and whose question nobody answers.
            yield from ({"plug": self.visitor}, "settle", {"unplug": self.visitor})
        if self.leaves and self.stays:
            yield {"take away": self.chosen}
        if self.leaves:
            yield "settle"

    def _arrival(self) -> Iterator[Any]:
        answer = _DECLINE if self.fault == "user declines" else _ACCEPT
        if not (self.rest_asked or self.is_pulled or self.fault in _UNASKED):
            yield {"accept" if answer == _ACCEPT else "decline": self.chosen}
            return
        steps: list[Any] = [{"plug": self.chosen}, "settle", *_rest(self.rest_asked)]
        if self.is_pulled:
            steps += [{"unplug": self.chosen}, "settle"]
        if self.fault not in _UNASKED:
            steps += [{"answer": answer}, "settle"]
        yield from (step for place, step in enumerate(steps) if place not in self.left_out)

    def fewer_steps(self) -> "Iterator[RoundPlan]":
        """The same with one of the steps less that a pulled camera can do without: whatever is left, it keeps its flash."""
        if self.is_pulled and not self.rest_asked:
            for place in _SPARE_WHERE_PULLED:
                if place not in self.left_out:
                    yield replace(self, left_out=self.left_out | {place})


def _rest(milliseconds: int) -> Sequence[Any]:
    return [{"rest": milliseconds}] if milliseconds else []


def plan_of(id_: RoundId) -> RoundPlan:
    """The round of that name."""
    plan = _plan_of(id_)
    return _in_a_year(plan) if id_.is_of_a_year else plan


def _in_a_year(plan: RoundPlan) -> RoundPlan:
    """The same round with rests, or with an image that the cameras have."""
    choose = random.Random(f"{plan.id.seed} {plan.id.number} year")
    if choose.random() < _NEEDING_NONE:
        cameras = tuple({**camera, "faults": []} for camera in plan.cameras)
        image = {**plan.image, "version": _OLD_VERSION}
        plan = replace(plan, fault=UP_TO_DATE, cameras=cameras, image=image, failing=())
    asked, there = (choose.randint(1, _LONGEST_REST_MS) if choose.random() < _RESTING else 0 for _ in range(2))
    return replace(plan, rest_asked=asked, rest_there=there)


def _plan_of(id_: RoundId) -> RoundPlan:
    choose = random.Random(f"{id_.seed} {id_.number}")
    fault = choose.choice([*_FAULTS, *["no fault"] * 4])
    image = {
        "size": choose.randint(_SMALLEST, _LARGEST),
        "version": f"{choose.randint(6, 255)}.{choose.randint(0, 255)}.0.1",
        "seed": choose.randint(0, _IMAGES),
    }
    chosen = choose.randrange(_CAMERAS)
    cameras = tuple(_camera(choose, _FAULTS[fault] if number == chosen else None) for number in range(_CAMERAS))
    stays = choose.random() < _STAYING and fault in _LEFT_RUNNING
    others = [number for number in range(_CAMERAS) if number != chosen]
    visitor = choose.choice(others) if choose.random() < _VISITING else None
    failing = ("ShowUpdatePrompt", "NotifyProgress", "NotifyComplete") if fault == "toast controller fails" else ()
    return RoundPlan(id_, fault, image, cameras, chosen, failing, stays, visitor)


def _camera(choose: random.Random, fault: dict[str, Any] | None) -> dict[str, Any]:
    return {
        "version": _OLD_VERSION,
        "personality": choose.choice(("kv400", "busy-first")),
        "transfer_size": choose.choice((128, 512, 1024, 4096)) if fault is None else 512,
        "block_ms": choose.choice((0, 0, 0, 350)),
        "manifest_ms": choose.choice((0, 300, 900)),
        "detach_ms": 1,
        "enumerate_ms": 5,
        # Longer than the service lets pass between two looks: it sees that the camera waits for its reset.
        "reset_ms": 1000,
        "two_banks": True,
        "faults": [] if fault is None else [fault],
    }
