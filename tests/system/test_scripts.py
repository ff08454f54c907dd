"""Every script tells how it is used, and does nothing when it is told something that it does not know."""

from pathlib import Path

import pytest
from support import CHECKOUT, run_script

_SCRIPTS = sorted(f"scripts/{path.name}" for path in (CHECKOUT / "scripts").iterdir() if path.is_file()) + [".ci/run"]
# These hand every other word on to another program.
_HANDING_ON = {"scripts/run-python", "scripts/wine"}


def files() -> set[Path]:
    """What lies in the checkout and in its build folder; the latter may get more meanwhile, by other tests."""
    return {*CHECKOUT.iterdir(), *(CHECKOUT / "build").glob("*")}


@pytest.mark.parametrize("name", _SCRIPTS)
def test_script_explains_itself(name: str, tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.chdir(tmp_path)
    done = run_script(f"../{name}", "--help", timeout=60)
    assert (done.returncode, done.stderr) == (0, "")
    assert f"usage: {name}" in done.stdout
    assert list(tmp_path.iterdir()) == []


@pytest.mark.parametrize("name", sorted({*_SCRIPTS} - _HANDING_ON))
def test_script_refuses_an_option_that_it_does_not_know(
    name: str, tmp_path: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    monkeypatch.chdir(tmp_path)
    before = files()
    done = run_script(f"../{name}", "--no-such-option", timeout=60)
    assert (done.returncode, done.stdout) == (2, "")
    first, *rest = done.stderr.splitlines()
    assert first.startswith(("usage: ", f"{name}: "))
    assert first.startswith("usage: ") or not rest
    assert before <= files()
    assert list(tmp_path.iterdir()) == []
