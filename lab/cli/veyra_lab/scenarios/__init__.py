"""The language of scenario files: what they may say, and how they are read.

Uses wire and windows.
"""
