"""A few letters that stand for all that something says."""

import hashlib
import json
from typing import Any

_LETTERS = 10


def digest_of(value: Any) -> str:
    """Hex digits that are the same for the same value, of whatever JSON can say and of bytes, and the same wherever its
    fields stand."""
    text = json.dumps(value, sort_keys=True, separators=(",", ":"), default=_of_bytes)
    return hashlib.sha256(text.encode()).hexdigest()[:_LETTERS]


def _of_bytes(value: bytes) -> str:
    return hashlib.sha256(value).hexdigest()
