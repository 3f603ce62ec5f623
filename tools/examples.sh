#!/usr/bin/env bash
# Writes docs/examples, docs/tools, docs/trials and samples/answers.txt again, after an intended change of what programs
# or tools print: "git diff" then shows what has changed. Exit code: 0 written, 64 a wrong option, 70 the programs could
# not be built.
# BREVANT_BIN, when it is set, is the folder with the programs to be shown in place of those built here.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
source tools/tool.sh
answer_options "" "$@"
source tools/programs.sh
prepare_programs
python3 -B -m brevantlab.rehearsal
python3 -B -m brevantlab.examples
rm -f samples/answers.txt
export BREVANT_ANSWERS=write # by every comparison of plan and run that has a name
python3 -B -m brevantlab.trials
cd tests/system
python3 -B -m unittest -q test_undo
