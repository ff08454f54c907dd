"""The laboratory's command-line program: one firmware update of one camera, carried out, seen and judged."""
