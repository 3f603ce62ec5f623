#!/usr/bin/env bash
# Measures the program against the bare Windows calls and an empty program: sets up, builds, and runs the benchmarks on
# a throwaway machine, about two minutes on a quiet one. --quick takes fewer rounds and leaves out how the cost of a
# deployment grows with its files.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

tools/build.sh
cmake --build --preset release --target bench empty
exec python3 -B bench/bench.py "$@"
