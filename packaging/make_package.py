"""Makes the release package: a ZIP and an MSI with both programs, the trace formats and the documents.

Builds the preset windows-release first. The version is the one of the top CMakeLists.txt. The times inside
are those of the commit, or of SOURCE_DATE_EPOCH if that is set: the same commit gives the same files.

exit codes: 0 made, 1 failed, with the reason on standard error, 2 wrong usage
"""

import argparse
import hashlib
import os
import re
import shutil
import struct
import subprocess
import sys
import tempfile
import time
import uuid
import zipfile
import xml.etree.ElementTree as ElementTree
from collections.abc import Mapping, Sequence
from pathlib import Path, PurePosixPath

ROOT = Path(__file__).resolve().parent.parent
BUILD = ROOT / "build" / "windows-release"
SERVICE = "VeyraCameraDfuService"
EXECUTABLE = f"{SERVICE}.exe"
TOAST_CONTROLLER = "VeyraCameraToastCntl.exe"

_PRODUCT = Path(__file__).resolve().with_name("product.wxs")
_TOAST_TEXT = _PRODUCT.with_name("VeyraCameraToastCntl.txt")
_NAMESPACE = uuid.UUID("c1de4c0f-6a3c-4f2b-9a57-0d0b1f7c8a35")
_WIX = "http://schemas.microsoft.com/wix/2006/wi"
# What a source tree without a history is dated: the first day that a ZIP can express.
_NO_DATE = 315532800
_UNIX_EPOCH_AS_FILETIME = 116444736000000000
_SUMMARY_FORMAT = uuid.UUID("f29f85e0-4ff9-1068-ab91-08002b27b3d9").bytes_le
_SUMMARY_TIMES = (12, 13)
# Deferred, as the system, its result ignored; a program of the package, or one that a property names.
_PROGRAM_ACTION = 18 + 1024 + 2048 + 64
_COMMAND_ACTION = 50 + 1024 + 2048 + 64
_IN_ROLLBACK = 256
_IN_COMMIT = 512
_ACTION_TYPES = {
    "UndoInstallService": _PROGRAM_ACTION + _IN_ROLLBACK,
    "UndoRemoveService": _PROGRAM_ACTION + _IN_ROLLBACK,
    "UndoStopService": _COMMAND_ACTION + _IN_ROLLBACK,
    "UndoRegisterToast": _PROGRAM_ACTION + _IN_ROLLBACK,
    "UndoUnregisterToast": _PROGRAM_ACTION + _IN_ROLLBACK,
    "StartServiceAgain": _COMMAND_ACTION + _IN_COMMIT,
}

_CONDITIONS = {
    # The installer touches the update mode when it is told to, and when it has written it before.
    "UpdateMode": "DFUAUTOMODE OR MODEWRITTEN",
    "ToastLeftOut": 'TOASTCONTROLLER="No" OR (TOASTLEFTOUT AND NOT TOASTCONTROLLER)',
    # What is there goes with its product, whatever a newer one has noted meanwhile.
    TOAST_CONTROLLER: 'REMOVE="ALL" OR TOASTCONTROLLER="Yes" OR (NOT TOASTCONTROLLER AND NOT TOASTLEFTOUT AND '
    "(TOASTINSTALLED OR NOT (OTHERTOAST OR REGISTEREDTOAST)))",
}

# The search for a file: the table that wixl does not make, and what stands in it and in the two others.
_FILE_SEARCH = (
    "CREATE TABLE `DrLocator` (`Signature_` CHAR(72) NOT NULL, `Parent` CHAR(72), `Path` CHAR(255), `Depth` SHORT "
    "PRIMARY KEY `Signature_`, `Parent`, `Path`)",
    f"INSERT INTO `Signature` (`Signature`, `FileName`) VALUES ('OtherToast', '{TOAST_CONTROLLER}')",
    "INSERT INTO `DrLocator` (`Signature_`, `Path`, `Depth`) VALUES ('OtherToast', '[System64Folder]', 0)",
    "INSERT INTO `AppSearch` (`Property`, `Signature_`) VALUES ('OTHERTOAST', 'OtherToast')",
)


class PackageError(Exception):
    """Why there is no package, in one line."""


def package_files(build: Path) -> dict[str, Path]:
    """What a package contains: where it lies in the package, and where it comes from."""
    documents = [*ROOT.glob("docs/*.md"), *ROOT.glob("docs/*.png")]
    sources = [ROOT / "README.md", ROOT / "CHANGELOG.md", *documents, *ROOT.glob("trace/*.tmf")]
    files = {source.relative_to(ROOT).as_posix(): source for source in sources}
    files[EXECUTABLE] = build / EXECUTABLE
    files[TOAST_CONTROLLER] = build / TOAST_CONTROLLER
    missing = [str(source) for source in files.values() if not source.is_file()]
    if missing:
        raise PackageError(f"these files are missing: {', '.join(missing)}")
    return dict(sorted(files.items()))


