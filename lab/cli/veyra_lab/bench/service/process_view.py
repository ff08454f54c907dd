"""What a process of the Windows machine costs, as the host's kernel counts it."""

from collections import Counter
from dataclasses import dataclass
from pathlib import Path

_PROCESSES = Path("/proc")


@dataclass(frozen=True)
class _Thread:
    """Counts since the thread began."""

    processor_ms: float
    # Times that it was woken: it had waited before each.
    wake_ups: int


@dataclass(frozen=True)
class ProcessView:
    """A process at one moment. Memory is what it has written and shares with none."""

    threads: dict[str, _Thread]
    private_kib: int
    # The private memory again, by the size of the mapping that it is in, and how many mappings have that size: a
    # thread's stacks are one mapping.
    private_kib_by_size: Counter[int]
    mappings_by_size: Counter[int]

    def processor_ms_since(self, earlier: "ProcessView") -> float:
        """Processor time of the threads that are there now."""
        return sum(thread.processor_ms for thread in self.threads.values()) - sum(
            earlier.threads[name].processor_ms for name in self.threads if name in earlier.threads
        )

    def wake_ups_since(self, earlier: "ProcessView") -> int:
        """Wake-ups of the threads that are there now."""
        return sum(thread.wake_ups for thread in self.threads.values()) - sum(
            earlier.threads[name].wake_ups for name in self.threads if name in earlier.threads
        )


def look(process: int) -> ProcessView:
    """The process as it is now."""
    folder = _PROCESSES / str(process)
    threads = {task.name: thread for task in (folder / "task").iterdir() if (thread := _thread(task)) is not None}
    by_size: Counter[int] = Counter()
    mappings: Counter[int] = Counter()
    for mapping in (folder / "smaps").read_text().split("VmFlags:")[:-1]:
        size = _field(mapping, "Size")
        by_size[size] += _field(mapping, "Private_Dirty")
        mappings[size] += 1
    return ProcessView(threads, by_size.total(), by_size, mappings)


def _thread(task: Path) -> _Thread | None:
    """None when it has just ended."""
    try:
        return _Thread(
            processor_ms=int((task / "schedstat").read_text().split()[0]) / 1e6,
            wake_ups=_field((task / "status").read_text(), "voluntary_ctxt_switches"),
        )
    except (FileNotFoundError, ProcessLookupError):
        return None


def _field(text: str, name: str) -> int:
    for line in text.splitlines():
        if line.startswith(f"{name}:"):
            return int(line.split()[1])
    raise RuntimeError(f"the kernel does not tell {name}")
