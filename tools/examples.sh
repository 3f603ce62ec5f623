#!/usr/bin/env bash
# Writes docs/examples again, after an intended change of what BrevantCheck prints: "git diff docs/examples" then shows
# what has changed. Exit code: 0 written, 64 a wrong option, 70 the programs could not be built.
# BREVANT_BIN, when it is set, is the folder with the programs to be shown in place of those built here.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
source tools/tool.sh
answer_options "" "$@"
source tools/programs.sh
prepare_programs
exec python3 -B -m brevantlab.examples
