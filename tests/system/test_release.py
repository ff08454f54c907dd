"""What a release has beside the installer that test_package tries: notices, bill of materials, digests, symbols,
signatures, policy template and winget's manifests. No Windows machine is needed."""

import hashlib
import json
import os
import re
import shutil
import struct
import subprocess
import sys
import uuid
import zipfile
import xml.etree.ElementTree as ElementTree
import zlib
from functools import cache
from pathlib import Path
from typing import Any

import make_package as packaging
import pytest
from support import BUILD, CHECKOUT, Run, check_refusal, slow
from veyra_release import linked, signing
from veyra_release.errors import PackageError

_VERSION = packaging.product_version(BUILD)
_STEM = f"{packaging.SERVICE}-{_VERSION}"
_DATE = "1700000000"
_SERVICE = f"{packaging.SERVICE}.exe"
_POLICY_NAMESPACE = {"p": "http://schemas.microsoft.com/GroupPolicy/2006/07/PolicyDefinitions"}


@pytest.fixture(scope="module")
def release(tmp_path_factory: pytest.TempPathFactory) -> Path:
    """The folder of a release that is not signed."""
    folder = tmp_path_factory.mktemp("release")
    with pytest.MonkeyPatch.context() as environment:
        environment.setenv("SOURCE_DATE_EPOCH", _DATE)
        entry = packaging.Entry(help_address="https://help.example/cameras")
        packaging.Release(BUILD, folder, [], entry, "https://download.example/1.0/").make()
    return folder


@cache
def programs() -> set[str]:
    """The names of the package's programs."""
    found = {name for name in packaging.package_files(BUILD) if name.endswith(".exe")}
    assert {_SERVICE, "VeyraCameraToastCntl.exe"} <= found
    return found


@cache
def parts() -> linked.Linked:
    """What is linked into the programs."""
    return packaging.linked_parts(BUILD, packaging.package_files(BUILD))


def test_a_release_has_these_files(release: Path) -> None:
    assert {path.name for path in release.iterdir()} == {
        f"{_STEM}.zip",
        f"{_STEM}.msi",
        f"{_STEM}-symbols.zip",
        f"{_STEM}.spdx.json",
        "Veyra.CameraDfuService.yaml",
        "Veyra.CameraDfuService.installer.yaml",
        "Veyra.CameraDfuService.locale.en-US.yaml",
        "SHA256SUMS",
    }


def test_its_digests_are_those_of_its_files(release: Path) -> None:
    checked = subprocess.run(
        ["sha256sum", "--check", "--strict", "SHA256SUMS"], cwd=release, capture_output=True, text=True, check=False
    )
    assert checked.returncode == 0, checked.stdout + checked.stderr
    assert len(checked.stdout.splitlines()) == len(list(release.iterdir())) - 1


# What of others is in the programs.


_MAP = """\
Discarded input sections

 .text$_Zgone   0x0000000000000000       0x10 /usr/lib/gcc/libgone.a(gone.o)

Memory Configuration

Linker script and memory map

 .text          0x0000000140001000       0x20 src/CMakeFiles/service.dir/Main.cpp.obj
 .text          0x0000000140001020       0x30 /usr/lib/gcc/libtaken.a(one.o)
 .text          0x0000000140001050        0x0 /usr/lib/gcc/libempty.a(none.o)
 .text$_ZSt24__throw_out_of_range_fmtPKcz
                0x0000000140001060       0x70 /usr/lib/gcc/libtaken.a(two.o)
 .debug_info    0x0000000140009000       0x99 /usr/lib/gcc/libdebug.a(words.o)
 .debug_gnu_pubnames_of_some_length
                0x0000000140009100       0x99 /usr/lib/gcc/libdebug.a(words.o)
 .CRT$XCU       0x0000000140005000        0x8 /usr/lib/crt2u.o
                0x0000000140005000                _start_of_something
"""


def test_counts_what_the_link_kept_and_nothing_else() -> None:
    assert linked.linked_files(_MAP) == {"/usr/lib/gcc/libtaken.a": {"one.o", "two.o"}, "/usr/lib/crt2u.o": set()}


def test_a_map_without_its_part_is_refused() -> None:
    with pytest.raises(PackageError, match=r"^the linker's map has no memory map$"):
        linked.linked_files("Archive member included")


