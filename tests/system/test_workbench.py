"""What scripts/test counts and chooses, what scripts/check takes, and which build folders scripts/setup makes anew.
Nothing is built here."""

import os
import shutil
import subprocess
import sys
from collections.abc import Sequence
from pathlib import Path

import pytest
from support import CHECKOUT, Run, check_refusal

sys.path.insert(0, str(CHECKOUT / "scripts"))

from workbench import builds, check  # noqa: E402
from workbench import test as scripts_test  # noqa: E402
from workbench.interruption import status_of  # noqa: E402
from workbench.results import closing_line  # noqa: E402
from workbench.test import UnknownNameError, choose  # noqa: E402

_CHECKED = next(build for build in builds.BUILDS if build.preset == "windows-checked")
_PROGRAMS = (
    builds.TestProgram("dfu_test", "dfu", slow=False),
    builds.TestProgram("fdu_service_test", "service", slow=False),
    builds.TestProgram("rig_test", "lab/rig", slow=False),
    builds.TestProgram("product_test", "", slow=False),
)


def result_file(folder: Path, *cases: str) -> Path:
    """What a test program leaves, with these cases."""
    path = folder / f"program_{len(list(folder.iterdir()))}.xml"
    path.write_text(f"<testsuites><testsuite>{''.join(cases)}</testsuite></testsuites>", encoding="utf-8")
    return path


PASSED = '<testcase classname="Engine" name="Loads" status="run"/>'
FAILED = '<testcase classname="Engine" name="Sends" status="run"><failure message="no"/></testcase>'
BROKEN = '<testcase classname="test_road" name="test_road"><error message="no machine"/></testcase>'
SKIPPED = '<testcase classname="Engine" name="Waits"><skipped message="File.cpp:3&#10;no clock here"/></testcase>'
LEFT_OUT = '<testcase classname="Engine" name="Ends" status="notrun"/>'


def test_cases_of_all_files_are_counted(tmp_path: Path) -> None:
    files = [result_file(tmp_path, PASSED, PASSED, LEFT_OUT), result_file(tmp_path, PASSED)]
    assert closing_line(files, held=True) == ("3 passed, 0 failed", True)


def test_failures_and_errors_are_failed_cases(tmp_path: Path) -> None:
    files = [result_file(tmp_path, PASSED, FAILED), result_file(tmp_path, BROKEN)]
    assert closing_line(files, held=False) == ("1 passed, 2 failed", False)


def test_skipped_cases_are_listed_with_their_reason(tmp_path: Path, capsys: pytest.CaptureFixture[str]) -> None:
    assert closing_line([result_file(tmp_path, PASSED, SKIPPED)], held=True) == ("1 passed, 0 failed, 1 skipped", True)
    assert capsys.readouterr().out == "skipped: Engine.Waits: no clock here\n"


def test_missing_or_torn_file_is_a_failed_case(tmp_path: Path, capsys: pytest.CaptureFixture[str]) -> None:
    torn = tmp_path / "torn_test.xml"
    torn.write_text("<testsuites><testcase", encoding="utf-8")
    files = [result_file(tmp_path, PASSED), tmp_path / "missing_test.xml", torn]
    assert closing_line(files, held=True) == ("1 passed, 2 failed", False)
    assert capsys.readouterr().out == "missing_test did not run to its end\ntorn_test did not run to its end\n"


def test_run_that_did_not_hold_is_never_without_a_failed_case(tmp_path: Path) -> None:
    assert closing_line([result_file(tmp_path, PASSED)], held=False) == ("1 passed, 1 failed", False)


def test_run_without_a_case_is_no_success(tmp_path: Path) -> None:
    assert closing_line([result_file(tmp_path, LEFT_OUT)], held=True) == ("0 passed, 0 failed", False)


@pytest.mark.parametrize("name", ["rig_test", "rig", "lab/rig"])
def test_program_answers_to_its_name_and_its_folder(name: str) -> None:
    assert [program.name for program in _PROGRAMS if program.answers_to(name)] == ["rig_test"]


@pytest.mark.parametrize("name", ["lab", "rig_tes", "test", "rig_test.exe"])
def test_program_answers_to_nothing_else(name: str) -> None:
    assert not any(program.answers_to(name) for program in _PROGRAMS)


def test_names_choose_programs_and_system_tests() -> None:
    programs, system = choose(builds.RELEASE, _PROGRAMS, ["dfu", "road", "fdu_service"])
    assert [program.name for program in programs] == ["dfu_test", "fdu_service_test"]
    assert system == ["test_road.py"]


