"""Measurements of the portable code and of the executable's file, on the host.

Uses bench.
"""
