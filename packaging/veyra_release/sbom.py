"""The bill of materials, an SPDX 2.3 document: the release's files, the programs in it, and what is linked into them."""

import datetime
import hashlib
import json
import re
import uuid
from collections.abc import Iterable, Mapping, Sequence
from pathlib import Path
from typing import Any

from .linked import Linked, Package

_NAMESPACE = uuid.UUID("5b1b0f0a-2a1f-4c55-9e0e-6d1f6f9a3c11")
_DOCUMENT = "SPDXRef-DOCUMENT"
_PRODUCT = "SPDXRef-Product"
_UNKNOWN = "NOASSERTION"
_SUPPLIER = "Organization: Veyra"
_FILE_TYPES = {".exe": "BINARY", ".dll": "BINARY", ".md": "DOCUMENTATION", ".txt": "DOCUMENTATION", ".png": "IMAGE"}


def sbom(
    name: str,
    version: str,
    date: int,
    files: Mapping[str, Path],
    artifacts: Sequence[Path],
    symbols: Path,
    linked: Linked,
    distribution: str,
) -> str:
    """The document, as JSON. `files` are the package's, by their names in it; `artifacts` what is handed out with
    them, and `symbols` what is handed out beside; `linked` names the programs' parts; `distribution` is Debian's release
    that they are from ("debian-12"); `date` counts from 1970."""
    described = [_file(path, source) for path, source in files.items()]
    packages = sorted({package for parts in linked.values() for package in parts})
    relations = [_relation(_DOCUMENT, "DESCRIBES", _PRODUCT)]
    relations += [_relation(_PRODUCT, "CONTAINS", _file_id(path)) for path in files]
    relations += [_relation(_artifact_id(path), "VARIANT_OF", _PRODUCT) for path in artifacts]
    relations.append({**_relation(_artifact_id(symbols), "OTHER", _PRODUCT), "comment": "the symbols of its programs"})
    for program, parts in linked.items():
        for package, libraries in parts.items():
            relation = _relation(_file_id(program), "STATIC_LINK", _package_id(package))
            relations.append({**relation, "comment": "; ".join(_library(*each) for each in libraries.items())})
    product = {
        "SPDXID": _PRODUCT,
        "name": name,
        "versionInfo": version,
        "supplier": _SUPPLIER,
        "downloadLocation": _UNKNOWN,
        "filesAnalyzed": True,
        "packageVerificationCode": {"packageVerificationCodeValue": _verification_code(files.values())},
        "licenseConcluded": _UNKNOWN,
        "licenseDeclared": _UNKNOWN,
        "licenseInfoFromFiles": [_UNKNOWN],
        "copyrightText": _UNKNOWN,
        "primaryPackagePurpose": "APPLICATION",
        "hasFiles": [_file_id(path) for path in files],
    }
    content: dict[str, Any] = {
        "spdxVersion": "SPDX-2.3",
        "dataLicense": "CC0-1.0",
        "SPDXID": _DOCUMENT,
        "name": f"{name}-{version}",
        "creationInfo": {
            "created": datetime.datetime.fromtimestamp(date, datetime.timezone.utc).strftime("%Y-%m-%dT%H:%M:%SZ"),
            "creators": [_SUPPLIER, f"Tool: scripts/package-{version}"],
        },
        "packages": [
            product,
            *(_artifact(path, version) for path in (*artifacts, symbols)),
            *(_package(package, distribution) for package in packages),
        ],
        "files": described,
        "hasExtractedLicensingInfos": [_licence(package) for package in packages],
        "relationships": relations,
    }
    # The document's own name in the world: another for other contents.
    said = json.dumps(content, sort_keys=True)
    content["documentNamespace"] = f"urn:uuid:{uuid.uuid5(_NAMESPACE, said)}"
    return json.dumps(content, indent=2, ensure_ascii=False) + "\n"


def _relation(element: str, kind: str, related: str) -> dict[str, str]:
    return {"spdxElementId": element, "relationshipType": kind, "relatedSpdxElement": related}


