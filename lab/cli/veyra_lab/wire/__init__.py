"""The wire: the connection with rig, toast controller, guest and camera servers, and what comes over it.

Uses no other room.
"""
