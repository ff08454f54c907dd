"""Measurements of the product against references, in one run on one machine: scripts/bench.

Here is the table; portable and service measure. Uses terminal; the program itself, __main__, uses all.
"""
