"""The sets of rows that what a user can send of a fault scenario does not tell apart, each with the reason. An answer with
any other set says too little."""

_AWAY = "a camera that waits to be plugged in and one that refused the image both stay away; what they said is not traced"

# The rows of a set stand here in the order of the alphabet.
REASONS = {
    ("behind-another", "block-failed", "refused", "restarts-at-detach"): (
        "a download goes to the first camera in DFU mode, and no message says which of two it was"
    ),
    ("block-failed", "end-failed"): "of a short last block the record does not say whether the camera took it",
    ("block-failed", "image-gone", "refused"): (
        "an empty image announces no blocks, and neither does a download that stops while the image is opened"
    ),
    ("block-failed", "refused", "restarts-at-detach"): (
        "which request failed is not traced, and a camera that restarts is back as one that was plugged in again"
    ),
    ("controller-hangs", "unanswered"): (
        "until the service ends nothing more is traced, whether the user or the toast controller does not answer"
    ),
    ("does-not-stop", "end-failed", "waits-for-plug"): f"{_AWAY}, and the trace ends when the service does",
    ("driver-late", "driver-wrong"): "a camera that could not be opened once; only a second look tells them apart",
    ("end-failed", "up-to-date"): (
        "the camera is back with the image's version; what the service was told at the end is not traced"
    ),
    ("end-failed", "up-to-date", "wrong-content"): (
        "the camera is back with the image's version; what is in its flash is not traced"
    ),
    ("end-failed", "waits-for-plug"): _AWAY,
    ("no-firmware", "refused", "restarts-at-detach"): (
        "a camera in DFU mode that nobody was asked about has no firmware, or was left so by what the trace does not hold"
    ),
    ("not-switched", "up-to-date"): (
        "of two acceptances of one camera the second finds it gone, whatever the first came to"
    ),
    ("no-media", "unanswered"): (
        "some PCs list a camera once; elsewhere it has gone when its other listing is silent, and its question stays open"
    ),
}


def reason(rows: tuple[str, ...]) -> str:
    """Why these rows are not told apart; empty when they should be."""
    return REASONS.get(tuple(sorted(rows)), "")
