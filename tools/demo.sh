#!/usr/bin/env bash
# The main job on a bare machine: sets up, builds, and plays the sample update through on throwaway machines, from
# "Brevant.exe /DeployFramework" over the restart to the product's new name. Exit code 0 only when all went as it should.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

start=$SECONDS
tools/build.sh
echo "[demo] stand-in for the message box that asks the user to restart"
cmake --preset test -Wno-dev >/dev/null
cmake --build --preset test --target standin_wtsapi32
echo "[demo] ready after $((SECONDS - start)) s"

export BREVANT_BIN="$PWD/build/release/bin" BREVANT_STANDINS="$PWD/build/test/bin/standins"
export PYTHONPATH="$PWD/tools"
exec python3 -B -m brevantlab.demo
