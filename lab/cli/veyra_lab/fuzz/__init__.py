"""What a fuzz target has found: named, played again, made small, and as a scenario where it is a road of the service.

Uses terminal, again, scenarios, runner and faults.
"""
