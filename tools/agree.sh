#!/usr/bin/env bash
# Compares "BrevantCheck plan" with the run that follows, on random updates and throwaway machines: files, folders,
# registry, pending moves, commands, and for some of them the result of "verify" after a restart. --help lists the
# options. Exit code: 0 they agree, 1 not, 64 a wrong option, 70 nothing could be tried because the programs could not be
# built.
# BREVANT_BIN, when it is set, is the folder with the programs to be tried in place of those built here.
set -euo pipefail
caller="$PWD"
cd "$(dirname "${BASH_SOURCE[0]}")/.."
source tools/tool.sh
ask_parser brevantlab.agree "$@"
source tools/programs.sh
prepare_programs "$@"
cd "$caller"
exec python3 -B -m brevantlab.agree "$@"
