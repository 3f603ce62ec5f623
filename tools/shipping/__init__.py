"""How what is built comes about and goes out: locked dependencies, and the release's files."""
