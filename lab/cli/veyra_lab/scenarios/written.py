"""Scenario files that the laboratory writes itself: failures that were made small."""

import json
import os
import re
from pathlib import Path
from typing import Any

from .schema import SCENARIOS, check_filled

_LONGEST_NAME = 80


def file_name(kind: str, why: str) -> str:
    """How a scenario's name begins, of the kind of thing that fails and of what does not hold, cut where it is long."""
    words = re.sub("[^a-z0-9]+", "-", why.lower())
    return f"{kind}-{words}"[:_LONGEST_NAME].strip("-")


def write_scenario_file(content: dict[str, Any], name: str, folder: Path) -> Path:
    """Writes it, with its way to the schema. ScenarioError when it is no scenario."""
    check_filled(content)
    folder.mkdir(parents=True, exist_ok=True)
    path = folder / f"{name}.json"
    whole = {"$schema": os.path.relpath(SCENARIOS / "scenario.schema.json", folder.absolute()), **content}
    path.write_text(json.dumps(whole, indent=2) + "\n", encoding="utf-8")
    return path
