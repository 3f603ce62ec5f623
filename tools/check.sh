#!/usr/bin/env bash
# Runs BrevantCheck from Debian on a throwaway machine: tools/check.sh VERB ARGUMENT... with paths of the host, or
# tools/check.sh UPDATE... to lint each update. Exit code: the program's, of several updates the highest; 3010, a
# restart is pending, shows as 194.
set -euo pipefail
here="$PWD"
cd "$(dirname "${BASH_SOURCE[0]}")/.."
program="${BREVANT_BIN:-$PWD/build/release/bin}/BrevantCheck.exe"
if [[ ! -f "$program" ]]; then
    tools/build.sh >&2
fi

# On the machine the host's files are those of the current drive, so that a full path is the same there.
check() {
    local arguments=() argument
    for argument in "$@"; do
        if [[ "$argument" != -* && "$argument" != /* && -e "$here/$argument" ]]; then
            argument="$(realpath -s "$here/$argument")"
        fi
        arguments+=("$argument")
    done
    PYTHONPATH=tools python3 -B -m brevantlab.machine run "$program" "${arguments[@]}"
}

case "${1:---help}" in
    lint | plan | manifest | verify | trace | -*) check "${@:---help}" ;;
    *)
        code=0
        for update in "$@"; do
            check lint "$update" || { result=$?; ((result <= code)) || code=$result; }
        done
        exit "$code"
        ;;
esac
