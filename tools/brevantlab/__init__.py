"""The lab: throwaway Windows machines, what is laid out on them, and what is read off them.

Imported as `brevantlab` with tools/ in PYTHONPATH; a program of it runs as `python3 -m brevantlab.NAME`."""
