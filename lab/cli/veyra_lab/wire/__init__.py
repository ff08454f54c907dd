"""The wire: the connection with rig, toast server, guest and camera servers, and what comes over it.

Uses no other room.
"""
