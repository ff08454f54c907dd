"""What kind of boot loader a captured device is: the traits and times with which it answers by itself as was seen."""

from collections import Counter
from collections.abc import Sequence
from dataclasses import dataclass, field

from .answers import is_block, is_closing, is_request, ms, poll_in, state_behind, state_in, status_in
from .boot_loader import STATUS_BLOCK, Settings, State
from .stays import Stay
from .transfer import SET_INTERFACE, End, Request, Transfer

_DEFAULT_TRANSFER_SIZE = 1024
# So much may lie between the time that a device tells and the one in which it was seen to be ready.
_TOLERANCE_MS = 2
_SHORTEST_WRITING_MS = 5
_LONGEST_MS = 600_000
_MANIFESTING = (State.MANIFEST_SYNC, State.MANIFEST)


@dataclass
class Inference:
    """The settings, and what is to be said about them."""

    settings: Settings = field(default_factory=Settings)
    words: list[str] = field(default_factory=list)


@dataclass(frozen=True)
class _Look:
    """An answer to GETSTATUS or GETSTATE, so many milliseconds behind what is looked at."""

    after: int
    state: int
    poll: int | None


def infer(stay: Stay) -> Inference:
    """From everything that is in the capture. Where it shows nothing, the device is a KV400, which is said."""
    found = Inference()
    requests = stay.requests
    _transfer_size(stay, found)
    _detach(stay, requests, found)
    _upload(requests, found)
    _set_interface(requests, found)
    _blocks(requests, found)
    _manifestation(stay, requests, found)
    _refusals(requests, found)
    return found


def _transfer_size(stay: Stay, found: Inference) -> None:
    interface = stay.interface
    if interface is not None and interface.transfer_size is not None:
        found.settings.transfer_size = interface.transfer_size
        return
    longest = max((each.length for each in stay.requests if is_block(each)), default=_DEFAULT_TRANSFER_SIZE)
    found.settings.transfer_size = longest
    found.words.append(
        f"not in the capture: a DFU functional descriptor; the transfer size is that of the longest block, {longest} bytes"
    )


def _detach(stay: Stay, requests: Sequence[Transfer], found: Inference) -> None:
    places = [place for place, each in enumerate(requests) if is_request(each, Request.DETACH)]
    if not places:
        found.words.append("not in the capture: DETACH in DFU mode; it is accepted, as by a KV400")
        return
    if all(requests[place].end is End.STALL for place in places):
        found.settings.traits["detach"] = "stalls"
        return
    last = places[-1]
    answered = requests[last].end is End.OK
    is_last = all(each.end in (End.GONE, End.BROKEN) for each in requests[last + 1 :])
    if answered and is_last and stay.left:
        comes_back = stay.next is not None and stay.next.is_dfu
        found.settings.traits["detach"] = "restarts in dfu mode" if comes_back else "restarts"


def _upload(requests: Sequence[Transfer], found: Inference) -> None:
    state: int | None = State.IDLE
    for place, each in enumerate(requests):
        if is_request(each, Request.UPLOAD) and state == State.IDLE:
            behind = state_behind(requests, place)
            if each.end is End.STALL:
                found.settings.traits["upload"] = "stalls"
            elif each.end is End.OK and (behind == State.UPLOAD_IDLE or each.asked != STATUS_BLOCK):
                found.settings.traits["upload"] = "flash"
            if behind == State.UPLOAD_IDLE and any(
                is_block(later) and later.end is End.OK and state_behind(requests, number) == State.UPLOAD_IDLE
                for number, later in enumerate(requests[place:], place)
            ):
                found.settings.traits["drops_blocks_in_upload"] = True
            return
        told = state_in(each)
        if told is not None:
            state = told
        elif is_request(each, Request.DNLOAD):
            state = None
    found.words.append("not in the capture: UPLOAD in dfuIDLE; it answers a KV400's status block")


def _set_interface(requests: Sequence[Transfer], found: Inference) -> None:
    settings = [each for each in requests if not each.is_dfu and each.request == SET_INTERFACE]
    if settings and all(each.end is End.STALL for each in settings):
        found.settings.traits["set_interface"] = "stalls"
        return
    before: int | None = State.IDLE
    resets = []
    for place, each in enumerate(requests):
        if not each.is_dfu and each.end is End.OK and before not in (None, State.IDLE):
            resets.append(state_behind(requests, place))
            before = None
        told = state_in(each)
        if told is not None:
            before = told
        elif each.is_dfu and each.end is not End.STALL:
            before = None
    if resets and all(state == State.IDLE for state in resets):
        found.settings.traits["set_interface"] = "resets state"


def _between(lowest: int, highest: int) -> int:
    """A time that was not over after the one, and was after the other."""
    middle = lowest + 1 if highest >= _LONGEST_MS else (lowest + highest) // 2
    return min(max(middle, 0), _LONGEST_MS)


def _looks(requests: Sequence[Transfer], place: int) -> list[_Look]:
    """What was told behind a DNLOAD, up to the next request of another kind."""
    looks = []
    for each in (requests[number] for number in range(place + 1, len(requests))):
        if each.is_dfu and each.request not in (Request.GETSTATUS, Request.GETSTATE):
            break
        state = state_in(each)
        if state is not None:
            poll = poll_in(each.data) if is_request(each, Request.GETSTATUS) else None
            looks.append(_Look(ms(each.began - requests[place].ended), state, poll))
    return looks