def test_finds_the_libraries_that_every_program_has() -> None:
    assert set(parts()) == {*programs(), packaging.START_TYPE_TOOL}
    service = {library: members for owned in parts()[_SERVICE].values() for library, members in owned.items()}
    assert "eh_throw.o" in service["libstdc++.a"]
    assert any("mingw_pformat" in member for member in service["libmingwex.a"])
    assert service["crtbegin.o"] == []
    # The demangler is kept out of what ships (cmake/Folders.cmake).
    assert "cp-demangle.o" not in service["libstdc++.a"]
    sources = {package.source for packages in parts().values() for package in packages}
    assert sources == {"gcc-mingw-w64", "mingw-w64"}


def test_a_symbol_of_each_library_is_in_the_program() -> None:
    """Not by the map, but by what nm finds in the symbols that ship."""
    listed = subprocess.run(
        ["x86_64-w64-mingw32-nm", BUILD / f"{_SERVICE}.debug"], capture_output=True, text=True, check=True
    ).stdout
    for library, symbol in (
        ("libstdc++.a", "__cxa_throw"), ("libgcc_eh.a", "_Unwind_RaiseException"),
        ("libpthread.a", "pthread_mutex_lock"), ("libmingwex.a", "__mingw_pformat"),
        ("libmingw32.a", "_pei386_runtime_relocator"),
    ):  # fmt: skip
        assert re.search(rf"\b{symbol}$", listed, re.MULTILINE), symbol
        assert any(library in libraries for libraries in parts()[_SERVICE].values()), library


def test_the_notices_name_each_package_and_have_its_words() -> None:
    text = packaging.package_files(BUILD)[packaging.NOTICES].read_text(encoding="utf-8")
    for program, packages in parts().items():
        assert f"\n{program}\n" in text
        for package in packages:
            source = f"of the source {package.source} {package.source_version}"
            assert f"  {package.name} {package.version} ({source})\n" in text
            assert package.copyright_text.strip() in text
    assert "GCC RUNTIME LIBRARY EXCEPTION" in text
    # The text of the licence that the exception is to: on Debian it lies elsewhere.
    assert "GNU GENERAL PUBLIC LICENSE\n                       Version 3, 29 June 2007" in text


# The bill of materials.


def bill(release: Path) -> dict[str, Any]:
    return json.loads((release / f"{_STEM}.spdx.json").read_text(encoding="utf-8"))


def elements(document: dict[str, Any]) -> dict[str, dict[str, Any]]:
    """Packages and files by their identifiers."""
    listed = [*document["packages"], *document["files"]]
    found = {element["SPDXID"]: element for element in listed}
    assert len(found) == len(listed)
    return found


def test_the_bill_has_the_fields_of_its_format(release: Path) -> None:
    """SPDX 2.3: what it demands, in the form that it demands."""
    document = bill(release)
    assert (document["spdxVersion"], document["dataLicense"], document["SPDXID"]) == (
        "SPDX-2.3",
        "CC0-1.0",
        "SPDXRef-DOCUMENT",
    )
    assert uuid.UUID(document["documentNamespace"].removeprefix("urn:uuid:"))
    assert document["creationInfo"]["created"] == "2023-11-14T22:13:20Z"
    assert all(re.match(r"(Tool|Organization|Person): \S", creator) for creator in document["creationInfo"]["creators"])
    known = elements(document)
    assert all(re.fullmatch(r"SPDXRef-[A-Za-z0-9.-]+", identifier) for identifier in known)
    for package in document["packages"]:
        assert {"name", "downloadLocation", "filesAnalyzed", "licenseConcluded", "copyrightText"} <= package.keys()
        assert package["downloadLocation"] == "NOASSERTION" or package["downloadLocation"].startswith("https://")
        assert package["primaryPackagePurpose"] in {"APPLICATION", "LIBRARY", "INSTALL", "ARCHIVE"}
        assert ("packageVerificationCode" in package) is package["filesAnalyzed"]
        for reference in package.get("externalRefs", []):
            assert reference["referenceCategory"] == "PACKAGE-MANAGER" and reference["referenceType"] == "purl"
            locator = r"pkg:deb/debian/(?:[a-z0-9.-]|%2B)+@[^?@ +]+\?arch=\w+&distro=debian-\d+"
            assert re.fullmatch(locator, reference["referenceLocator"])
    for file in document["files"]:
        assert file["fileName"].startswith("./")
        assert {"SHA1", "SHA256"} == {checksum["algorithm"] for checksum in file["checksums"]}
        assert set(file["fileTypes"]) <= {"BINARY", "DOCUMENTATION", "IMAGE", "TEXT"}
    licences = {info["licenseId"] for info in document["hasExtractedLicensingInfos"]}
    assert all(re.fullmatch(r"LicenseRef-[A-Za-z0-9.-]+", licence) for licence in licences)
    declared = {package.get("licenseDeclared") for package in document["packages"]} - {"NOASSERTION"}
    assert declared == licences
    for relation in document["relationships"]:
        assert relation["relationshipType"] in {"DESCRIBES", "CONTAINS", "VARIANT_OF", "STATIC_LINK", "OTHER"}
        assert relation["relationshipType"] != "OTHER" or relation["comment"]
        assert {relation["spdxElementId"], relation["relatedSpdxElement"]} <= {*known, "SPDXRef-DOCUMENT"}


