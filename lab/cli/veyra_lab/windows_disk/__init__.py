"""A person's own disk with Windows on it, under QEMU with virtual cameras on its bus: scripts/lab windows.

Uses wire, terminal and guest.
"""
