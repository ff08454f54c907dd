"""Makes the release: a ZIP and an MSI with the programs, the trace formats, the policy template and the operators'
documents; a ZIP of the symbols; a bill of materials; the digests of all of them; and, when it is known where they can be
fetched, manifests for winget.

Builds the preset windows-release first. The version is the one of the top CMakeLists.txt. The times inside
are those of the commit, or of SOURCE_DATE_EPOCH if that is set: the same commit gives the same files, unless they are
signed.

exit codes: 0 made, 1 failed, with the reason on standard error, 2 wrong usage
"""

import argparse
import errno
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
from collections.abc import Iterable, Mapping, Sequence
from dataclasses import dataclass, field
from pathlib import Path, PurePosixPath

from veyra_lab.terminal.parser import Parser
from veyra_release.errors import PackageError
from veyra_release.linked import Linked, of_programs
from veyra_release.notices import notices
from veyra_release.sbom import sbom
from veyra_release.signing import command_words, sign
from veyra_release.winget import manifests

ROOT = Path(__file__).resolve().parent.parent
BUILD = ROOT / "build" / "windows-release"
SERVICE = "VeyraCameraDfuService"
EXECUTABLE = f"{SERVICE}.exe"
TOAST_CONTROLLER = "VeyraCameraToastCntl.exe"
CHECK = "VeyraCameraDfuCheck.exe"
_PROGRAMS = (EXECUTABLE, TOAST_CONTROLLER, CHECK)
MESSAGES = "VeyraCameraDfuMessages.dll"
# Runs out of the installer, and is in no other package.
START_TYPE_TOOL = "set_start_type.exe"
NOTICES = "THIRD-PARTY-NOTICES.txt"
# What is built for a release.
TARGETS = (SERVICE, "toast_controller", "VeyraCameraDfuCheck", "service_messages", "set_start_type")
UPGRADE_CODE = "{6B1D3C52-6A5E-4F0E-9D4E-2F6F3A1F0C77}"
# The documents for those who run the service; the others are for those who change it.
_DOCUMENTS = ("check.md", "fleet.md", "hardware-checklist.md", "operations.md", "security.md", "toast-controller.md",
              "windows.md")
# The words' own version: see packaging/messages/Messages.rc.
_MESSAGES_VERSION = "1.0.0.0"
_EVENT_SOURCE = rf"SYSTEM\CurrentControlSet\Services\EventLog\Application\{SERVICE}"

_PRODUCT = Path(__file__).resolve().with_name("product.wxs")
_TOAST_TEXT = _PRODUCT.with_name("VeyraCameraToastCntl.txt")
_README = _PRODUCT.with_name("README.md")
_POLICY = _PRODUCT.with_name("policy")
_ICON = ROOT / "toast" / "program" / "Camera.ico"
_NAMESPACE = uuid.UUID("c1de4c0f-6a3c-4f2b-9a57-0d0b1f7c8a35")
_WIX = "http://schemas.microsoft.com/wix/2006/wi"
# What a source tree without a history is dated: the first day that a ZIP can express.
_NO_DATE = 315532800
# The last second that one can.
_LAST_DATE = 4354819199
_UNIX_EPOCH_AS_FILETIME = 116444736000000000
_SUMMARY_FORMAT = uuid.UUID("f29f85e0-4ff9-1068-ab91-08002b27b3d9").bytes_le
_SUMMARY_TIMES = (12, 13)
# Deferred, as the system, its result ignored; a program of the package, or one that a property names.
_PROGRAM_ACTION = 18 + 1024 + 2048 + 64
_COMMAND_ACTION = 50 + 1024 + 2048 + 64
# Deferred, as the system: a program out of the installer.
_BINARY_ACTION = 2 + 1024 + 2048
_IN_ROLLBACK = 256
_IN_COMMIT = 512
_ACTION_TYPES = {
    "ApplyStartType": _BINARY_ACTION,
    "UndoInstallService": _PROGRAM_ACTION + _IN_ROLLBACK,
    "UndoRemoveService": _PROGRAM_ACTION + _IN_ROLLBACK,
    "UndoStopService": _COMMAND_ACTION + _IN_ROLLBACK,
    "UndoRegisterToast": _PROGRAM_ACTION + _IN_ROLLBACK,
    "UndoUnregisterToast": _PROGRAM_ACTION + _IN_ROLLBACK,
    "StartServiceAgain": _COMMAND_ACTION + _IN_COMMIT,
    "StartService": _COMMAND_ACTION + _IN_COMMIT,
}