def test_the_bill_has_the_digests_of_what_is_handed_out(release: Path) -> None:
    document = bill(release)
    sums = {element.get("packageFileName", element.get("fileName")): element for element in elements(document).values()}
    for name in (f"{_STEM}.zip", f"{_STEM}.msi", f"{_STEM}-symbols.zip"):
        check_sums(sums[name], (release / name).read_bytes())
    with zipfile.ZipFile(release / f"{_STEM}.zip") as archive:
        held = {name.partition("/")[2]: archive.read(name) for name in archive.namelist()}
    for name, content in held.items():
        check_sums(sums[f"./{name}"], content)
    tool = (BUILD / packaging.START_TYPE_TOOL).read_bytes()
    check_sums(sums[f"./{packaging.START_TYPE_TOOL}"], tool)
    assert {file["fileName"] for file in document["files"]} == {f"./{name}" for name in held} | {
        f"./{packaging.START_TYPE_TOOL}"
    }
    product = next(package for package in document["packages"] if package["filesAnalyzed"])
    digests = sorted(hashlib.sha1(content).hexdigest() for content in [*held.values(), tool])
    code = hashlib.sha1("".join(digests).encode("ascii")).hexdigest()
    assert product["packageVerificationCode"] == {"packageVerificationCodeValue": code}


def test_the_bill_tells_what_each_file_that_is_handed_out_is_to_the_product(release: Path) -> None:
    document = bill(release)
    known = elements(document)
    told = {
        known[relation["spdxElementId"]]["name"]: (relation["relationshipType"], relation.get("comment"))
        for relation in document["relationships"]
        if relation["relatedSpdxElement"] == "SPDXRef-Product" and relation["spdxElementId"] != "SPDXRef-DOCUMENT"
    }
    assert told == {
        f"{_STEM}.zip": ("VARIANT_OF", None),
        f"{_STEM}.msi": ("VARIANT_OF", None),
        f"{_STEM}-symbols.zip": ("OTHER", "the symbols of its programs"),
    }


def check_sums(element: dict[str, Any], content: bytes) -> None:
    sums = {checksum["algorithm"]: checksum["checksumValue"] for checksum in element["checksums"]}
    assert sums == {"SHA1": hashlib.sha1(content).hexdigest(), "SHA256": hashlib.sha256(content).hexdigest()}


def test_the_bill_tells_what_is_linked_into_which_program(release: Path) -> None:
    document = bill(release)
    known = elements(document)
    told = {
        (known[relation["spdxElementId"]]["fileName"], known[relation["relatedSpdxElement"]]["name"]): relation["comment"]
        for relation in document["relationships"]
        if relation["relationshipType"] == "STATIC_LINK"
    }
    assert set(told) == {(f"./{program}", package.name) for program, packages in parts().items() for package in packages}
    assert "libstdc++.a(" in told["./VeyraCameraDfuService.exe", "g++-mingw-w64-x86-64-posix"]


# Symbols.


def test_the_symbols_are_those_of_the_programs_that_ship(release: Path) -> None:
    folder = f"{_STEM}-symbols"
    with zipfile.ZipFile(release / f"{_STEM}-symbols.zip") as archive:
        held = {name.removeprefix(f"{folder}/"): archive.read(name) for name in archive.namelist()}
    assert set(held) == {name for program in programs() for name in (program, f"{program}.debug")}
    for program in programs():
        assert held[program] == (BUILD / program).read_bytes()
        # The program names its symbols, and the sum of their bytes, four bytes' length apart.
        name = f"{program}.debug".encode("ascii") + b"\0"
        link = name + b"\0" * (-len(name) % 4) + struct.pack("<I", zlib.crc32(held[f"{program}.debug"]))
        assert link in held[program]


