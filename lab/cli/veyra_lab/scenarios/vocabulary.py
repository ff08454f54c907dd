"""The vocabulary of scenario files: what a stage, a step and an expectation may say."""

import re
from typing import Any

from .errors import ScenarioError
from .fields import (
    Checker,
    either,
    integer,
    list_of,
    matching,
    nothing_or,
    one_of,
    record_of,
    refuse,
    text,
    truth,
)
from .transfer_pattern import compile_pattern

_COUNT = integer(0, 1_000_000)
_MILLISECONDS = integer(0, 600_000)
_CAMERA = integer(0, 15)
_WORD = integer(0, 0xFFFF_FFFF)
_HRESULT = integer(-0x8000_0000, 0xFFFF_FFFF)
_VERSION = matching(r"\d{1,3}(\.\d{1,3}){3}", "a version of the form A.B.C.D")
_HEX = matching(r"([0-9a-fA-F]{2}\s*)*", "bytes in hexadecimal digits")

WHERES = ("DETACH", "DNLOAD", "UPLOAD", "GETSTATUS", "CLRSTATUS", "GETSTATE", "ABORT", "COMMAND-WRITE", "COMMAND-READ",
          "GET-DESCRIPTOR")  # fmt: skip
WHATS = ("stall", "timeout", "unplug", "status", "state", "short", "echo", "poll")

_FAULT = record_of(
    {
        "where": one_of(*WHERES),
        "what": one_of(*WHATS),
        "skip": _COUNT,
        "count": _COUNT,
        "value": _WORD,
        "sets_error": truth,
    },
    needed=frozenset({"where", "what"}),
)

_REPEATED_BYTES = record_of({"bytes": _HEX, "times": _COUNT}, needed=frozenset({"bytes", "times"}))
_BYTES = either(
    _HEX,
    list_of(either(_HEX, _REPEATED_BYTES, allowed="bytes in hexadecimal digits")),
    allowed="bytes in hexadecimal digits, or a list of them",
)

_CAMERA_FIELDS: dict[str, Checker] = {
    "version": _VERSION,
    "personality": one_of("kv400", "strict", "lenient", "synchronous"),
    "transfer_size": integer(0, 65535),
    "block_ms": _MILLISECONDS,
    "manifest_ms": _MILLISECONDS,
    "manifests_at_once": truth,
    "reset_ms": _MILLISECONDS,
    "detach_ms": _MILLISECONDS,
    "enumerate_ms": _MILLISECONDS,
    "timeout_ms": _MILLISECONDS,
    "two_banks": truth,
    "faults": list_of(_FAULT),
    "configuration_descriptor": _BYTES,
    "has_extension_unit": truth,
    "nodes": list_of(one_of("processing", "foreign", "broken", "extension-unit")),
    "link_case": one_of("lower", "upper", "mixed"),
    "link_length": integer(0, 32767),
    "listed_twice": truth,
}

IMAGE = either(
    one_of("missing", "folder"),
    record_of({"size": integer(0, 64 << 20), "version": _VERSION, "seed": _COUNT}, needed=frozenset({"size"})),
    allowed='"missing", "folder" or an object with a size',
)

STAGE = record_of(
    {
        "cameras": list_of(record_of(_CAMERA_FIELDS)),
        "image": IMAGE,
        "update_mode": nothing_or(text),
        "prompt_server": one_of("there", "missing", "refuses"),
        "transfer_us": integer(0, 1_000_000),
        "skip_waits": truth,
    }
)

WAITS = {
    "question": "the service's question to the user",
    "download end": "the end of a download (NotifyComplete)",
    "progress N": "the progress text N",
    "answer": "an answer that all sinks have taken",
    "camera N plugged|left|dfu|running|unplugged": "a change of camera N",
    "prompt server gone": "the end of the prompt server's process",
    "service gone": "the end of the service's process",
    "command NAME": "the uninstall monitor's sc stop or sc delete",
}
_WAIT = matching(
    r"question|download end|progress \S+|answer|camera \d+ (plugged|left|dfu|running|unplugged)|prompt server gone"
    r"|service gone|command (stop|delete)",
    f"one of: {', '.join(WAITS)}",
)

METHODS = ("ShowUpdatePrompt", "NotifyProgress", "NotifyComplete")
CLASSES = {
    "usb": "{A5DCBF10-6530-11D2-901F-00C04FB951ED}",
    "sensor camera": "{24E552D7-6523-47F7-A647-D3465BF1F5CA}",
    "video camera": "{E5323777-F976-4F5B-9B55-B94699C46E44}",
    "capture": "{65E8773D-8F56-11D0-A3B9-00A0C9223196}",
    "unknown": "{00000000-1111-2222-3333-444444444444}",
}
EVENT_TYPES = {"arrival": 0x8000, "query": 0x8001, "removal": 0x8004, "custom": 0x8006}

