"""USB captures: a transcript out as one, and one in as a camera that answers the same: scripts/lab capture.

Uses terminal, report, scenarios, windows, wire, runner and faults.
"""