# Signatures.


@pytest.fixture
def authority(tmp_path: Path) -> Path:
    """A folder with a key, its certificate, and a command that signs with them."""
    subject = ["-subj", "/CN=Veyra test", "-addext", "extendedKeyUsage=codeSigning"]
    subprocess.run(
        ["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2", *subject, "-keyout", "key.pem",
         "-out", "cert.pem"],
        cwd=tmp_path, capture_output=True, check=True,
    )  # fmt: skip
    command = tmp_path / "sign it"
    command.write_text(
        "#!/bin/sh -e\n"
        f"osslsigncode sign -certs '{tmp_path}/cert.pem' -key '{tmp_path}/key.pem' -h sha256"
        ' "$1" "$2" -in "$3" -out "$3.signed"\n'
        'mv "$3.signed" "$3"\n',
        encoding="utf-8",
    )
    command.chmod(0o755)
    return tmp_path


def verified(authority: Path, file: Path) -> None:
    """The signature holds, and is the authority's."""
    certificate = str(authority / "cert.pem")
    checked = subprocess.run(
        ["osslsigncode", "verify", "-CAfile", certificate, "-TSA-CAfile", certificate, "-in", str(file)],
        capture_output=True, text=True, check=False,
    )  # fmt: skip
    assert checked.returncode == 0, checked.stdout + checked.stderr
    assert "CN=Veyra test" in checked.stdout


@slow
def test_signs_everything_that_windows_asks_about(authority: Path, tmp_path: Path) -> None:
    output = tmp_path / "signed"
    command = signing.command_words(f"'{authority}/sign it' -n 'Veyra Camera DFU service'")
    packaging.Release(BUILD, output, command).make()
    verified(authority, output / f"{_STEM}.msi")
    with zipfile.ZipFile(output / f"{_STEM}.zip") as archive:
        archive.extractall(tmp_path)
    unpacked = tmp_path / _STEM
    inside = tmp_path / "inside"
    inside.mkdir()
    for file in (*programs(), "VeyraCameraDfuMessages.dll"):
        verified(authority, unpacked / file)
        # The symbols are found by the file that ships.
        if file in programs():
            with zipfile.ZipFile(output / f"{_STEM}-symbols.zip") as symbols:
                assert symbols.read(f"{_STEM}-symbols/{file}") == (unpacked / file).read_bytes()
    tool = inside / packaging.START_TYPE_TOOL
    with tool.open("wb") as extracted:
        command_words = ["msiinfo", "extract", output / f"{_STEM}.msi", "Binary.SetStartType"]
        subprocess.run(command_words, stdout=extracted, check=True)
    verified(authority, tool)
    # What is installed is what was signed.
    subprocess.run(["msiextract", "--directory", inside, output / f"{_STEM}.msi"], capture_output=True, check=True)
    (installed,) = inside.rglob("VeyraCameraDfuService.exe")
    assert installed.read_bytes() == (unpacked / "VeyraCameraDfuService.exe").read_bytes()
    # What was built stays as it is.
    assert not signing.is_signed(BUILD / "VeyraCameraDfuService.exe")
    sums = (output / "SHA256SUMS").read_text(encoding="ascii")
    assert hashlib.sha256((output / f"{_STEM}.msi").read_bytes()).hexdigest() in sums


@slow
def test_a_signature_does_not_outlive_a_change(authority: Path, tmp_path: Path) -> None:
    program = tmp_path / "program.exe"
    shutil.copyfile(BUILD / packaging.START_TYPE_TOOL, program)
    signing.sign(signing.command_words(f"'{authority}/sign it' -n program"), program)
    verified(authority, program)
    content = bytearray(program.read_bytes())
    content[0x600] ^= 1
    program.write_bytes(content)
    with pytest.raises(AssertionError):
        verified(authority, program)


