"""The model of a boot loader on which what is made of a capture is tried, beside the virtual camera's own: both answer
the same to anything."""

import json
import random
import subprocess
from collections.abc import Iterator, Sequence
from dataclasses import replace
from typing import Any

import pytest
from veyra_lab.capture.boot_loader import BootLoader, Settings
from veyra_lab.capture.transfer import SET_INTERFACE, TO_INTERFACE, End, Request, Transfer, setup_packet
from veyra_lab.faults.program import built, lines_of

_CONVERSATIONS, _REQUESTS = 400, 60
_TRANSFER_SIZE = 256
# What a trait may be; KV400's first.
_CHOICES: dict[str, Sequence[Any]] = {
    "detach": ("accepted", "restarts", "restarts in dfu mode", "stalls"),
    "upload": ("status block", "flash", "stalls"),
    "manifestation": ("resets itself", "tolerant", "waits for reset"),
    "set_interface": ("ignored", "resets state", "stalls"),
    "busy_first": (False, True),
    "answers_while_writing": (True, False),
    "answers_while_manifesting": (True, False),
    "stalls_in_place": (False, True),
    "hides_status": (False, True),
    "hides_write_time": (False, True),
    "writes_at_once": (False, True),
    "takes_empty_image": (False, True),
    "drops_blocks_in_upload": (False, True),
}
_TIMES = (0, 0, 1, 40, 300)
_PAUSES = (0, 0, 0, 1, 20, 40, 300, 2000)
_LENGTHS = (0, 1, 6, 68, _TRANSFER_SIZE, _TRANSFER_SIZE + 1)
# A download is what mostly goes on; the rest may come at any time.
_OFTEN = (Request.DNLOAD, Request.DNLOAD, Request.GETSTATUS, Request.GETSTATUS, Request.GETSTATUS, Request.GETSTATE)
_NOW_AND_THEN = (*Request, Request.UPLOAD, Request.CLRSTATUS, SET_INTERFACE)
_TO_HOST = (Request.UPLOAD, Request.GETSTATUS, Request.GETSTATE)


def any_settings(chance: random.Random) -> Settings:
    """Each trait is the KV400's or another, and each alone is so in some of the conversations."""
    rare = chance.choice((0.1, 0.5))
    traits = {name: chance.choice(of[1:]) for name, of in _CHOICES.items() if chance.random() < rare}
    block_ms, manifest_ms, reset_ms = (chance.choice(_TIMES) for _ in range(3))
    return Settings(_TRANSFER_SIZE, block_ms, manifest_ms, reset_ms, chance.random() < 0.2, traits)


def any_request(chance: random.Random, number: int, ms: int) -> Transfer:
    """One that a host may send at any time."""
    request = chance.choice(_OFTEN if chance.random() < 0.8 else _NOW_AND_THEN)
    data = b""
    if request == SET_INTERFACE:
        setup = setup_packet(TO_INTERFACE, SET_INTERFACE, 0, 0, 0)
    elif request in _TO_HOST:
        usual = 6 if request == Request.GETSTATUS else 1 if request == Request.GETSTATE else _TRANSFER_SIZE
        setup = setup_packet(0xA1, request, 0, 0, usual if chance.random() < 0.8 else chance.choice(_LENGTHS))
    else:
        data = bytes(chance.choice(_LENGTHS)) if request == Request.DNLOAD else b""
        setup = setup_packet(0x21, request, number, 0, len(data))
    return Transfer(1, 2, ms * 1000, setup, data, len(data))


def any_conversation(chance: random.Random) -> Iterator[Transfer]:
    """Some requests, at times of which some meet an end exactly."""
    ms = 0
    for number in range(_REQUESTS):
        yield any_request(chance, number, ms)
        ms += chance.choice(_PAUSES)


def answers_of_the_model(settings: Settings, requests: Sequence[Transfer]) -> list[tuple[str, str]]:
    """As far as the device is there."""
    loader = BootLoader(settings)
    answers = []
    for each in requests:
        answer = loader.ask(each, each.began // 1000)
        # Which bytes a flash has is not modelled.
        is_flash = each.request == Request.UPLOAD and settings.trait("upload") == "flash"
        answers.append((answer.end.name.lower(), f"{len(answer.data)} bytes" if is_flash else answer.data.hex()))
        if answer.end is End.GONE:
            break
    return answers


def answers_of_the_camera(
    told: Sequence[dict[str, str]], settings: Settings, requests: Sequence[Transfer]
) -> list[tuple[str, str]]:
    """The same of what the camera's own boot loader has answered."""
    answers = []
    for each, answer in zip(requests, told):
        is_flash = each.request == Request.UPLOAD and settings.trait("upload") == "flash"
        answers.append((answer["end"], f"{len(answer['data']) // 2} bytes" if is_flash else answer["data"]))
    return answers


def camera_of(settings: Settings) -> dict[str, Any]:
    """In the words of the wire. Of two banks, so that a download that is given up leaves the firmware as long as it was."""
    return {
        "transfer_size": settings.transfer_size, "block_ms": settings.block_ms, "manifest_ms": settings.manifest_ms,
        "reset_ms": settings.reset_ms, "manifests_at_once": settings.manifests_at_once, "traits": settings.traits,
        "two_banks": True,
    }  # fmt: skip


def test_the_model_answers_as_the_virtual_camera_does() -> None:
    conversations = []
    for seed in range(_CONVERSATIONS):
        chance = random.Random(seed)
        settings = any_settings(chance)
        conversations.append((settings, list(any_conversation(chance))))
    asked = [
        {
            "camera": camera_of(settings),
            "requests": [
                {"ms": each.began // 1000, "setup": each.setup.hex(), "data": each.data.hex()} for each in requests
            ],
        }
        for settings, requests in conversations
    ]
    done = subprocess.run(
        [str(built()), "answers"], input="".join(f"{json.dumps(each)}\n" for each in asked), capture_output=True,
        encoding="utf-8", check=True, timeout=120,
    )  # fmt: skip
    told = [line["answers"] for line in lines_of(done.stdout)]
    assert len(told) == _CONVERSATIONS
    for seed, ((settings, requests), answers) in enumerate(zip(conversations, told)):
        assert answers_of_the_camera(answers, settings, requests) == answers_of_the_model(settings, requests), (
            seed, settings,
        )  # fmt: skip


@pytest.mark.parametrize("trait", _CHOICES)
def test_each_trait_changes_what_is_answered_in_some_conversation(trait: str) -> None:
    """Otherwise it would not be tried."""
    usual = _CHOICES[trait][0]
    for other in _CHOICES[trait][1:]:
        for seed in range(_CONVERSATIONS):
            chance = random.Random(seed)
            settings = any_settings(chance)
            requests = list(any_conversation(chance))
            if settings.trait(trait) != other:
                continue
            without = replace(settings, traits={**settings.traits, trait: usual})
            if answers_of_the_model(settings, requests) != answers_of_the_model(without, requests):
                break
        else:
            pytest.fail(f"{trait}: {other}")
