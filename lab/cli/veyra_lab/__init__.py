"""The laboratory's command-line programs: firmware updates of virtual cameras, carried out, seen, judged and measured.

Each folder is a room: its own text says what it is for and which rooms it may use. Arrows go one way, from the programs
(demo, runner, soak, bench, report) down to windows and wire. checkout is for all.
"""
