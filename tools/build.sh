#!/usr/bin/env bash
# Builds what is shipped: Brevant.exe, BrevantCheck.exe, KzDbg64.dll and libexpat.dll, stripped, in build/release/bin.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

tools/setup.sh
echo "[build] release"
start=$SECONDS
cmake --preset release -Wno-dev >/dev/null
cmake --build --preset release
echo "[build] done in $((SECONDS - start)) s:"
(cd build/release/bin && stat --format='  build/release/bin/%n  %s bytes' -- *.exe *.dll)
