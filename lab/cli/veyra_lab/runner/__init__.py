"""Carries scenarios out on the service: scripts/lab list and scripts/lab run.

Uses wire, windows, terminal, again, scenarios, judgement, guest, buses and causes.
"""