def _blocks(requests: Sequence[Transfer], found: Inference) -> None:
    """How long a block takes. A camera that is ready can still be told to say that it is not; never the other way round:
    so nothing is inferred that does not hold for each block."""
    blocks = [_looks(requests, place) for place, each in enumerate(requests) if is_block(each) and each.end is End.OK]
    told = [looks for looks in blocks if looks]
    if not told:
        found.words.append("not in the capture: how long a block takes to write; it takes no time")
        return
    if not all(looks[0].state == State.DNBUSY for looks in told):
        return
    settings = found.settings
    busy = [[look for look in looks if look.state == State.DNBUSY] for looks in told]
    ready = [next((look.after for look in looks if look.state != State.DNBUSY), None) for looks in told]
    longest_busy = max(looks[-1].after for looks in busy)
    earliest_ready = min((after for after in ready if after is not None), default=_LONGEST_MS)
    polls = Counter(looks[0].poll for looks in busy if looks[0].poll is not None)
    poll = polls.most_common(1)[0][0] if polls else 0
    # What is told is the time that is left.
    poll += busy[0][0].after if 0 < poll <= longest_busy else 0
    if longest_busy > earliest_ready or poll == 0 and longest_busy < _SHORTEST_WRITING_MS:
        settings.traits["busy_first"] = True
    elif longest_busy < poll <= earliest_ready + _TOLERANCE_MS:
        settings.block_ms = min(poll, _LONGEST_MS)
    else:
        settings.block_ms = _between(longest_busy, earliest_ready)
        if not settings.block_ms:
            settings.traits["busy_first"] = True
    if settings.block_ms and poll == 0:
        settings.traits["hides_write_time"] = True
    for place, each in enumerate(requests[1:], 1):
        is_refused = each.end is End.STALL and is_request(each, Request.GETSTATUS)
        if is_refused and state_in(requests[place - 1]) == State.DNBUSY:
            settings.traits["answers_while_writing"] = False


def _manifestation(stay: Stay, requests: Sequence[Transfer], found: Inference) -> None:
    settings = found.settings
    place = next((number for number, each in reversed(list(enumerate(requests))) if is_closing(each)), None)
    looks = _looks(requests, place) if place is not None and requests[place].end is End.OK else []
    if place is not None and requests[place].end is End.OK and not any(map(is_block, requests[:place])):
        settings.traits["takes_empty_image"] = True
    if place is None or not looks:
        if stay.interface is not None and stay.interface.is_tolerant:
            settings.traits["manifestation"] = "tolerant"
        found.words.append("not in the capture: how manifestation ends; it ends as the descriptor tells, or a KV400's")
        return
    behind = requests[place + 1 :]
    states = [look.state for look in looks]
    manifesting = [look for look in looks if look.state in _MANIFESTING]
    first, last = (manifesting[0], manifesting[-1]) if manifesting else (looks[0], looks[0])
    end = next((look.after for look in looks if look.state not in _MANIFESTING), None)
    gone = next((ms(each.began - requests[place].ended) for each in behind if each.end is End.GONE), None)
    settings.manifests_at_once = not manifesting
    refused = next((number for number, each in enumerate(behind) if each.end is End.STALL), None)
    # The first is asked in dfuMANIFEST-SYNC, which always answers.
    if refused is not None and len(looks) == len(manifesting) == 1 and not any(map(_tells, behind[refused:])):
        settings.traits["answers_while_manifesting"] = False
    if State.IDLE in states:
        settings.traits["manifestation"] = "tolerant"
    elif states.count(State.MANIFEST_WAIT_RESET) > 1:
        settings.traits["manifestation"] = "waits for reset"
    elif State.MANIFEST_WAIT_RESET not in states and gone is None and not stay.left:
        settings.traits["manifestation"] = "waits for reset"
    if manifesting:
        poll = first.poll or 0
        until = end if end is not None else gone if refused is None else None
        lowest, highest = last.after - first.after, _LONGEST_MS if until is None else until - first.after
        fits = lowest < poll <= highest + _TOLERANCE_MS
        # Gone before its time is a pulled cable.
        is_pulled = end is None and lowest < poll
        settings.manifest_ms = min(poll, _LONGEST_MS) if fits or is_pulled else _between(lowest, highest)
        if end is None and until is not None and (fits or not is_pulled):
            settings.reset_ms = 0
    waiting = [look.after for look in looks if look.state == State.MANIFEST_WAIT_RESET]
    if waiting and waiting[-1] - first.after - settings.manifest_ms >= settings.reset_ms:
        settings.reset_ms = min(waiting[-1], _LONGEST_MS)


def _tells(transfer: Transfer) -> bool:
    return state_in(transfer) is not None


def _refusals(requests: Sequence[Transfer], found: Inference) -> None:
    """Whether a refused request leaves the state alone, and whether an error shows its status."""
    refused = [place for place, each in enumerate(requests) if each.is_dfu and each.end is End.STALL]
    known = [state for state in (state_behind(requests, place) for place in refused) if state is not None]
    if known and State.ERROR not in known:
        found.settings.traits["stalls_in_place"] = True
    statuses = [status_in(each) for each in requests if state_in(each) == State.ERROR]
    told = [status for status in statuses if status is not None]
    if told and not any(told):
        found.settings.traits["hides_status"] = True
