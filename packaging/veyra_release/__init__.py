"""What a release has beside its ZIP and its MSI: who made what is in the programs, what to trust, and where to get it."""
