"""What every program of the laboratory has at the terminal: the screen, the command line, the call of scripts/setup.

Uses no other room.
"""
