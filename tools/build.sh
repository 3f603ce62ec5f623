#!/usr/bin/env bash
# Builds what is shipped: Brevant.exe, BrevantCheck.exe, KzDbg64.dll and libexpat.dll, stripped, in build/release/bin;
# then starts each program once on a throwaway machine. Takes no arguments.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

source tools/tool.sh
answer_options "" "$@"
tools/setup.sh
source tools/programs.sh
forget_copied_builds
echo "[build] release"
start=$SECONDS
cmake --preset release -Wno-dev >/dev/null
cmake --build --preset release
BREVANT_BIN="$PWD/build/release/bin" PYTHONPATH=tools python3 -B -m brevantlab.first_start
echo "[build] done in $((SECONDS - start)) s:"
(cd build/release/bin && stat --format='  build/release/bin/%n  %s bytes' -- *.exe *.dll)