def product_version(build: Path) -> str:
    """The version that the build folder was configured with."""
    try:
        cache = (build / "CMakeCache.txt").read_text(encoding="utf-8")
    except OSError as error:
        raise PackageError(f"{build} is no build folder: {error.strerror}") from None
    found = re.search(r"^CMAKE_PROJECT_VERSION:\w+=(\d+\.\d+\.\d+)$", cache, re.MULTILINE)
    if not found:
        raise PackageError(f"{build} names no version of the form 1.2.3")
    return found.group(1)


def source_date() -> int:
    """The sources' time, in seconds since 1970: SOURCE_DATE_EPOCH, or the commit's; 1980 without a history."""
    given = os.environ.get("SOURCE_DATE_EPOCH")
    if given is not None:
        if not given.isdecimal():
            raise PackageError(f"SOURCE_DATE_EPOCH is no number of seconds: {given}")
        return max(int(given), _NO_DATE)
    if (ROOT / ".git").exists() and shutil.which("git"):
        command = ["git", "-C", str(ROOT), "log", "-1", "--format=%ct"]
        answer = subprocess.run(command, capture_output=True, text=True, check=False)
        if answer.stdout.strip().isdecimal():
            return max(int(answer.stdout), _NO_DATE)
    return _NO_DATE


def product_code(version: str) -> str:
    """The installer's code of one version, as the registry and msiexec /x name it."""
    return "{" + _code(f"product {version}").upper() + "}"


def make_zip(files: Mapping[str, Path], version: str, date: int, output: Path) -> None:
    """Writes the ZIP: everything in one folder that is named after the version, and how the toast controller is put in
    place, which the installer does itself."""
    with zipfile.ZipFile(output, "w", zipfile.ZIP_DEFLATED, compresslevel=9) as archive:
        for name, source in sorted({**files, _TOAST_TEXT.name: _TOAST_TEXT}.items()):
            entry = zipfile.ZipInfo(f"{SERVICE}-{version}/{name}", time.gmtime(date)[:6])
            entry.compress_type = zipfile.ZIP_DEFLATED
            entry.external_attr = 0o100644 << 16
            archive.writestr(entry, source.read_bytes())


def make_msi(files: Mapping[str, Path], version: str, date: int, output: Path) -> None:
    """Writes the MSI. The product code follows from the version, the package code from the contents."""
    with tempfile.TemporaryDirectory() as name:
        folder = Path(name)
        for path, source in files.items():
            (folder / path).parent.mkdir(parents=True, exist_ok=True)
            shutil.copyfile(source, folder / path)
            os.utime(folder / path, (date, date))
        shutil.copyfile(_PRODUCT, folder / _PRODUCT.name)
        ElementTree.ElementTree(_files_fragment(files)).write(folder / "files.wxs", encoding="utf-8")
        made = folder / "package.msi"
        product = ["-D", f"ProductCode={product_code(version)}", "-D", f"Version={version}"]
        _call(["wixl", "-a", "x64", *product, "-o", made.name, _PRODUCT.name, "files.wxs"], folder)
        _finish(made, version, _digest(files, version, date))
        _set_times(made, date)
        shutil.copyfile(made, output)


def _files_fragment(files: Mapping[str, Path]) -> ElementTree.Element:
    """The files as components of their own, in the folders that they have in the package."""
    ElementTree.register_namespace("", _WIX)
    root = _element(None, "Wix")
    fragment = _element(root, "Fragment")
    top = _element(fragment, "DirectoryRef", Id="InstallFolder")
    group = _element(fragment, "ComponentGroup", Id="Files")
    folders = {PurePosixPath("."): top}
    for name in files:
        path = PurePosixPath(name)
        if path.parent not in folders:
            folder = str(path.parent)
            folders[path.parent] = _element(top, "Directory", Id=f"Folder_{folder}", Name=folder)
        identifier = name.replace("/", ".").replace("-", "_")
        component = _element(
            folders[path.parent], "Component", Id=identifier, Guid=_code(f"component {name}"), Win64="yes"
        )
        _element(component, "File", Id=identifier, Name=path.name, Source=name, KeyPath="yes")
        if name == EXECUTABLE:
            _element(component, "ServiceControl", Id="StopService", Name=SERVICE, Stop="both", Wait="yes")
        if name == TOAST_CONTROLLER:
            # A component of its own feature. What it writes tells a later installer whose it is.
            _element(
                component, "RegistryValue", Id="ToastInstalled", Root="HKLM", Key=rf"SOFTWARE\{SERVICE}",
                Name="ToastControllerInstalled", Type="string", Value="1",
            )  # fmt: skip
        else:
            _element(group, "ComponentRef", Id=identifier)
    return root


