"""Every script tells how it is used, and does nothing when it is told something that it does not know."""

from pathlib import Path

import pytest
from support import CHECKOUT, run_script

# These hand every word on to another program, whose --help is meant then.
_HANDING_ON = ("run-python", "wine")
_SCRIPTS = sorted(
    path.name for path in (CHECKOUT / "scripts").iterdir() if path.is_file() and path.name not in _HANDING_ON
)


def files() -> set[Path]:
    """What lies in the checkout and in its build folder; the latter may get more meanwhile, by other tests."""
    return {*CHECKOUT.iterdir(), *(CHECKOUT / "build").iterdir()}


@pytest.mark.parametrize("name", _SCRIPTS)
def test_script_explains_itself(name: str, tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.chdir(tmp_path)
    done = run_script(name, "--help", timeout=60)
    assert (done.returncode, done.stderr) == (0, "")
    assert f"usage: scripts/{name}" in done.stdout
    assert list(tmp_path.iterdir()) == []


@pytest.mark.parametrize("name", _SCRIPTS)
def test_script_refuses_an_option_that_it_does_not_know(
    name: str, tmp_path: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    monkeypatch.chdir(tmp_path)
    before = files()
    done = run_script(name, "--no-such-option", timeout=60)
    assert (done.returncode, done.stdout) == (2, "")
    first, *rest = done.stderr.splitlines()
    assert first.startswith(("usage: ", f"scripts/{name}: "))
    assert first.startswith("usage: ") or not rest
    assert before <= files()
    assert list(tmp_path.iterdir()) == []
