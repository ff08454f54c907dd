"""The id of a scenario: "scenario.two-cameras.usb.0a1b2c3d4e", its name, the bus that it is carried out on, and a digest of
all that it says."""

import re
from collections.abc import Sequence
from contextlib import suppress
from dataclasses import asdict, dataclass
from pathlib import Path

from ..again.digest import digest_of
from ..buses.usb import UsbBus
from ..buses.virtual import VirtualBus
from ..checkout import BUILD
from ..scenarios.errors import ScenarioError
from ..scenarios.files import read_named, read_scenario
from ..scenarios.schema import SCENARIOS
from ..scenarios.variant import Variant

PREFIX = "scenario"
# Where failures that were made small are written to.
WRITTEN = BUILD / "faults"
_ID = re.compile(PREFIX + r"\.([A-Za-z0-9][A-Za-z0-9/_-]*(?:\.[A-Za-z0-9_-]+)*?)(\.usb)?\.([0-9a-f]{10})")
# What changes nothing of what happens.
_WORDS = ("description", "slow", "not_on_usb", "at_once", "rows")


@dataclass(frozen=True)
class ScenarioId:
    """The whole of it."""

    name: str
    bus: str
    digest: str

    def __str__(self) -> str:
        bus = [] if self.bus == VirtualBus.name else [self.bus]
        return ".".join([PREFIX, self.name, *bus, self.digest])


def id_of(variant: Variant, bus: str) -> ScenarioId:
    """That of a scenario on this bus."""
    said = {name: value for name, value in asdict(variant).items() if name not in _WORDS}
    return ScenarioId(variant.name, bus, digest_of(said))


def read_id(text: str) -> ScenarioId:
    """ValueError when it is none."""
    whole = _ID.fullmatch(text)
    if whole is None:
        raise ValueError(f"'{text}' is not the id of a scenario")
    return ScenarioId(whole[1], UsbBus.name if whole[2] else VirtualBus.name, whole[3])


def check_name(name: str) -> None:
    """ScenarioError when no id can say a scenario of this name."""
    own = ScenarioId(name, VirtualBus.name, "0" * 10)
    with suppress(ValueError):
        if read_id(str(own)) == own:
            return
    raise ScenarioError(f"no id can say '{name}': name the file with letters, digits, '-' and '_'")


def find_in(wanted: ScenarioId, path: Path) -> Variant:
    """The scenario of that id in this file. ScenarioError for a file that has none; ValueError for one that has others."""
    ids = {id_of(variant, wanted.bus): variant for variant in read_scenario(path)}
    if wanted in ids:
        return ids[wanted]
    alike = [str(each) for each in ids if each.name == wanted.name]
    says = f"says something else by now: {alike[0]}" if alike else f"has no scenario '{wanted.name}'"
    raise ValueError(f"'{wanted}' cannot be played: {path} {says}")


def find(wanted: ScenarioId, folders: Sequence[Path] = (SCENARIOS, WRITTEN)) -> Variant:
    """The scenario of that id. ValueError when there is none of its name, or when it says something else by now."""
    others = []
    for folder in folders:
        try:
            (variant,) = read_named(folder, [wanted.name])
        except (ScenarioError, ValueError) as error:
            others.append(f"{folder.name}: {error}")
            continue
        now = id_of(variant, wanted.bus)
        if now == wanted:
            return variant
        others.insert(0, f"{folder.name}/{wanted.name.partition('/')[0]}.json says something else by now: {now}")
    raise ValueError(f"'{wanted}' cannot be played: {others[0]}")


def id_of_file(path: Path) -> ScenarioId:
    """That of a file with one scenario, on the laboratory's own bus."""
    (variant,) = read_scenario(path)
    return id_of(variant, VirtualBus.name)
