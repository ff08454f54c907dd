"""Causes: the rows of docs/operations.md, which say what a trouble is and what to do about it.

Uses nothing but the root.
"""
