"""What the developer's scripts do: builds, tests, checks, fuzzing. They may use the laboratory's veyra_lab."""