def _element(parent: ElementTree.Element | None, name: str, **attributes: str) -> ElementTree.Element:
    element = ElementTree.Element(f"{{{_WIX}}}{name}", attributes)
    if parent is not None:
        parent.append(element)
    return element


def _finish(msi: Path, version: str, digest: str) -> None:
    """Sets what wixl has no words for."""
    queries = [
        *(f"UPDATE `CustomAction` SET `Type` = {kind} WHERE `Action` = '{action}'" for action, kind in _ACTION_TYPES.items()),
        *(
            f"UPDATE `Component` SET `Condition` = '{condition}' WHERE `Component` = '{component}'"
            for component, condition in _CONDITIONS.items()
        ),
        *_FILE_SEARCH,
        *(
            f"UPDATE `File` SET `Version` = '{version}.0', `Language` = '1033' WHERE `File` = '{program}'"
            for program in (EXECUTABLE, TOAST_CONTROLLER)
        ),
        # What is searched for in the user interface's sequence is not searched for again, and does not reach the other one.
        "DELETE FROM `InstallUISequence` WHERE `Action` = 'AppSearch'",
        "DELETE FROM `InstallUISequence` WHERE `Action` = 'LaunchConditions'",
        *(f"DELETE FROM `MsiFileHash` WHERE `File_` = '{program}'" for program in (EXECUTABLE, TOAST_CONTROLLER)),
    ]
    for query in queries:
        _call(["msibuild", msi.name, "-q", query], msi.parent)
    code = "{" + _code(f"package {digest}").upper() + "}"
    title = f"Veyra Camera DFU service {version}"
    _call(["msibuild", msi.name, "-s", title, "Veyra", "x64;1033", code], msi.parent)


def _set_times(msi: Path, date: int) -> None:
    """Overwrites the times of creation and saving in the summary, which are the present."""
    content = bytearray(msi.read_bytes())
    header = content.find(_SUMMARY_FORMAT)
    if header < 0 or content.find(_SUMMARY_FORMAT, header + 1) >= 0:
        raise PackageError("the installer has no summary in the expected form")
    # The format id and the section's offset follow the 28 bytes of the stream's header.
    section = header - 28 + struct.unpack_from("<I", content, header + 16)[0]
    for index in range(struct.unpack_from("<I", content, section + 4)[0]):
        kind, offset = struct.unpack_from("<II", content, section + 8 + 8 * index)
        if kind in _SUMMARY_TIMES:
            struct.pack_into("<Q", content, section + offset + 4, _UNIX_EPOCH_AS_FILETIME + date * 10_000_000)
    msi.write_bytes(content)


def _code(name: str) -> str:
    """A GUID that is the same for the same name."""
    return str(uuid.uuid5(_NAMESPACE, name))


def _digest(files: Mapping[str, Path], version: str, date: int) -> str:
    """Changes with everything that the installer is made of."""
    digest = hashlib.sha256(f"{version} {date}".encode())
    for name, source in {**files, "": _PRODUCT, "make_package": Path(__file__)}.items():
        digest.update(name.encode() + b"\0" + hashlib.sha256(source.read_bytes()).digest())
    return digest.hexdigest()


def _call(command: Sequence[str], folder: Path) -> None:
    """Runs a packaging tool. The cabinet holds local times, so it gets a fixed zone."""
    if not shutil.which(command[0]):
        raise PackageError(f"{command[0]} is missing: apt-get install wixl msitools")
    answer = subprocess.run(
        command, cwd=folder, env={**os.environ, "TZ": "UTC"}, capture_output=True, text=True, check=False
    )
    # wixl reports what it does not understand and goes on: that is no package.
    words = (answer.stderr + answer.stdout).strip().splitlines()
    if answer.returncode != 0 or words:
        raise PackageError(f"{command[0]} failed with {answer.returncode}: {' '.join(words)}")


def _build() -> None:
    setup = ["bash", str(ROOT / "scripts" / "setup")]
    for step in (["packages", "package"], ["build", BUILD.name, SERVICE, "toast_controller"]):
        answer = subprocess.run([*setup, *step], check=False, stdin=subprocess.DEVNULL, stdout=sys.stderr)
        if answer.returncode != 0:
            raise PackageError(f"scripts/setup {' '.join(step)} failed")


def main() -> int:
    parser = argparse.ArgumentParser(
        prog="scripts/package", description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter
    )
    parser.add_argument(
        "--output", type=Path, metavar="FOLDER", default=ROOT / "build" / "package",
        help="where the two files go (default: build/package)",
    )
    output = parser.parse_args().output
    try:
        _build()
        version, date, files = product_version(BUILD), source_date(), package_files(BUILD)
        output.mkdir(parents=True, exist_ok=True)
        for make, suffix in ((make_zip, "zip"), (make_msi, "msi")):
            package = output / f"{SERVICE}-{version}.{suffix}"
            make(files, version, date, package)
            print(package)
    except (PackageError, OSError) as error:
        print(f"scripts/package: {error}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
