"""Carries scenarios out on the service: scripts/lab list and scripts/lab run.

Uses wire, windows, terminal, scenarios, judgement, guest and buses.
"""
