#!/usr/bin/env bash
# Runs BrevantCheck from Debian on a throwaway machine: tools/check.sh VERB ARGUMENT... with paths of the host, or
# tools/check.sh UPDATE... to lint each update. Exit code: the program's, of several updates the highest; 3010, a
# restart is pending, shows as 194. Its own: 64 a wrong use. tools/check.sh VERB --help tells the options of a verb.
set -euo pipefail
here="$PWD"
cd "$(dirname "${BASH_SOURCE[0]}")/.."
source tools/tool.sh
[[ $# -gt 0 ]] || answer_help --help
case "$1" in
    new | lint | plan | manifest | verify | trace) ;; # their options are the program's
    --version) ;;
    *)
        answer_help "$1"
        for update in "$@"; do
            [[ -d "$here/$update" || -d "$update" ]] || wrong_use "no verb and no update: $update"
        done
        ;;
esac
source tools/programs.sh
program="$(caller="$here" programs_folder)/BrevantCheck.exe"
if [[ ! -f CMakeLists.txt ]]; then
    need_wine
    need_programs "${program%/*}"
elif [[ ! -f "$program" ]]; then
    answer_help "$@" # of a verb: not before there is a program to be asked
    tools/build.sh >&2
fi
if [[ -d docs ]]; then guides=docs; else guides=guides; fi
root="$PWD"
# The pages that SARIF names.
export BREVANT_GUIDES="${BREVANT_GUIDES:-file://${root// /%20}/$guides/}"

# On the machine the host's files are those of the current drive, so that a full path is the same there.
check() {
    local arguments=() argument
    for argument in "$@"; do
        if [[ "$argument" != -* && "$argument" != /* && -e "$here/$argument" ]]; then
            argument="$(realpath -s "$here/$argument")"
        fi
        arguments+=("$argument")
    done
    (cd "$here" && PYTHONPATH="$root/tools" python3 -B -m brevantlab.machine run "$program" "${arguments[@]}")
}

case "$1" in
    new | lint | plan | manifest | verify | trace | -*) check "$@" ;;
    *)
        code=0
        for update in "$@"; do
            check lint "$update" || { result=$?; ((result <= code)) || code=$result; }
        done
        exit "$code"
        ;;
esac
