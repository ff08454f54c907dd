"""What a scenario expects, looked up in what happened.

Uses wire, windows and scenarios.
"""
