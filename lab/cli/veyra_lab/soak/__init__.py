"""The long run, scripts/soak: update after update with random faults.

Uses wire, windows, terminal and judgement.
"""
