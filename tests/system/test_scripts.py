"""Every script tells how it is used, and does nothing when it is told something that it does not know."""

import re
import tokenize
from io import StringIO
from pathlib import Path

import pytest
from support import CHECKOUT, check_refusal, run_script

_SCRIPTS = sorted(f"scripts/{path.name}" for path in (CHECKOUT / "scripts").iterdir() if path.is_file()) + [".ci/run"]


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


@pytest.mark.parametrize("name", _SCRIPTS)
def test_script_refuses_an_option_that_it_does_not_know(
    name: str, tmp_path: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    monkeypatch.chdir(tmp_path)
    before = files()
    done = run_script(f"../{name}", "--no-such-option", timeout=60)
    check_refusal((done.returncode, done.stdout, done.stderr), f"{name}: ")
    assert before <= files()
    assert list(tmp_path.iterdir()) == []


def subcommands(*command: str) -> list[str]:
    """What a script's help lists below the line "SUBCOMMAND"."""
    shown = run_script(*command, "--help").stdout
    return re.findall(r"^    ([a-z]+) ", shown.partition("  SUBCOMMAND\n")[2].partition("\n\n")[0], re.MULTILINE)


def test_every_subcommand_explains_itself_and_refuses_what_it_does_not_know() -> None:
    names = subcommands("lab")
    assert {"report", "list", "run"} <= set(names)
    for name in names:
        done = run_script("lab", name, "--help", timeout=60)
        assert (done.returncode, done.stderr) == (0, "")
        assert f"usage: scripts/lab {name}" in done.stdout
        refused = run_script("lab", name, "--no-such-option", timeout=60)
        check_refusal((refused.returncode, refused.stdout, refused.stderr), "scripts/lab")


@pytest.mark.parametrize(
    ("command", "reason"),
    [
        (["setup"], "packages, configure or build?"),
        (["setup", "packages", "nothing"], "no such packages: nothing"),
        (["setup", "build"], "which preset?"),
        (["setup", "build", "nothing"], "no such preset: nothing"),
        (["elsewhere", "11", "true"], "which release, 12 or 13?"),
        (["elsewhere", "13"], "which command?"),
        (["clean", "all"], "it takes no argument"),
        (["run-python"], "which module, or which file?"),
        (["run-python", "-m"], "which module, or which file?"),
        (["wine"], "which program?"),
        (["soak", "soon"], "soon"),
        (["fuzz", "soon"], "soon"),
        (["test", "nothing"], "no test of windows-release is called nothing"),
        (["test", "--preset", "nothing"], "nothing"),
        (["check", "/etc/passwd"], "is not in this checkout"),
        (["lab", "nothing"], "nothing"),
        (["lab", "run", "nothing"], "nothing"),
        (["lab", "report", "/no/such", "--json"], "/no/such"),
        (["lab", "causes", "/no/such"], "scripts/lab causes: /no/such: No such file or directory\n"),
        (["lab", "causes", "/" + "x" * 300], "x: File name too long\n"),
        (["picture", "--transcript", "/no/such"], "'/no/such' cannot be read: No such file or directory"),
        (["picture", "--transcript", "/" + "x" * 300], "x' cannot be read: File name too long"),
        (["picture", "--transcript", "/etc"], "'/etc' cannot be read: Is a directory"),
        (["picture", "--transcript", str(CHECKOUT / "README.md")], "README.md' is no transcript; scripts/demo"),
        (["picture", "--transcript", "/dev/null"], "'/dev/null' is no transcript"),
        (["picture", "--transcript", "/proc/self/mem"], "'/proc/self/mem' cannot be read: Input/output error"),
        (["fuzz", "5", "--seed", "0"], "no seed from 1 to 2147483647: 0"),
        (["faults", "--seed", "1" * 10], "is not a whole number from 0 on, of at most 9 digits"),
        (["demo", "--camera", "x"], "unrecognized arguments: --camera x"),
        (["bench", "nothing"], "nothing"),
        (["coverage", "nothing"], "nothing"),
    ],
    ids=" ".join,
)
def test_bad_input_is_one_line(command: list[str], reason: str) -> None:
    done = run_script(*command, timeout=120)
    check_refusal((done.returncode, done.stdout.strip(), done.stderr), reason)


def test_wine_makes_no_machine_that_nobody_named(monkeypatch: pytest.MonkeyPatch, tmp_path: Path) -> None:
    monkeypatch.delenv("WINEPREFIX", raising=False)
    monkeypatch.setenv("HOME", str(tmp_path))
    done = run_script("wine", "cmd")
    check_refusal((done.returncode, done.stdout, done.stderr), "WINEPREFIX names no machine")
    assert list(tmp_path.iterdir()) == []


# Words.


_OTHER_NAMES = re.compile(
    r"(prompt|toast)[-_ ]?server|prompt[-_ ]?controller|(prompt|toast)[- ](program|client)", re.IGNORECASE
)


def words_of(path: Path) -> str:
    """What a person reads of a file: of a program in Python its remarks, its texts and the names of its tests."""
    text = path.read_text(encoding="utf-8", errors="replace")
    if path.suffix == ".py":
        tokens = tokenize.generate_tokens(StringIO(text).readline)
        read = (each.string for each in tokens if each.type != tokenize.NAME or each.string.startswith("test_"))
        text = "\n".join(read)
    # A name in the service's code, which texts quote.
    return f"{path.name}\n{text}".replace("promptServer_", "")


def test_the_program_that_asks_has_one_name_wherever_a_person_reads() -> None:
    """Its name is "toast controller": also in the names of test programs and tests, which a run prints, and of files."""
    paths = [path for kind in ("*.md", "*.txt", "*.json") for path in CHECKOUT.glob(kind)] + [CHECKOUT / "host/README.md"]
    for folder in (".ci", "cmake", "docs", "lab", "packaging", "scripts", "src", "tests", "toast", "trace"):
        paths += [path for path in (CHECKOUT / folder).rglob("*") if path.is_file() and "__pycache__" not in path.parts]
    found = []
    for path in paths:
        found += [f"{path.relative_to(CHECKOUT)}: {each.group()}" for each in _OTHER_NAMES.finditer(words_of(path))]
    assert found == []
