"""The lab: throwaway Windows machines, the files and keys put on them, and the results read from them.

Imported as `brevantlab` with tools/ in PYTHONPATH; a program of it runs as `python3 -m brevantlab.NAME`."""
