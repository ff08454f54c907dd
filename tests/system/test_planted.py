"""Defects planted in the download engine, one at a time, in a copy of the checkout: scripts/faults finds each, names it by an
id, and makes it small. The table of docs/laboratory.md is what has to come."""

import json
import re
import shutil
import subprocess
from collections.abc import Iterator
from dataclasses import dataclass
from pathlib import Path

import pytest
from support import CHECKOUT, slow

_ENGINE = Path("src/dfu/DfuCommand.cpp")
_MOST_STEPS = 3


@dataclass(frozen=True)
class Defect:
    """Words that stand in the engine once, and what stands there instead."""

    name: str
    right: str
    wrong: str


DEFECTS = (
    Defect("the status of a block is not looked at", "reply[kStatusByte] == kStatusOk;",
           "reply[kStatusByte] == kStatusOk || wanted == DFU_STATE::dfuDNLOAD_IDLE;"),
    Defect("a lost answer to a block is taken for success",
           "if (FAILED(result)) {\n            LogFailure(\"usbEndpoint->Transfer(downloadPacket",
           "if (FAILED(result) && result != HRESULT_FROM_WIN32(ERROR_SEM_TIMEOUT)) {\n"
           "            LogFailure(\"usbEndpoint->Transfer(downloadPacket"),
    Defect("the block number is not counted on", "++blockNumber;", ""),
    Defect("the wait for a block has no limit", "if (GetTickCount64() - start >= timeoutMs) {",
           "if (wanted != DFU_STATE::dfuDNLOAD_IDLE && GetTickCount64() - start >= timeoutMs) {"),
    Defect("the empty block is left out", "SendBlock(blockNumber, nullptr, 0);", ""),
    Defect("a status is read beyond the answer", "reply = kNoStatusYet;", "static_cast<void>(kNoStatusYet);"),
    Defect("a state is read behind the reply", "static_cast<DFU_STATE>(reply[kStateByte]);",
           "static_cast<DFU_STATE>(reply.data()[kStateByte + 2]);"),
    Defect("the image is sent from the second block on", "std::size_t remaining = length;",
           "std::size_t remaining = length > maxChunk ? length - maxChunk : length;\n    pBuffer += length - remaining;"),
)  # fmt: skip


@dataclass(frozen=True)
class Found:
    """A row of the document's table."""

    failed: str
    rule: str
    smallest: str


def documented() -> dict[str, Found]:
    """The document's table, by what was planted."""
    text = (CHECKOUT / "docs" / "laboratory.md").read_text(encoding="utf-8")
    table = text.partition("| planted |")[2].partition("\n\n")[0]
    rows = (re.split(r" *\| *", line.strip("| ")) for line in table.splitlines()[2:])
    return {planted: Found(failed, rule, smallest.strip("`")) for planted, failed, rule, smallest in rows}


@pytest.fixture(scope="module")
def copy(tmp_path_factory: pytest.TempPathFactory) -> Path:
    """A checkout in which anything may be planted."""
    tree = tmp_path_factory.mktemp("planted") / "checkout"
    shutil.copytree(CHECKOUT, tree, ignore=shutil.ignore_patterns("build", ".git", "__pycache__"))
    return tree


@pytest.fixture
def planted(copy: Path, defect: Defect) -> Iterator[Path]:
    """The copy with the defect in it."""
    engine = copy / _ENGINE
    whole = engine.read_text(encoding="utf-8")
    assert whole.count(defect.right) == 1
    engine.write_text(whole.replace(defect.right, defect.wrong), encoding="utf-8")
    yield copy
    engine.write_text(whole, encoding="utf-8")


def test_the_document_has_each_of_them() -> None:
    assert list(documented()) == [defect.name for defect in DEFECTS]


@slow
@pytest.mark.xdist_group("planted")
@pytest.mark.parametrize("defect", DEFECTS, ids=lambda defect: defect.name)
def test_the_campaign_finds_what_is_planted(planted: Path, defect: Defect) -> None:
    done = subprocess.run(
        ["bash", planted / "scripts" / "faults", "--quick", "--seed", "1"], cwd=planted, capture_output=True, text=True,
        timeout=900, check=False, stdin=subprocess.DEVNULL,
    )  # fmt: skip
    assert done.returncode == 1, done.stdout + done.stderr
    smallest = re.findall(r"^smallest: (\S+): (.*)$", done.stdout, re.MULTILINE)
    scenarios = re.findall(r"^  scenario: (.*)$", done.stdout, re.MULTILINE)
    assert smallest, done.stdout
    assert len(scenarios) == len(smallest), done.stdout
    steps = [json.loads((planted / path).read_text(encoding="utf-8"))["steps"] for path in scenarios]
    assert max(map(len, steps)) <= _MOST_STEPS, steps
    expected = documented()[defect.name]
    told = [(trial, why) for trial, why in smallest if trial == expected.smallest]
    assert told, done.stdout
    assert expected.rule.partition(", by the sanitizer")[0] in told[0][1]
    count = re.search(r"^(\d+) trials, .*; (\d+) failed$", done.stdout, re.MULTILINE)
    assert count
    if " of " in expected.failed:
        assert f"{int(count[2]):,} of {int(count[1]):,}" == expected.failed
    else:
        # The road of a camera without a fault is broken: there is nothing to try faults on.
        assert (int(count[1]), int(count[2])) == (0, 2)