@pytest.mark.parametrize(
    ("command", "reason"),
    [
        ("true", r"the signing command has not signed VeyraCameraDfuCheck\.exe"),
        ("sh -c 'echo no token >&2; exit 3'", r"the signing command ended with 3 for VeyraCameraDfuCheck\.exe: no token"),
        ("/no/such/command", r"the signing command /no/such/command did not start: No such file or directory"),
    ],
    ids=["it does nothing", "it fails", "it is not there"],
)
def test_makes_nothing_when_a_file_is_not_signed(tmp_path: Path, command: str, reason: str) -> None:
    with pytest.raises(PackageError, match=f"^{reason}$"):
        packaging.Release(BUILD, tmp_path / "out", signing.command_words(command)).make()
    assert list((tmp_path / "out").iterdir()) == []


# The list of programs.


def test_the_list_of_programs_has_an_icon_and_the_vendors_address(release: Path, tmp_path: Path) -> None:
    def exported(installer: Path, table: str) -> str:
        command = ["msiinfo", "export", installer, table]
        return subprocess.run(command, capture_output=True, text=True, check=True).stdout

    with_address = release / f"{_STEM}.msi"
    assert "ARPHELPLINK\thttps://help.example/cameras" in exported(with_address, "Property")
    extract = ["msiinfo", "extract", with_address, "Icon.Camera.ico"]
    icon = subprocess.run(extract, capture_output=True, check=True).stdout
    assert icon == (CHECKOUT / "toast" / "program" / "Camera.ico").read_bytes()
    without = tmp_path / "without.msi"
    packaging.make_msi(packaging.package_files(BUILD), _VERSION, int(_DATE), without)
    assert "ARPPRODUCTICON\tCamera.ico" in exported(without, "Property")
    assert "ARPHELPLINK" not in exported(without, "Property")


@pytest.mark.parametrize(
    ("arguments", "reason"),
    [
        (["--sign", ""], "the signing command is empty"),
        (["--sign", "'open"], "the signing command is no command line"),
        (["--sign", "/no/such/command -n x"], "the signing command /no/such/command is no program"),
        (["--output", __file__], "is no folder"),
        (["--output", f"{__file__}/deeper/still"], "is no folder"),
        (["--output", 5000 * "x"], "cannot be a folder: File name too long"),
        (["--help-address", "ftp://x"], "is no plain http or https address"),
        (["--help-address", "https://x/'"], "is no plain http or https address"),
        (["--download-address", "here"], "is no plain http or https address"),
        (["--icon", "/no/such.ico"], "cannot be read: No such file or directory"),
        (["--icon", __file__], "is no icon of Windows"),
        (["more"], "unrecognized arguments: more"),
    ],
    ids=lambda value: " ".join(value)[:60] if isinstance(value, list) else None,
)
def test_says_in_one_line_what_it_does_not_take(
    run: Run, monkeypatch: pytest.MonkeyPatch, arguments: list[str], reason: str
) -> None:
    monkeypatch.setattr(packaging, "_build", lambda: pytest.fail("it has begun"))
    check_refusal(run(packaging.main, *arguments), reason)


@pytest.mark.parametrize("date", ["abc", "", "-1", "4354819200", 5000 * "9"], ids=lambda date: date[:12] or "empty")
def test_says_in_one_line_that_a_date_is_none(run: Run, monkeypatch: pytest.MonkeyPatch, tmp_path: Path, date: str) -> None:
    monkeypatch.setattr(packaging, "_build", lambda: pytest.fail("it has begun"))
    monkeypatch.setenv("SOURCE_DATE_EPOCH", date)
    output = tmp_path / "out"
    check_refusal(run(packaging.main, "--output", str(output)), "SOURCE_DATE_EPOCH is no number of seconds")
    assert not output.exists()


# The policy template.


def policy_file(name: str) -> ElementTree.Element:
    return ElementTree.parse(CHECKOUT / "packaging" / "policy" / name).getroot()


def test_the_policy_writes_what_the_service_reads() -> None:
    source = (CHECKOUT / "src" / "service" / "UpdateModeSetting.cpp").read_text(encoding="utf-8")
    header = (CHECKOUT / "src" / "service" / "UpdateModeSetting.h").read_text(encoding="utf-8")
    (policy,) = policy_file("VeyraCameraDfu.admx").findall("p:policies/p:policy", _POLICY_NAMESPACE)
    assert policy.get("class") == "Machine"
    assert f'L"{policy.get("key", "")}"'.replace("\\", "\\\\") in source
    assert f'kValueName = L"{policy.get("valueName")}"' in source
    for state, mode in (("enabledValue", "Service Controlled"), ("disabledValue", "Disabled")):
        assert [value.text for value in policy.findall(f"p:{state}/p:string", _POLICY_NAMESPACE)] == [mode]
        assert f'L"{mode}"' in header


