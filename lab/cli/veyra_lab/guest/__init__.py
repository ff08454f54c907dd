"""The guest: a virtual machine whose Linux kernel drives what is plugged into its USB bus.

Uses wire and terminal.
"""
