"""The picture of an update: a transcript read, understood and drawn as one page.

Uses terminal and causes.
"""
