"""Causes: which rows of docs/operations.md a user's data are, and what to do. It reads the trace's text, exported
event logs and the companion's bundle, and takes nothing in them for granted.

Uses wire, windows, terminal and scenarios."""