@pytest.mark.parametrize("language", ["en-US", "de-DE"])
def test_the_policy_has_all_of_its_texts_in_both_languages(language: str) -> None:
    template = (CHECKOUT / "packaging" / "policy" / "VeyraCameraDfu.admx").read_text(encoding="utf-8")
    table = policy_file(f"{language}/VeyraCameraDfu.adml").findall("p:resources/p:stringTable/p:string", _POLICY_NAMESPACE)
    texts = {text.get("id"): text.text for text in table}
    assert set(texts) == set(re.findall(r"\$\(string\.(\w+)\)", template))
    assert all(texts.values())
    # That the value stays is said where the administrator decides.
    assert "DFUAutoMode" in (texts["UpdateMode_Help"] or "")


# Manifests.


def test_the_manifests_name_the_installer(release: Path) -> None:
    texts = {path.name: path.read_text(encoding="utf-8") for path in release.glob("*.yaml")}
    for name, kind in (("", "version"), (".installer", "installer"), (".locale.en-US", "defaultLocale")):
        lines = texts[f"Veyra.CameraDfuService{name}.yaml"].splitlines()
        for line in (
            'PackageIdentifier: "Veyra.CameraDfuService"', f'PackageVersion: "{_VERSION}"',
            f'ManifestType: "{kind}"', 'ManifestVersion: "1.6.0"',
        ):  # fmt: skip
            assert line in lines
    text = texts["Veyra.CameraDfuService.installer.yaml"]
    digest = hashlib.sha256((release / f"{_STEM}.msi").read_bytes()).hexdigest().upper()
    assert f'  InstallerSha256: "{digest}"\n' in text
    assert f'  InstallerUrl: "https://download.example/1.0/{_STEM}.msi"\n' in text
    assert text.count(f'ProductCode: "{packaging.product_code(_VERSION)}"\n') == 2
    product = (CHECKOUT / "packaging" / "product.wxs").read_text(encoding="utf-8")
    assert f'UpgradeCode="{packaging.UPGRADE_CODE.strip("{}")}"' in product
    assert '  - DisplayName: "Veyra Camera DFU service"\n' in text and 'Name="Veyra Camera DFU service"' in product


# The documents of the package.


_LINK = re.compile(r"\]\(([^)#\s]*)(?:#([^)\s]*))?\)")


def anchors(text: str) -> set[str]:
    """The places in a document that a link can lead to."""
    heads = re.findall(r"^#+ (.*)$", text, re.MULTILINE)
    return {re.sub(r"[^\w\- ]", "", head.lower()).replace(" ", "-") for head in heads}


def test_every_link_of_the_packages_documents_leads_to_a_file_of_the_package() -> None:
    files = packaging.package_files(BUILD)
    lost = []
    for name, source in files.items():
        if not name.endswith(".md"):
            continue
        text = source.read_text(encoding="utf-8")
        for target, anchor in _LINK.findall(text):
            if target.startswith("https://"):
                continue
            path = os.path.normpath(os.path.join(os.path.dirname(name), target)) if target else name
            if path not in files or (anchor and anchor not in anchors(files[path].read_text(encoding="utf-8"))):
                lost.append(f"{name}: {target}#{anchor}")
    assert lost == []


def test_every_link_of_the_checkouts_documents_leads_to_a_file() -> None:
    documents = [CHECKOUT / "README.md", CHECKOUT / "CONTRIBUTING.md", *(CHECKOUT / "docs").glob("*.md"),
                 *(CHECKOUT / "host").glob("*.md")]  # fmt: skip
    lost = []
    for document in documents:
        for target, anchor in _LINK.findall(document.read_text(encoding="utf-8")):
            path = document.parent / target if target else document
            told = str(path.resolve().relative_to(CHECKOUT)) if not target.startswith("https://") else ""
            if not told:
                continue
            if not path.exists() or (anchor and anchor not in anchors(path.read_text(encoding="utf-8"))):
                lost.append(f"{document.name}: {target}#{anchor}")
    assert lost == []


