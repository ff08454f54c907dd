"""The long run, scripts/soak: update after update with random faults.

Uses wire, windows, terminal, again, scenarios, judgement and runner.
"""