def test_no_name_chooses_every_program() -> None:
    assert choose(_CHECKED, _PROGRAMS, []) == (list(_PROGRAMS), [])


@pytest.mark.parametrize(("build", "name"), [(builds.RELEASE, "no_such_test"), (_CHECKED, "road")])
def test_unknown_name_is_refused_with_those_that_the_build_knows(build: builds.Build, name: str) -> None:
    with pytest.raises(UnknownNameError, match=f"^no test of {build.preset} is called {name}; it knows ") as refusal:
        choose(build, _PROGRAMS, ["dfu", name])
    known = str(refusal.value).partition("it knows ")[2].split(", ")
    assert {"dfu", "lab/rig", "product_test", "service"} <= set(known)
    assert ("road" in known) == (build is builds.RELEASE)


@pytest.fixture
def built(monkeypatch: pytest.MonkeyPatch) -> Sequence[str]:
    """Nothing is set up, built or run; here is what would be built."""
    targets: list[str] = []
    monkeypatch.setattr(scripts_test, "call_setup", lambda *arguments: None)
    monkeypatch.setattr(scripts_test, "programs_of", lambda build: _PROGRAMS)
    monkeypatch.setattr(scripts_test.Run, "configure", lambda *arguments: True)
    monkeypatch.setattr(scripts_test.Run, "build", lambda run, build, chosen=("all",): targets.extend(chosen))
    return targets


def test_unknown_name_is_told_in_one_line_and_nothing_is_built(run: Run, built: Sequence[str]) -> None:
    status, _, errors = run(scripts_test.main, "--preset", "windows-checked", "road")
    assert (status, errors.count("\n")) == (2, 1)
    assert errors.startswith("scripts/test: no test of windows-checked is called road; it knows ")
    assert built == []


@pytest.mark.parametrize(
    ("arguments", "targets"),
    [
        (["dfu"], ["dfu_test"]),
        (["--preset", "windows-checked"], [program.name for program in _PROGRAMS]),
        (
            ["--preset", "windows-clang"],
            ["VeyraCameraDfuService", "toast_controller", "VeyraCameraDfuCheck", *(program.name for program in _PROGRAMS)],
        ),
        (["--preset", "host-sanitize"], ["all"]),
    ],
)
def test_what_is_chosen_is_built(
    run: Run, built: Sequence[str], arguments: Sequence[str], targets: Sequence[str]
) -> None:
    run(scripts_test.main, *arguments)
    assert built == targets


@pytest.mark.parametrize(
    ("arguments", "because"),
    [(("--all", "src/service/Main.cpp"), "no FILE beside it"), (("/etc/hosts",), "/etc/hosts is not in this checkout")],
)
def test_check_refuses_files_that_it_would_not_look_at(run: Run, arguments: Sequence[str], because: str) -> None:
    check_refusal(run(check.main, *arguments), because)


def test_every_header_of_the_product_is_tidied_with_a_source() -> None:
    headers = [path.relative_to(CHECKOUT) for house in ("src", "toast") for path in (CHECKOUT / house).rglob("*.h")]
    assert [str(header) for header in headers if not check.source_for(header)] == []
    assert check.source_for(Path("src/dfu/DfuCommand.h")) == Path("src/dfu/DfuCommand.cpp")
    assert check.source_for(Path("toast/conversation/Event.h"))


def test_check_without_git_wants_the_files_named(run: Run, monkeypatch: pytest.MonkeyPatch, tmp_path: Path) -> None:
    monkeypatch.setenv("PATH", str(tmp_path))
    check_refusal(run(check.main), "git does not tell which files there are")


def test_interrupted_program_says_so_in_one_line(capsys: pytest.CaptureFixture[str]) -> None:
    def interrupted() -> int:
        raise KeyboardInterrupt

    assert status_of(interrupted, "scripts/check") == 130
    assert capsys.readouterr() == ("", "scripts/check: interrupted\n")
    assert status_of(lambda: 1, "scripts/check") == 1


