"""The demo, scripts/demo: one update that a person watches and may answer.

Uses wire, windows, terminal, updates, guest, buses, and the codes of report.
"""
