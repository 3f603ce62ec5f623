#!/usr/bin/env bash
# Runs BrevantCheck from Debian on a throwaway machine, with paths of the host: tools/check.sh VERB ARGUMENT..., like
# BrevantCheck itself, or tools/check.sh UPDATE... [OPTION]... to lint each update. tools/check.sh VERB --help lists the
# options of a verb. The output names files by their paths on the host. Exit code: the program's, of several updates
# the highest; 3010, a restart is pending, shows as 194. Its own: 64 a wrong use.
set -euo pipefail
here="$PWD"
cd "$(dirname "${BASH_SOURCE[0]}")/.."
source tools/tool.sh
readonly kVerbs=" lint plan ready manifest sign check-signature diff verify rollup trace new undo "

# The updates and the options of lint, for a call without a verb.
updates=() options=()
take_updates() {
    while [[ $# -gt 0 ]]; do
        case "$1" in
            --installed | --language | --format) # their values are no updates
                [[ $# -gt 1 ]] || wrong_use "$1: a value is missing"
                options+=("$1" "$2")
                shift
                ;;
            --strict) options+=("$1") ;;
            *)
                [[ -d "$here/$1" || "$1" == /* && -d "$1" ]] || wrong_use "no verb and no update: $1"
                updates+=("$1")
                ;;
        esac
        shift
    done
    [[ ${#updates[@]} -gt 0 ]] || wrong_use "no update"
}

[[ $# -gt 0 ]] || answer_help --help
verb=""
if [[ "$1" == --version || "$kVerbs" == *" $1 "* ]]; then
    verb="$1"
else
    answer_help "$1"
    take_updates "$@"
fi
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

# On the machine the host's files are on drive Z:, which is also the current drive: every path is the same there.
tools="$PWD/tools"
cd "$here"
check() {
    PYTHONPATH="$tools" BREVANT_HOST_DRIVE=Z: python3 -B -m brevantlab.machine run "$program" "$@"
}

# The program cannot start a command of the host, so this does what its verb "sign" does on Windows.
sign() {
    local update='' with='' manifest links
    while [[ $# -gt 0 ]]; do
        if [[ "$1" == --with && $# -gt 1 ]]; then
            with="$2"
            shift
        elif [[ -z "$update" && "$1" != -* ]]; then
            update="$1"
        else
            wrong_use "sign: not understood: $1"
        fi
        shift
    done
    [[ -n "$update" && -n "$with" ]] || wrong_use "sign UPDATE --with COMMAND"
    # On the throwaway machine a link to a file looks like the file, which it is not for Windows.
    links="$([[ ! -d "$update" ]] || find "$update" -type l)"
    [[ -z "$links" ]] || { echo "$links: a link, and no signature covers what it leads to" >&2; exit 3; }
    manifest="$(check manifest --into "$update")" || exit
    manifest="${manifest%: written*}"
    rm -f -- "$manifest.sig"
    # As for the program on Windows, a part of the command may be in quotes.
    bash -c "$with \"\$1\"" signer "$manifest" || fail_sign "$with"
    [[ -s "$manifest.sig" ]] || fail_sign "$with"
    echo "$manifest.sig: written"
}

fail_sign() {
    echo "$1: wrote no signature" >&2
    exit 3
}

[[ "$verb" != sign || "${2:-}" == --help ]] || { sign "${@:2}"; exit; }
[[ -z "$verb" ]] || { check "$@"; exit; }
code=0
for update in "${updates[@]}"; do
    check lint "$update" "${options[@]}" || { result=$?; ((result <= code)) || code=$result; }
done
exit "$code"
