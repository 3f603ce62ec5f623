#!/usr/bin/env bash
# The main job on a bare machine: sets up, builds, and tries the sample update in each of its languages, from
# "Brevant.exe /DeployFramework" over the restart to the product's new name. Exit code: 0 complete, 1 not, 4 the checker
# itself failed, 64 a wrong option, 70 the programs could not be built.
# --details shows the result for every file, value, shortcut and setting, and the trace; --report DIR writes pages.
# BREVANT_BIN, when it is set, is the folder with the programs to be tried in place of those built here.
set -euo pipefail
caller="$PWD"
cd "$(dirname "${BASH_SOURCE[0]}")/.."
source tools/tool.sh
ask_parser brevantlab.demo "$@"
source tools/programs.sh
prepare_programs "$@"
cd "$caller"
exec python3 -B -m brevantlab.demo "$@"
