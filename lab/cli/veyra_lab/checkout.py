"""Where the checkout lies that this program belongs to."""

from pathlib import Path

CHECKOUT = Path(__file__).resolve().parents[3]
BUILD = CHECKOUT / "build"
