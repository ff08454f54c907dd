"""What makes a failure happen again: short digests for ids, transcripts that two plays can be compared by, and failures
made as small as they go.

Uses wire.
"""
