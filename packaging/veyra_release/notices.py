"""THIRD-PARTY-NOTICES.txt: whose work is linked into the programs, and the words that its licences ask to hand on."""

import re
from collections.abc import Sequence
from pathlib import Path

from .linked import Linked, Package

_COMMON = Path("/usr/share/common-licenses")
_REFERENCE = re.compile(rf"{_COMMON}/([A-Za-z]+(?:-[0-9]+(?:\.[0-9]+)?)?)")
_RULE = "=" * 78
_HEAD = """\
Third-party notices

The programs of this package are linked with the parts of others' libraries that are named here, and with
nothing else of others; the file VeyraCameraDfuMessages.dll has no code. The list is made from the map of the
link that made these files. What follows it are the copyright files of those libraries' packages, whole,
as Debian hands them out: they tell of more than is in the programs (a whole compiler, for example). Texts of
licences to which they point are at the end.
"""


def notices(linked: Linked) -> str:
    """The whole text."""
    parts = [_HEAD]
    for program, packages in sorted(linked.items()):
        lines = [program]
        for package, files in packages.items():
            lines.append(f"  {package.name} {package.version} (of the source {package.source} {package.source_version})")
            lines += [f"    {_library(name, members)}" for name, members in files.items()]
        parts.append("\n".join(lines) + "\n")
    texts: dict[str, list[Package]] = {}
    for package in sorted({package for packages in linked.values() for package in packages}):
        texts.setdefault(package.copyright_text, []).append(package)
    for text, owners in texts.items():
        names = ", ".join(f"{package.name} {package.version}" for package in owners)
        parts.append(f"{_RULE}\nThe copyright file of {names}\n{_RULE}\n\n{text.strip()}\n")
    for name in sorted({name for text in texts for name in _REFERENCE.findall(text)}):
        licence = (_COMMON / name).read_text(encoding="utf-8")
        parts.append(f"{_RULE}\n{_COMMON}/{name}\n{_RULE}\n\n{licence.strip()}\n")
    return "\n".join(parts)


def _library(name: str, members: Sequence[str]) -> str:
    return f"{name}, {len(members)} of its members" if members else name