_CONDITIONS = {
    # The installer touches the update mode when it is told to, and when it has written it before.
    "UpdateMode": "DFUAUTOMODE OR MODEWRITTEN",
    "StartType": "STARTTYPE OR STARTTYPEGIVEN",
    "StartService": "STARTSERVICE OR STARTSERVICEGIVEN",
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


# An address as it stands in the installer and in the manifests: nothing in it that either would take for something else.
_ADDRESS = re.compile(r"https?://[A-Za-z0-9.\-]+(?::\d+)?(?:/[A-Za-z0-9._~/\-]*)?")


@dataclass(frozen=True)
class Entry:
    """What the list of programs shows beside name and version."""

    icon: Path = _ICON
    help_address: str = ""


def package_files(build: Path) -> dict[str, Path]:
    """What a package contains: where it lies in the package, and where it comes from. The notices are made from the maps of
    the build's programs, and lie in its folder from then on."""
    documents = [ROOT / "docs" / name for name in _DOCUMENTS]
    sources = [ROOT / "CHANGELOG.md", *documents, *ROOT.glob("docs/toast-*.png"), *ROOT.glob("trace/*.tmf")]
    files = {source.relative_to(ROOT).as_posix(): source for source in sources}
    files |= {f"policy/{source.relative_to(_POLICY).as_posix()}": source for source in _POLICY.rglob("*.adm[lx]")}
    files["README.md"] = _README
    files |= {name: build / name for name in (*_PROGRAMS, MESSAGES)}
    missing = [str(source) for source in files.values() if not source.is_file()]
    if missing:
        raise PackageError(f"these files are missing: {', '.join(missing)}")
    files[NOTICES] = _notices(build, files)
    return dict(sorted(files.items()))


def linked_parts(build: Path, files: Mapping[str, Path]) -> Linked:
    """What of others is linked into the programs of a package, and into the installer's own."""
    return of_programs(build / name for name in [*filter(_is_program, files), START_TYPE_TOOL])


def _is_program(name: str) -> bool:
    return name.endswith(".exe")


def _notices(build: Path, files: Mapping[str, Path]) -> Path:
    path, text = build / NOTICES, notices(linked_parts(build, files))
    if not path.exists() or path.read_text(encoding="utf-8") != text:
        # Another process may be reading it.
        with tempfile.NamedTemporaryFile("w", encoding="utf-8", dir=build, delete=False) as made:
            made.write(text)
        Path(made.name).chmod(0o644)
        Path(made.name).replace(path)
    return path


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
        # Python takes no number of thousands of digits.
        if not given.isdecimal() or len(given) > len(str(_LAST_DATE)) or int(given) > _LAST_DATE:
            raise PackageError(f"SOURCE_DATE_EPOCH is no number of seconds up to the year 2107: {given[:40]}")
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
    _write_zip({**files, _TOAST_TEXT.name: _TOAST_TEXT}, f"{SERVICE}-{version}", date, output)


def _write_zip(files: Mapping[str, Path], folder: str, date: int, output: Path) -> None:
    with zipfile.ZipFile(output, "w", zipfile.ZIP_DEFLATED, compresslevel=9) as archive:
        for name, source in sorted(files.items()):
            entry = zipfile.ZipInfo(f"{folder}/{name}", time.gmtime(date)[:6])
            entry.compress_type = zipfile.ZIP_DEFLATED
            entry.external_attr = 0o100644 << 16
            archive.writestr(entry, source.read_bytes())


def make_symbols(files: Mapping[str, Path], build: Path, version: str, date: int, output: Path) -> None:
    """Writes the ZIP of the symbols: of each program the file that ships, and the one that scripts/symbolize reads."""
    programs = {name: source for name, source in files.items() if _is_program(name)}
    symbols = {f"{name}.debug": build / f"{name}.debug" for name in programs}
    _write_zip(programs | symbols, f"{SERVICE}-{version}-symbols", date, output)


def make_msi(
    files: Mapping[str, Path], version: str, date: int, output: Path, tool: Path | None = None, entry: Entry = Entry()
) -> None:
    """Writes the MSI. The product code follows from the version, the package code from the contents. `tool` sets the
    service's start type; the one of the release build when it is not given."""
    tool = tool or BUILD / START_TYPE_TOOL
    with tempfile.TemporaryDirectory() as name:
        folder = Path(name)
        for path, source in files.items():
            (folder / path).parent.mkdir(parents=True, exist_ok=True)
            shutil.copyfile(source, folder / path)
            os.utime(folder / path, (date, date))
        besides = {_PRODUCT.name: _PRODUCT, START_TYPE_TOOL: tool, _ICON.name: entry.icon}
        for path, source in besides.items():
            shutil.copyfile(source, folder / path)
        ElementTree.ElementTree(_files_fragment(files)).write(folder / "files.wxs", encoding="utf-8")
        made = folder / "package.msi"
        product = ["-D", f"ProductCode={product_code(version)}", "-D", f"Version={version}"]
        _call(["wixl", "-a", "x64", *product, "-o", made.name, _PRODUCT.name, "files.wxs"], folder)
        digest = _digest({**files, **besides}, f"{version} {date} {entry.help_address}")
        _finish(made, version, digest, entry.help_address)
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
        for folder in [*reversed(path.parents)][1:]:
            if folder not in folders:
                identifier = f"Folder_{folder}".replace("/", ".").replace("-", "_")
                folders[folder] = _element(folders[folder.parent], "Directory", Id=identifier, Name=folder.name)
        identifier = name.replace("/", ".").replace("-", "_")
        component = _element(
            folders[path.parent], "Component", Id=identifier, Guid=_code(f"component {name}"), Win64="yes"
        )
        _element(component, "File", Id=identifier, Name=path.name, Source=name, KeyPath="yes")
        if name == EXECUTABLE:
            _element(component, "ServiceControl", Id="StopService", Name=SERVICE, Stop="both", Wait="yes")
        if name == MESSAGES:
            for value, kind, data in (
                ("EventMessageFile", "string", f"[InstallFolder]{MESSAGES}"), ("TypesSupported", "integer", "7"),
            ):  # fmt: skip
                _element(
                    component, "RegistryValue",
                    Id=value, Root="HKLM", Key=_EVENT_SOURCE, Name=value, Type=kind, Value=data,
                )  # fmt: skip
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


def _finish(msi: Path, version: str, digest: str, help_address: str) -> None:
    """Sets what wixl has no words for."""
    versions = {program: f"{version}.0" for program in _PROGRAMS} | {MESSAGES: _MESSAGES_VERSION}
    queries = [
        *(f"UPDATE `CustomAction` SET `Type` = {kind} WHERE `Action` = '{action}'" for action, kind in _ACTION_TYPES.items()),
        *(
            f"UPDATE `Component` SET `Condition` = '{condition}' WHERE `Component` = '{component}'"
            for component, condition in _CONDITIONS.items()
        ),
        *_FILE_SEARCH,
        *(
            f"UPDATE `File` SET `Version` = '{number}', `Language` = '1033' WHERE `File` = '{program}'"
            for program, number in versions.items()
        ),
        # What is searched for in the user interface's sequence is not searched for again, and does not reach the other one.
        "DELETE FROM `InstallUISequence` WHERE `Action` = 'AppSearch'",
        "DELETE FROM `InstallUISequence` WHERE `Action` = 'LaunchConditions'",
        *(f"DELETE FROM `MsiFileHash` WHERE `File_` = '{program}'" for program in versions),
    ]
    if help_address:
        queries.append(f"INSERT INTO `Property` (`Property`, `Value`) VALUES ('ARPHELPLINK', '{help_address}')")
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


def _digest(files: Mapping[str, Path], words: str) -> str:
    """Changes with everything that the installer is made of."""
    digest = hashlib.sha256(words.encode())
    for name, source in {**files, "make_package": Path(__file__)}.items():
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
    for step in (["packages", "package"], ["build", BUILD.name, *TARGETS]):
        answer = subprocess.run([*setup, *step], check=False, stdin=subprocess.DEVNULL, stdout=sys.stderr)
        if answer.returncode != 0:
            raise PackageError(f"scripts/setup {' '.join(step)} failed")


def write_sums(paths: Iterable[Path], output: Path) -> None:
    """Writes the digests of files that lie in one folder, as sha256sum does."""
    lines = (f"{hashlib.sha256(path.read_bytes()).hexdigest()}  {path.name}\n" for path in paths)
    output.write_text("".join(sorted(lines, key=lambda line: line[66:])), encoding="utf-8")


def distribution() -> str:
    """Debian's release that builds here, as "debian-12"."""
    pairs = (line.partition("=") for line in Path("/etc/os-release").read_text(encoding="utf-8").splitlines())
    fields = {name: text.strip('"') for name, _, text in pairs}
    return f"{fields.get('ID', 'unknown')}-{fields.get('VERSION_ID', 'unknown')}"


@dataclass(frozen=True)
class Release:
    """What is to be made, of which build, and how."""

    build: Path
    output: Path
    signing: list[str] = field(default_factory=list)
    entry: Entry = Entry()
    download_address: str = ""

    def make(self) -> list[Path]:
        """Makes all files of the release; their paths, the digests last."""
        version, date, files = product_version(self.build), source_date(), package_files(self.build)
        self.output.mkdir(parents=True, exist_ok=True)
        with tempfile.TemporaryDirectory() as name:
            files, tool = self._signed(files, Path(name))
            stem = self.output / f"{SERVICE}-{version}"
            archive, installer, symbols, materials = (
                stem.with_name(stem.name + end) for end in (".zip", ".msi", "-symbols.zip", ".spdx.json")
            )
            make_zip(files, version, date, archive)
            make_msi(files, version, date, installer, tool, self.entry)
            if self.signing:
                sign(self.signing, installer)
            make_symbols(files, self.build, version, date, symbols)
            linked = linked_parts(self.build, files)
            described = {**files, _TOAST_TEXT.name: _TOAST_TEXT, START_TYPE_TOOL: tool}
            told = sbom(SERVICE, version, date, described, (archive, installer), symbols, linked, distribution())
            materials.write_text(told, encoding="utf-8")
        made = [archive, installer, symbols, materials, *self._manifests(version, installer)]
        sums = self.output / "SHA256SUMS"
        write_sums(made, sums)
        return [*made, sums]

    def _signed(self, files: Mapping[str, Path], folder: Path) -> tuple[Mapping[str, Path], Path]:
        """The package's files and the installer's tool, signed copies in place of what has code or words in it."""
        tool = self.build / START_TYPE_TOOL
        if not self.signing:
            return files, tool
        copies = {}
        for name, source in {**files, START_TYPE_TOOL: tool}.items():
            if name.endswith((".exe", ".dll")):
                copies[name] = folder / name
                shutil.copyfile(source, copies[name])
                sign(self.signing, copies[name])
        tool = copies.pop(START_TYPE_TOOL)
        return {**files, **copies}, tool

    def _manifests(self, version: str, installer: Path) -> list[Path]:
        if not self.download_address:
            return []
        address = f"{self.download_address.rstrip('/')}/{installer.name}"
        digest = hashlib.sha256(installer.read_bytes()).hexdigest()
        texts = manifests(version, address, digest, product_code(version), UPGRADE_CODE)
        for name, text in texts.items():
            (self.output / name).write_text(text, encoding="utf-8")
        return [self.output / name for name in texts]


def _address(text: str) -> str:
    if not _ADDRESS.fullmatch(text):
        raise argparse.ArgumentTypeError(f"'{text}' is no plain http or https address")
    return text


def _command(text: str) -> list[str]:
    try:
        words = command_words(text)
    except PackageError as error:
        raise argparse.ArgumentTypeError(str(error)) from None
    if not shutil.which(words[0]):
        raise argparse.ArgumentTypeError(f"the signing command {words[0]} is no program")
    return words


def _folder(text: str) -> Path:
    """A folder that is there, or can be made."""
    path = Path(text)
    for place in (path.absolute(), *path.absolute().parents):
        try:
            place.lstat()
        except (FileNotFoundError, NotADirectoryError):
            continue
        except OSError as error:
            raise argparse.ArgumentTypeError(f"'{text}' cannot be a folder: {error.strerror}") from None
        if not place.is_dir():
            raise argparse.ArgumentTypeError(f"'{text}' cannot be made: {place} is no folder")
        if not os.access(place, os.W_OK | os.X_OK):
            raise argparse.ArgumentTypeError(f"'{text}' cannot be written: {os.strerror(errno.EACCES)}")
        break
    return path


def _icon(text: str) -> Path:
    path = Path(text)
    try:
        with path.open("rb") as icon:
            head = icon.read(4)
    except OSError as error:
        raise argparse.ArgumentTypeError(f"'{text}' cannot be read: {error.strerror}") from None
    if head != b"\0\0\1\0":
        raise argparse.ArgumentTypeError(f"'{text}' is no icon of Windows")
    return path


def _options() -> argparse.Namespace:
    parser = Parser(prog="scripts/package", description=__doc__)
    parser.add_argument(
        "--output", type=_folder, metavar="FOLDER", default=ROOT / "build" / "package",
        help="where the files go (default: build/package)",
    )
    parser.add_argument(
        "--sign", type=_command, default=[], metavar="COMMAND",
        help="sign every program, the DLL and the installer: COMMAND, whose last word will be a file's path, signs that file "
        "in its place",
    )
    parser.add_argument(
        "--icon", type=_icon, default=_ICON, metavar="FILE",
        help="the icon in the list of programs (default: the toast controller's)",
    )
    parser.add_argument(
        "--help-address", type=_address, metavar="URL", help="the help address in the list of programs (default: none)"
    )
    parser.add_argument(
        "--download-address", type=_address, metavar="URL",
        help="the folder from which the installer will be fetched: makes winget's manifests, too",
    )  # fmt: skip
    options = parser.parse_args()
    try:
        source_date()
    except PackageError as error:
        parser.error(str(error))
    return options


def main() -> int:
    options = _options()
    try:
        _build()
        entry = Entry(options.icon, options.help_address or "")
        for path in Release(BUILD, options.output, options.sign, entry, options.download_address or "").make():
            print(path)
    except (PackageError, OSError) as error:
        print(f"scripts/package: {error}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
