"""The folders of the sources, from the root."""

# From the lowest layer up.
PRODUCT = ("support", "platform", "files", "changes", "logging", "trace", "engine", "trust", "telemetry",
           "commands", "launcher", "tools")
SOURCES = (*PRODUCT, "tests", "bench", "fuzz", "kit")
