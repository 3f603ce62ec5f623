#!/usr/bin/env bash
# Measures the program against the bare Windows calls and an empty program: sets up, builds, and runs the benchmarks on
# a throwaway machine, about three minutes on a quiet one. --quick takes fewer rounds and leaves out how the cost of a
# deployment grows with its files; --plot draws that growth into docs/growth.svg.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

caller="$PWD"
source tools/tool.sh
ask_parser bench "$@"
source tools/packages.sh
[[ " $* " != *" --plot "* ]] || need_packages python3-matplotlib
tools/build.sh
cmake --build --preset release --target bench empty
export PYTHONPATH="$PWD/tools"
exec /usr/bin/python3 -B bench/bench.py "$@"
