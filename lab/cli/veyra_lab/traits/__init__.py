"""Boot loaders of every kind under the service that ships: scripts/lab traits.

Uses wire, windows, terminal, again, scenarios, judgement and runner.
"""
