"""Measurements of the product against references, in one run on one machine: scripts/bench.

Here is the table; portable and service measure. Uses no other room, but for the program itself, which uses them all.
"""
