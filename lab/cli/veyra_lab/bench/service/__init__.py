"""Measurements of the service in the Windows machine, beside services that do less.

Uses wire, windows and bench.
"""
