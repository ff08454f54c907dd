"""One whole update: what it is to be, what it left behind, and what has to hold of that.

Uses wire and windows.
"""