def test_the_packages_readme_is_for_who_runs_it() -> None:
    text = packaging.package_files(BUILD)["README.md"].read_text(encoding="utf-8")
    assert "msiexec /i" in text
    for word in ("scripts/", "Debian", "laboratory", "Wine"):
        assert word not in text


def test_words_and_version_of_the_events_change_together() -> None:
    """The installer replaces the file of words when its version is a higher one: change both numbers with the words."""
    folder = CHECKOUT / "packaging" / "messages"
    words = re.sub(r"^;.*\n", "", (folder / "ServiceMessages.mc").read_text(encoding="utf-8"), flags=re.MULTILINE)
    assert (hashlib.sha256(words.encode()).hexdigest()[:16], packaging._MESSAGES_VERSION) == ("b8868d32061ca652", "1.0.0.0")
    numbers = packaging._MESSAGES_VERSION.replace(".", ", ")
    assert f"FILEVERSION {numbers}\n" in (folder / "Messages.rc").read_text(encoding="utf-8")


# Two builds.


def german(folder: Path) -> dict[str, str]:
    """What a machine that speaks German has in its environment: another language, order of letters, and form of numbers."""
    command = ["localedef", "--inputfile=de_DE", "--charmap=UTF-8", str(folder / "de_DE.UTF-8")]
    subprocess.run(command, capture_output=True, check=False)
    spoken = {"LOCPATH": str(folder), "LC_ALL": "de_DE.UTF-8", "LANG": "de_DE.UTF-8"}
    environment = {**os.environ, **spoken}
    said = subprocess.run(["ls", "/no/such"], env=environment, capture_output=True, text=True, check=False).stderr
    sorted_words = subprocess.run(
        ["sort"], input="b\nA\na\nB\n", env=environment, capture_output=True, text=True, check=True
    ).stdout
    assert sorted_words.split() == ["a", "A", "b", "B"], said
    return spoken


@slow
def test_two_builds_give_the_same_release(tmp_path: Path) -> None:
    """In two folders, at two times of day, in two time zones and two locales; compiled anew, whatever a cache holds."""
    kept = {
        name: value
        for name, value in os.environ.items()
        if name != "SOURCE_DATE_EPOCH" and not re.fullmatch(r"CMAKE_\w+_COMPILER_LAUNCHER|CCACHE_\w+", name)
    }
    surroundings = [
        ("one", {"LC_ALL": "C.UTF-8", "TZ": "UTC"}, [], "2026-03-01 09:00:00"),
        # The times of files shift with the clock, so what is built last stays the newest.
        ("the other, in a longer path", {**german(tmp_path), "TZ": "Asia/Kolkata"}, ["faketime", "-f", "+31h"],
         "2026-10-25 23:59:00"),
    ]  # fmt: skip
    digests = []
    for name, environment, at_another_time, time_of_day in surroundings:
        tree = tmp_path / name
        tree.mkdir()
        for source in ("CHANGELOG.md", "CMakeLists.txt", "CMakePresets.json", "cmake", "docs", "lab", "packaging",
                       "scripts", "src", "toast", "trace"):  # fmt: skip
            copy = shutil.copytree if (CHECKOUT / source).is_dir() else shutil.copy2
            copy(CHECKOUT / source, tree / source)
        surrounded = {**kept, **environment}
        packed = {
            **surrounded,
            "SOURCE_DATE_EPOCH": _DATE,
            "NO_FAKE_STAT": "1",  # the times of files that the packaging sets are true ones
            "PYTHONPATH": os.pathsep.join(str(tree / part) for part in ("packaging", "lab/cli")),
        }
        package = "import make_package as m; m.Release(m.BUILD, m.ROOT / 'out', download_address='https://x.example').make()"
        for command, known in (
            ([*at_another_time, "cmake", "--preset", "windows-release", "-DBUILD_TESTING=OFF"], surrounded),
            ([*at_another_time, "cmake", "--build", "build/windows-release", "--target", *packaging.TARGETS], surrounded),
            (["faketime", "-f", f"@{time_of_day}", sys.executable, "-c", package], packed),
        ):
            answer = subprocess.run(command, cwd=tree, env=known, capture_output=True, text=True, check=False)
            assert answer.returncode == 0, answer.stdout + answer.stderr
        digests.append({path.name: hashlib.sha256(path.read_bytes()).hexdigest() for path in (tree / "out").iterdir()})
    assert len(digests[0]) == 8
    assert digests[0] == digests[1]
