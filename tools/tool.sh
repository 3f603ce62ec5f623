# Functions for all tools, sourced by them: help, wrong use, and the progress of a build. Every tool checks its options
# before it sets up or builds anything.

kTool="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)/${0##*/}"
readonly kTool kWrongUse=64

# wrong_use TEXT: ends the tool.
wrong_use() {
    printf '%s: %s (--help tells its use)\n' "tools/${kTool##*/}" "$*" >&2
    exit "$kWrongUse"
}

# answer_help ARGUMENT...: prints the comment at the tool's head and ends the tool if --help is among the arguments.
answer_help() {
    local argument
    for argument in "$@"; do
        [[ "$argument" == --help || "$argument" == -h ]] || continue
        sed -n '2,${/^#/!q;s/^# \{0,1\}//p}' "$kTool"
        exit 0
    done
}

# answer_options "OPTION..." ARGUMENT...: --help, and any argument that is not one of these options is wrong use.
answer_options() {
    local known=" $1 " argument
    shift
    answer_help "$@"
    for argument in "$@"; do
        [[ -n "$argument" && "$known" == *" $argument "* ]] || wrong_use "no such option: $argument"
    done
}

# ask_parser MODULE ARGUMENT...: has the Python module of a tool answer --help and wrong options, seen from the caller's
# folder ($caller). A bare machine has no Python: there the tool's head is the help, and anything else installs it.
ask_parser() {
    local module="$1"
    shift
    if ! command -v python3 >/dev/null; then
        answer_help "$@"
        source tools/packages.sh
        need_packages python3
    fi
    local result=0 parsed=10
    (cd "$caller" && PYTHONPATH="${kTool%/*}:${kTool%/*}/../bench" python3 -B -c "import $module, sys
$module.parse(sys.argv[1:])
sys.exit($parsed)" "$@") || result=$?
    [[ $result -eq $parsed ]] || exit "$result"
}

# show_progress: passes on the notices of a build ("[setup] ...") and, every few seconds, how far it is.
show_progress() {
    local line tenth last=-1 shown=0
    while IFS= read -r line; do
        if [[ "$line" =~ ^\[([0-9]+)/([0-9]+)\] ]]; then
            tenth=$((BASH_REMATCH[1] * 10 / BASH_REMATCH[2]))
            ((BASH_REMATCH[1] > 0 && tenth != last && SECONDS >= shown + 3)) || continue
            echo "[build] ${BASH_REMATCH[1]} of ${BASH_REMATCH[2]} steps"
            last=$tenth shown=$SECONDS
        elif [[ "$line" =~ ^\[[a-z]+\] ]]; then
            printf '%s\n' "$line"
        fi
    done
}
