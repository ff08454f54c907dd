"""Any failure again by its id: scripts/lab replay.

Uses wire, windows, terminal, again, buses, guest, scenarios, runner, traits, soak, faults and fuzz.
"""