_DELIVERY = record_of(
    {
        "type": either(one_of(*EVENT_TYPES), _WORD, allowed=f"a number, or one of: {', '.join(EVENT_TYPES)}"),
        "class": one_of(*CLASSES),
        "link": text,
        "link_length": integer(0, 32767),
        "times": integer(1, 10_000),
    },
    needed=frozenset({"type", "class"}),
)

_PROMPT_SERVER = either(
    one_of("die", "release"),
    record_of(
        {
            "fail": one_of(*METHODS),
            "hang": one_of(*METHODS),
            "hresult": _HRESULT,
            "ms": _MILLISECONDS,
            "skip": _COUNT,
        }
    ),
    allowed='"die", "release" or an object with "fail" or "hang"',
)

RESULTS = ("updated", "failed", "not opened", "asked", "not asked")
_RANGE_PARTS = 2


def _count_or_range(place: str, value: Any) -> None:
    if isinstance(value, list) and len(value) == _RANGE_PARTS:
        for number in value:
            _COUNT(place, number)
    elif isinstance(value, bool) or not isinstance(value, int) or value < 0:
        refuse(place, value, "a number or a range of two numbers")


def _transfers(place: str, value: Any) -> None:
    text(place, value)
    if value != "none":
        try:
            compile_pattern(value)
        except ValueError as error:
            raise ScenarioError(f"{place}: {error}") from None


_TRACE = matching(r"(base|update|sink|launch) \d+(: .+)?", 'a message such as "update 23" or "update 23: its words"')

EXPECTATION_FIELDS: dict[str, Checker] = {
    "result": one_of(*RESULTS),
    "camera": _CAMERA,
    "questions": list_of(list_of(text)),
    "progress": list_of(text),
    "completions": _count_or_range,
    "commands": _count_or_range,
    "transfers": _transfers,
    "requests": record_of({name: _count_or_range for name in (*WHERES[:7], "EMPTY")}),
    "traces": list_of(_TRACE),
    "traces with": list_of(_TRACE),
    "traces without": list_of(_TRACE),
    "event log": list_of(text),
    "debug texts": _count_or_range,
    "controls": _count_or_range,
    "commands run": list_of(text),
    "cameras": list_of(
        nothing_or(
            record_of(
                {
                    "mode": one_of("absent", "running", "dfu"),
                    "version": _VERSION,
                    "flash": one_of("image", "old", "partial"),
                    "dfu_state": integer(0, 255),
                    "dfu_status": integer(0, 255),
                    "gaps": _COUNT,
                }
            )
        )
    ),
    "service": one_of("running", "stopped", "deleted"),
    "monitored service": one_of("running", "stopped", "deleted"),
    "growth": record_of({"handles": _COUNT, "threads": _COUNT, "private_kib": _COUNT}),
}
EXPECTATION = record_of(EXPECTATION_FIELDS)


def _steps(place: str, value: Any) -> None:
    list_of(check_step)(place, value)


PLAIN_STEPS = ("settle", "start", "stop", "restart", "ask to stop", "await stop", "shut down", "remove driver",
               "remember resources")  # fmt: skip
STEP_ARGUMENTS: dict[str, Checker] = {
    "plug": _CAMERA,
    "unplug": _CAMERA,
    "answer": integer(-0x8000_0000, 0x7FFF_FFFF),
    "wait for": _WAIT,
    "update": _CAMERA,
    "deliver": _DELIVERY,
    "control": integer(0, 255),
    "image": IMAGE,
    "update mode": nothing_or(text),
    "prompt server": _PROMPT_SERVER,
    "create service": text,
    "repeat": record_of({"times": integer(1, 1000), "steps": _steps}, needed=frozenset({"times", "steps"})),
    "expect": EXPECTATION,
}


def check_step(place: str, value: Any) -> None:
    """A step: a word of its own, or an object with one field."""
    if isinstance(value, str):
        one_of(*PLAIN_STEPS)(place, value)
        return
    if not isinstance(value, dict) or len(value) != 1:
        refuse(place, value, "a step: a word, or an object with one field")
    record_of(STEP_ARGUMENTS)(place, value)



_NAME = matching(r"[a-z0-9]+(-[a-z0-9]+)*", "a name of small letters and digits, joined by hyphens")


def _parameters(place: str, value: Any) -> None:
    if not isinstance(value, dict):
        refuse(place, value, "an object")
    if "name" not in value:
        raise ScenarioError(f'{place}: the field "name" is missing')
    _NAME(f"{place}.name", value["name"])
    for name in value:
        if not re.fullmatch(r"[a-z_]+", name):
            raise ScenarioError(f'{place}: "{name}" is no parameter name; small letters and underscores make one')


FILE = record_of(
    {
        "description": text,
        "slow": truth,
        "fresh service": truth,
        "for each": list_of(_parameters),
        "stage": lambda place, value: None,
        "steps": lambda place, value: None,
    },
    needed=frozenset({"description", "steps"}),
)
