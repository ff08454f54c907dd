"""What the developer's scripts do: builds, tests, checks, bare machines. They may use the laboratory's veyra_lab."""