class Checkout:
    """A folder with scripts/setup alone, and for its PATH a cmake and compilers that do little but say so."""

    def __init__(self, root: Path, tools: Path) -> None:
        (root / "scripts").mkdir(parents=True)
        shutil.copy(CHECKOUT / "scripts" / "setup", root / "scripts")
        self.root = root
        self._tools = tools
        self.set_compiler("14.2")
        make_folder = 'mkdir -p "build/$2" && touch "build/$2/build.ninja"'
        self.add_tool("cmake", f'echo "$1 $2"; [ "$1" = --build ] || {{ {make_folder}; }}')

    def add_tool(self, name: str, text: str) -> None:
        """A program that a shell's text is."""
        self._tools.mkdir(exist_ok=True)
        path = self._tools / name
        path.write_text(f"#!/bin/sh\n{text}\n", encoding="utf-8")
        path.chmod(0o755)

    def set_compiler(self, version: str) -> None:
        """Another compiler is installed."""
        for name in ("x86_64-w64-mingw32-g++-posix", "clang++"):
            self.add_tool(name, f"echo {name} {version}")

    def setup(self, *arguments: str) -> Sequence[str]:
        """What scripts/setup and the tools print."""
        done = subprocess.run(
            ["bash", str(self.root / "scripts" / "setup"), *arguments],
            env={**os.environ, "PATH": f"{self._tools}:{os.environ['PATH']}"},
            capture_output=True,
            text=True,
            check=True,
        )
        return done.stdout.splitlines()


_KERNEL = "linux-image-6.1.0-1-amd64"


def test_kernel_is_unpacked_once(checkout: Checkout) -> None:
    checkout.add_tool("dpkg-query", 'shift 2; for package; do echo "$package installed"; done')
    checkout.add_tool("apt-cache", f"printf 'linux-image-amd64\\n  Depends: {_KERNEL}\\n'")
    checkout.add_tool("apt-get", f"touch {_KERNEL}_6.1-1_amd64.deb")
    checkout.add_tool("dpkg-deb", 'mkdir "$3"; touch "$3/file"')
    assert checkout.setup("packages", "usb") == [f"fetching {_KERNEL}"]
    unpacked = [path.relative_to(checkout.root) for path in checkout.root.glob("build/guest/kernel/*/*")]
    folder = Path("build/guest/kernel") / f"{_KERNEL}_6.1-1_amd64"
    assert sorted(unpacked) == [folder / "file", folder / "unpacked"]
    assert checkout.setup("packages", "usb") == []


_ANEW = "build/{} was made for another folder or another compiler: building it anew"


@pytest.fixture
def checkout(tmp_path: Path) -> Checkout:
    return Checkout(tmp_path / "check out", tmp_path / "tools")


@pytest.mark.parametrize("preset", ["windows-release", "host-sanitize"])
def test_build_folder_is_configured_once(checkout: Checkout, preset: str) -> None:
    assert checkout.setup("configure", preset) == [f"--preset {preset}"]
    assert checkout.setup("configure", preset) == []
    assert checkout.setup("build", preset, "target") == ["--build --preset"]


@pytest.mark.parametrize("preset", ["windows-release", "host-sanitize"])
def test_build_folder_of_another_compiler_is_made_anew(checkout: Checkout, preset: str) -> None:
    checkout.setup("configure", preset)
    old = checkout.root / "build" / preset / "old.o"
    old.touch()
    checkout.set_compiler("12.2")
    assert checkout.setup("configure", preset) == [_ANEW.format(preset), f"--preset {preset}"]
    assert not old.exists()
    assert checkout.setup("configure", preset) == []


def test_build_folder_of_a_moved_checkout_is_made_anew(checkout: Checkout) -> None:
    checkout.setup("configure", "windows-release")
    checkout.root = checkout.root.rename(checkout.root.with_name("moved"))
    assert checkout.setup("configure", "windows-release") == [
        _ANEW.format("windows-release"),
        "--preset windows-release",
    ]
    assert checkout.setup("configure", "windows-release") == []


def test_build_folder_of_a_copied_checkout_is_made_anew_and_the_first_stays(checkout: Checkout) -> None:
    checkout.setup("configure", "windows-release")
    first, checkout.root = checkout.root, shutil.copytree(checkout.root, checkout.root.with_name("copy"))
    assert checkout.setup("configure", "windows-release")[0] == _ANEW.format("windows-release")
    checkout.root = first
    assert checkout.setup("configure", "windows-release") == []


def test_build_folder_whose_purpose_is_not_told_is_made_anew(checkout: Checkout) -> None:
    checkout.setup("configure", "windows-release")
    (checkout.root / "build" / "windows-release" / "purpose").unlink()
    assert checkout.setup("build", "windows-release") == [
        _ANEW.format("windows-release"),
        "--preset windows-release",
        "--build --preset",
    ]
