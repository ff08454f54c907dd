"""The manifests for winget, Windows' package manager: three files that a vendor hands to a source of packages."""

import json
from collections.abc import Mapping

_IDENTIFIER = "Veyra.CameraDfuService"
_LOCALE = "en-US"
_SCHEMA = "1.6.0"
_NAME = "Veyra Camera DFU service"


def manifests(version: str, address: str, sha256: str, product_code: str, upgrade_code: str) -> dict[str, str]:
    """The files by their names. `address` is where the installer can be fetched, `sha256` its digest."""
    common = {"PackageIdentifier": _IDENTIFIER, "PackageVersion": version}
    installer = {
        "Architecture": "x64",
        "InstallerUrl": address,
        "InstallerSha256": sha256.upper(),
        "ProductCode": product_code,
        "AppsAndFeaturesEntries": [
            {
                "DisplayName": _NAME,
                "Publisher": "Veyra",
                "DisplayVersion": version,
                "ProductCode": product_code,
                "UpgradeCode": upgrade_code,
                "InstallerType": "msi",
            }
        ],
    }
    files: dict[str, tuple[str, Mapping[str, object]]] = {
        "": ("version", {**common, "DefaultLocale": _LOCALE}),
        ".installer": (
            "installer",
            {
                **common,
                "Platform": ["Windows.Desktop"],
                "MinimumOSVersion": "10.0.17763.0",
                "InstallerType": "msi",
                "Scope": "machine",
                "InstallModes": ["interactive", "silent", "silentWithProgress"],
                "UpgradeBehavior": "install",
                "ElevationRequirement": "elevatesSelf",
                "Installers": [installer],
            },
        ),
        f".locale.{_LOCALE}": (
            "defaultLocale",
            {
                **common,
                "PackageLocale": _LOCALE,
                "Publisher": "Veyra",
                "PackageName": _NAME,
                "License": "Proprietary",
                "ShortDescription": "Keeps the firmware of KV400 cameras up to date.",
            },
        ),
    }
    return {
        f"{_IDENTIFIER}{suffix}.yaml": _yaml({**content, "ManifestType": kind, "ManifestVersion": _SCHEMA})
        for suffix, (kind, content) in files.items()
    }


def _yaml(content: Mapping[str, object]) -> str:
    return "".join(_lines(content, ""))


def _lines(content: Mapping[str, object], indent: str) -> list[str]:
    """Block style; a text as JSON writes it, which YAML reads the same."""
    lines = []
    for name, value in content.items():
        if isinstance(value, list):
            lines.append(f"{indent}{name}:\n")
            for item in value:
                if isinstance(item, Mapping):
                    first, *rest = _lines(item, f"{indent}  ")
                    lines += [f"{indent}- {first.lstrip()}", *rest]
                else:
                    lines.append(f"{indent}- {json.dumps(item)}\n")
        else:
            lines.append(f"{indent}{name}: {json.dumps(value)}\n")
    return lines
