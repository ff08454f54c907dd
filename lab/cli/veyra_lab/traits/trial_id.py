"""The id of a kind of boot loader: "traits.17.0a1b2c3d4e", its number in the table and a digest of what it is."""

import re

from ..again.digest import digest_of
from .kinds import Kind, kinds

PREFIX = "traits"
_ID = re.compile(PREFIX + r"\.([1-9][0-9]{0,3})\.[0-9a-f]{10}")


def id_of(number: int, kind: Kind) -> str:
    """That of the kind with this number, from 1 on."""
    return f"{PREFIX}.{number}.{digest_of(kind.camera)}"


def find(text: str) -> Kind:
    """The kind of that id. ValueError when it is none, or when the number is another kind's by now."""
    whole = _ID.fullmatch(text)
    if whole is None:
        raise ValueError(f"'{text}' is not the id of a row of scripts/lab traits")
    known = kinds()
    number = int(whole[1])
    if number > len(known):
        raise ValueError(f"'{text}' cannot be played: there are {len(known)} kinds")
    kind = known[number - 1]
    if id_of(number, kind) != text:
        raise ValueError(f"'{text}' cannot be played: kind {number} is another by now: {id_of(number, kind)}")
    return kind
