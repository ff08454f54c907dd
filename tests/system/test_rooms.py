"""The rooms of the laboratory's programs: small modules, imports that only go down, and no circle. And the toast
controller's rooms, whose arrows the compiler does not hold."""

import ast
import re
from collections.abc import Iterator
from pathlib import Path

import pytest
from support import CHECKOUT

_ROOT = CHECKOUT / "lab" / "cli" / "veyra_lab"
_LONGEST = 300
# What each room may use besides "", which is veyra_lab itself. A program's entry, __main__, may use all.
_BELOW: dict[str, set[str]] = {
    "": set(),
    "wire": set(),
    "windows": {"wire"},
    "terminal": set(),
    "updates": {"wire", "windows"},
    "scenarios": {"wire", "windows"},
    "judgement": {"wire", "windows", "scenarios"},
    "again": {"wire"},
    "runner": {"wire", "windows", "terminal", "again", "scenarios", "judgement", "guest", "buses", "causes"},
    "traits": {"wire", "windows", "terminal", "again", "scenarios", "judgement", "runner"},
    "causes": {"wire", "windows", "scenarios", "terminal"},
    "report": {"terminal", "causes"},
    "guest": {"wire", "terminal"},
    "buses": {"wire", "windows", "scenarios", "guest"},
    "windows_disk": {"wire", "terminal", "guest"},
    "demo": {"wire", "windows", "terminal", "updates", "report", "guest", "buses"},
    "soak": {"wire", "windows", "terminal", "again", "scenarios", "judgement", "runner"},
    "faults": {"wire", "windows", "terminal", "again", "scenarios", "runner"},
    "fuzz": {"terminal", "again", "scenarios", "runner", "faults"},
    "replay": {
        "wire", "windows", "terminal", "again", "buses", "guest", "scenarios", "runner", "traits", "soak", "faults", "fuzz",
    },
    "capture": {"wire", "windows", "terminal", "scenarios", "runner", "report", "faults"},
    "bench": {"terminal"},
    "bench.portable": {"bench"},
    "bench.service": {"buses", "wire", "windows", "guest", "bench"},
}


def modules() -> dict[str, Path]:
    """Every module but the rooms' own texts, as "room.module"."""
    paths = (path for path in sorted(_ROOT.rglob("*.py")) if path.name != "__init__.py")
    return {".".join(path.relative_to(_ROOT).with_suffix("").parts): path for path in paths}


def room(module: str) -> str:
    """The room that a module is in."""
    return module.rpartition(".")[0]


def imports(module: str, path: Path) -> Iterator[str]:
    """The modules of the laboratory that a module imports, wherever in its text."""
    for node in ast.walk(ast.parse(path.read_text(encoding="utf-8"))):
        if isinstance(node, ast.ImportFrom) and node.level:
            base = module.split(".")[: -node.level]
            target = ".".join([*base, *([node.module] if node.module else [])])
            if target in _MODULES:
                yield target
            else:
                yield from (f"{target}.{alias.name}".lstrip(".") for alias in node.names)
        elif isinstance(node, ast.ImportFrom) and (node.module or "").startswith("veyra_lab"):
            raise ValueError(f"{module} names veyra_lab where a relative import would do")


_MODULES = modules()
_IMPORTS = {module: set(imports(module, path)) for module, path in _MODULES.items()}


def test_modules_are_small() -> None:
    lengths = {module: len(path.read_text(encoding="utf-8").splitlines()) for module, path in _MODULES.items()}
    assert {module: lines for module, lines in lengths.items() if lines > _LONGEST} == {}


@pytest.mark.parametrize("name", sorted({room(module) for module in _MODULES}))
def test_every_room_says_what_it_is_for_and_what_it_uses(name: str) -> None:
    text = _ROOT.joinpath(*name.split("."), "__init__.py").read_text(encoding="utf-8")
    said = ast.get_docstring(ast.parse(text)) or ""
    assert said
    used = {room(each) for module in _MODULES if room(module) == name for each in _IMPORTS[module]}
    assert [each for each in used & _BELOW[name] if each not in said] == []


def test_imports_only_go_down() -> None:
    assert set(_BELOW) == {room(module) for module in _MODULES}
    wrong = {
        module: {room(each) for each in used} - _BELOW[room(module)] - {room(module), ""}
        for module, used in _IMPORTS.items()
        if module.rpartition(".")[2] != "__main__"
    }
    assert {module: rooms for module, rooms in wrong.items() if rooms} == {}


def test_no_circle() -> None:
    left = dict(_IMPORTS)
    while free := [module for module, used in left.items() if not used & left.keys()]:
        for module in free:
            del left[module]
    assert left == {}


def test_every_import_is_found() -> None:
    assert {each for used in _IMPORTS.values() for each in used} - _MODULES.keys() == set()


_TOAST = CHECKOUT / "toast"
# What each room of the toast controller may include from, besides itself and win32/ of the service.
_TOAST_BELOW: dict[str, set[str]] = {
    "conversation": set(),
    "registration": set(),
    "record": {"conversation", "registration"},
    "window": {"conversation"},
    "server": {"conversation", "registration"},
    "program": {"conversation", "registration", "record", "window", "server"},
}
_GENERATED = {"Messages.h"}
_IDENTITY = "prompt/IToastCntr.h"


def toast_includes(room_name: str) -> set[str]:
    """What the files of a room of the toast controller include of the project."""
    files = [path for path in (_TOAST / room_name).iterdir() if path.suffix in (".cpp", ".h", ".rc", ".in")]
    texts = (path.read_text(encoding="utf-8") for path in files)
    return {name for text in texts for name in re.findall(r'#include "([^"]+)"', text)} - _GENERATED - {_IDENTITY}


def test_the_toast_controller_has_these_rooms() -> None:
    assert {path.name for path in _TOAST.iterdir() if path.is_dir()} == set(_TOAST_BELOW)


@pytest.mark.parametrize("name", sorted(_TOAST_BELOW))
def test_includes_of_the_toast_controller_only_go_down(name: str) -> None:
    allowed = ("win32/", f"toast/{name}/", *(f"toast/{below}/" for below in _TOAST_BELOW[name]))
    assert {include for include in toast_includes(name) if not include.startswith(allowed)} == set()


def test_the_service_knows_nothing_of_the_toast_controllers_house() -> None:
    files = [path for path in (CHECKOUT / "src").rglob("*") if path.suffix in (".cpp", ".h", ".txt")]
    assert [path for path in files if "toast/" in path.read_text(encoding="utf-8")] == []
