"""The Windows machine under Wine: the machine itself, what is installed in it, and the service's process.

Uses wire.
"""
