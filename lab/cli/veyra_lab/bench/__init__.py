"""Measurements of the product against references, in one run on one machine: scripts/bench."""
