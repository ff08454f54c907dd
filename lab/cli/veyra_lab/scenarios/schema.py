"""What scenario files may say: lab/scenarios/scenario.schema.json, which editors read too, and what this adds to it."""

import json
import re
from collections.abc import Iterator
from typing import Any

from jsonschema import Draft7Validator, FormatChecker
from jsonschema.exceptions import ValidationError, best_match
from jsonschema.validators import extend

from ..checkout import CHECKOUT
from .errors import ScenarioError
from .transfer_pattern import compile_pattern

SCENARIOS = CHECKOUT / "lab" / "scenarios"
SCHEMA: dict[str, Any] = json.loads((SCENARIOS / "scenario.schema.json").read_text(encoding="utf-8"))
# Where the schema has a title, it says what the value should be better than these say it.
_SAID_BY_THE_TITLE = (
    "type", "pattern", "minItems", "maxItems", "minProperties", "maxProperties", "oneOf", "dependencies",
)  # fmt: skip


def check_as_written(content: Any) -> None:
    """A file's content: a parameter of "for each" may stand for any value. ScenarioError names field and reason."""
    _check(_AS_WRITTEN, content)


def check_filled(content: Any) -> None:
    """The same once every parameter has its value."""
    _check(_FILLED, content)


def _check(validator: Draft7Validator, content: Any) -> None:
    error = best_match(validator.iter_errors(content))
    if error is not None:
        raise ScenarioError(f"{_place(error)}: {_reason(error)}")


def _place(error: ValidationError) -> str:
    parts = (f"[{part}]" if isinstance(part, int) else f".{part}" for part in error.absolute_path)
    return "".join(parts).removeprefix(".") or "file"


def _reason(error: ValidationError) -> str:
    if "title" in error.schema and error.validator in _SAID_BY_THE_TITLE:
        return f"{error.instance!r} is not {error.schema['title']}"
    if error.validator == "additionalProperties":
        return f"{error.message}; known are: {', '.join(error.schema['properties'])}"
    return f"{error.message}: {error.cause}" if error.cause else error.message


def _match_pattern(validator: Any, pattern: str, instance: Any, schema: Any) -> Iterator[ValidationError]:
    """A $ means the very end of the text, as it does in editors; Python's would let a line break follow."""
    del schema
    if validator.is_type(instance, "string") and not re.search(re.sub(r"\$$", r"\\Z", pattern), instance):
        yield ValidationError(f"{instance!r} does not match {pattern!r}")


_formats = FormatChecker(formats=())


@_formats.checks("transfer-pattern", raises=ValueError)
def _is_transfer_pattern(value: Any) -> bool:
    if isinstance(value, str) and value != "none":
        compile_pattern(value)
    return True


_Validator = extend(
    Draft7Validator,
    {"pattern": _match_pattern},
    # 1.0 is no whole number here.
    type_checker=Draft7Validator.TYPE_CHECKER.redefine("integer", lambda _, value: type(value) is int),
)
_AS_WRITTEN = _Validator(SCHEMA)
_FILLED = _Validator(
    {**SCHEMA, "definitions": {**SCHEMA["definitions"], "parameter": False}}, format_checker=_formats
)
