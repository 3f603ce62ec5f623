#!/usr/bin/env bash
# Tries an update on a throwaway machine: checks it, deploys it, answers, restarts, and shows the result. An update is a
# folder with the files to copy over the install folder; without one the sample is tried. --help lists the options.
# Exit code: 0 complete, 1 not, 2 refused by the checker, 3 the agent failed, 4 the checker itself failed (it crashed or
# could not read its input), 64 a wrong option, 70 nothing could be tried because the programs could not be built.
set -euo pipefail
caller="$PWD"
cd "$(dirname "${BASH_SOURCE[0]}")/.."
source tools/tool.sh
ask_parser brevantlab.try_update "$@"
source tools/programs.sh
prepare_programs "$@"
cd "$caller"
exec python3 -B -m brevantlab.try_update "$@"
