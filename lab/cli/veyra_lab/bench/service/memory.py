"""Line 3: memory during a large download."""

import time
from collections.abc import Iterator
from dataclasses import dataclass
from itertools import pairwise

from ...wire.events import RIG, Event
from ..table import Row, at_most
from .contenders import Contenders
from .updates import image_of

LINE = 3
_MIB = 1 << 20
_IMAGE = 64 * _MIB
_BLOCK = 16384
_CALM_SECONDS = 0.2
_PATIENCE_SECONDS = 600
_BAR_KIB = 1024


@dataclass(frozen=True)
class _Look:
    """Private bytes of the process, less those that the camera's flash takes in it, and its threads."""

    private_bytes: int
    threads: int


def measure(contenders: Contenders) -> Iterator[Row]:
    """Private bytes, again and again while the image is loaded and sent."""
    contenders.installation.put_image(image_of(_IMAGE))
    contenders.start(contenders.product, skip_waits=True)
    thread_bytes = _bytes_of_a_thread(contenders)
    idle = _calm_look(contenders)
    contenders.camera.put(transfer_size=_BLOCK)
    contenders.camera.plug()
    contenders.product.settle()
    looks = [idle]
    place = contenders.peer.mark()
    contenders.camera.accept()
    completed = False
    deadline = time.monotonic() + _PATIENCE_SECONDS
    while not completed:
        if time.monotonic() > deadline:
            raise AssertionError(f"the download did not end within {_PATIENCE_SECONDS} s")
        looks.append(_look(contenders))
        news = contenders.peer.events_since(place)
        place += len(news)
        completed = any(map(_is_completion, news))
    contenders.product.settle()
    state = contenders.camera.state()
    contenders.camera.unplug()
    contenders.product.settle()
    contenders.product.stop()
    if state["flash_bytes"] != _IMAGE:
        raise AssertionError(f"the camera was not updated: {state}")

    # A look during which a thread came or went may count its stack and not the thread, or the other way round.
    calm = [look for look, following in pairwise(looks) if look.threads == following.threads]
    above_idle = max(_without_threads(look, thread_bytes) for look in calm) - _without_threads(idle, thread_bytes)
    if above_idle < _IMAGE:
        raise AssertionError("no look was made while the image was in memory")
    yield at_most(
        LINE,
        "peak of a 64 MiB download, above idle, less the image",
        (above_idle - _IMAGE) / 1024,
        _BAR_KIB,
        "KiB",
        note=f"The most of {len(calm):,} looks at the private bytes, {idle.private_bytes / 1024:,.0f} KiB when idle."
        f" Threads that COM begins and ends are left out: this Windows counts {thread_bytes // 1024:,} KiB for each,"
        " its whole stack.",
    )


def _bytes_of_a_thread(contenders: Contenders) -> int:
    """What one more thread, which only waits, adds to the private bytes."""
    before = _calm_look(contenders)
    contenders.peer.command(RIG, "idle-threads", count=1)
    return _calm_look(contenders).private_bytes - before.private_bytes


def _calm_look(contenders: Contenders) -> _Look:
    """A look at a time when no threads come and go."""
    deadline = time.monotonic() + _PATIENCE_SECONDS
    look, earlier = _look(contenders), None
    while look != earlier:
        if time.monotonic() > deadline:
            raise AssertionError("the service's threads and memory do not come to rest")
        time.sleep(_CALM_SECONDS)
        look, earlier = _look(contenders), look
    return look


def _without_threads(look: _Look, thread_bytes: int) -> int:
    return look.private_bytes - thread_bytes * look.threads


def _is_completion(event: Event) -> bool:
    return event["event"] == "prompt-call" and event["method"] == "NotifyComplete"


def _look(contenders: Contenders) -> _Look:
    answer = contenders.peer.command(RIG, "resources")
    return _Look(answer["private_bytes"] - answer["camera_bytes"], answer["threads"])
