"""Every fault and pairs of faults against the portable service on Linux: scripts/faults.

Uses wire, windows, terminal, again, scenarios and runner.
"""
