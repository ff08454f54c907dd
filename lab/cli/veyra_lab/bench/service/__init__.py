"""Measurements of the service in the Windows machine, beside services that do less, and beside another host.

Uses wire, windows, guest, buses and bench.
"""
