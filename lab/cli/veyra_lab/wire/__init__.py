"""The wire: the connection with the rig and the toast server, and what comes over it.

Uses no other room.
"""