def _library(name: str, members: Sequence[str]) -> str:
    return f"{name}({', '.join(members)})" if members else name


def _identifier(kind: str, name: str) -> str:
    # Letters, digits, "." and "-" alone; another sign becomes a minus, and the digest keeps two such names apart.
    plain = re.sub(r"[^A-Za-z0-9.-]", "-", name)
    return f"SPDXRef-{kind}-{plain}" + ("" if plain == name else f"-{hashlib.sha256(name.encode()).hexdigest()[:8]}")


def _file_id(path: str) -> str:
    return _identifier("File", path)


def _artifact_id(path: Path) -> str:
    return _identifier("Artifact", path.name)


def _package_id(package: Package) -> str:
    return _identifier("Package", f"{package.name}-{package.version}")


def _licence_id(package: Package) -> str:
    return _package_id(package).replace("SPDXRef-Package", "LicenseRef-copyright", 1)


def _checksums(path: Path) -> list[dict[str, str]]:
    content = path.read_bytes()
    kinds = {"SHA1": hashlib.sha1, "SHA256": hashlib.sha256}
    return [{"algorithm": name, "checksumValue": kind(content).hexdigest()} for name, kind in kinds.items()]


def _verification_code(paths: Iterable[Path]) -> str:
    """The digest of all files' digests, in order."""
    digests = sorted(hashlib.sha1(path.read_bytes()).hexdigest() for path in paths)
    return hashlib.sha1("".join(digests).encode()).hexdigest()


def _file(path: str, source: Path) -> dict[str, Any]:
    return {
        "SPDXID": _file_id(path),
        "fileName": f"./{path}",
        "fileTypes": [_FILE_TYPES.get(Path(path).suffix, "TEXT")],
        "checksums": _checksums(source),
        "licenseConcluded": _UNKNOWN,
        "licenseInfoInFiles": [_UNKNOWN],
        "copyrightText": _UNKNOWN,
    }


def _artifact(path: Path, version: str) -> dict[str, Any]:
    return {
        "SPDXID": _artifact_id(path),
        "name": path.name,
        "versionInfo": version,
        "packageFileName": path.name,
        "supplier": _SUPPLIER,
        "downloadLocation": _UNKNOWN,
        "filesAnalyzed": False,
        "checksums": _checksums(path),
        "licenseConcluded": _UNKNOWN,
        "licenseDeclared": _UNKNOWN,
        "copyrightText": _UNKNOWN,
        "primaryPackagePurpose": "INSTALL" if path.suffix == ".msi" else "ARCHIVE",
    }


def _package(package: Package, distribution: str) -> dict[str, Any]:
    where = f"arch={package.architecture}&distro={distribution}"
    locator = f"pkg:deb/debian/{_quoted(package.name)}@{_quoted(package.version)}?{where}"
    return {
        "SPDXID": _package_id(package),
        "name": package.name,
        "versionInfo": package.version,
        "supplier": "Organization: Debian",
        "downloadLocation": _UNKNOWN,
        "filesAnalyzed": False,
        "sourceInfo": f"built from the source package {package.source} {package.source_version}",
        "licenseConcluded": _UNKNOWN,
        "licenseDeclared": _licence_id(package),
        "copyrightText": _UNKNOWN,
        "primaryPackagePurpose": "LIBRARY",
        "externalRefs": [
            {"referenceCategory": "PACKAGE-MANAGER", "referenceType": "purl", "referenceLocator": locator}
        ],
    }


def _licence(package: Package) -> dict[str, str]:
    return {
        "licenseId": _licence_id(package),
        "name": f"The copyright file of Debian's package {package.name}",
        "extractedText": package.copyright_text,
    }


def _quoted(text: str) -> str:
    """As a locator has it: all but letters, digits and a few signs in per cents."""
    return re.sub(r"[^A-Za-z0-9.\-_~]", lambda found: f"%{ord(found.group()):02X}", text)
