"""Every fault and pairs of faults against the portable service on Linux: scripts/faults, and scripts/lab replay.

Uses wire, windows, terminal, scenarios and runner.
"""
