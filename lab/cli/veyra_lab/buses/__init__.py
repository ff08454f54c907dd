"""The bus that cameras are plugged into: the rig's own, or that of the guest's kernel.

Uses wire, windows, scenarios and guest.
"""
