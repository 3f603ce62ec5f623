#!/usr/bin/env bash
# Analyses the product's code: with clang for the same target, the build's own warnings and clang-tidy's checks
# (.clang-tidy), and with cppcheck (tools/cppcheck.txt). flake8 and mypy (tools/mypy.ini) analyse the Python sources.
# Any finding fails. Takes some minutes; installs the packages it needs. Arguments are the sources to analyse instead of
# all, such as tools/analyse.sh src/common/KzComn_File.cpp; --python analyses only the Python sources.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

source tools/tool.sh
answer_help "$@"
for argument in "$@"; do
    [[ "$argument" == --python && $# -eq 1 ]] || [[ "$argument" == *.cpp && -f "$argument" ]] ||
        wrong_use "neither --python alone nor a source: $argument"
done
source tools/packages.sh

# Of clang: the oldest that is known here from 16 on; Debian 12's default, 14, does not know std::source_location.
kVersion="$(apt-cache pkgnames clang-tidy- | sed -nE 's/^clang-tidy-(1[6-9]|[2-9][0-9])$/\1/p' | sort -n | head -n 1)"
readonly kVersion="${kVersion:-16}"
readonly kPackages=("clang-$kVersion" "clang-tidy-$kVersion" cppcheck)
readonly kPythonPackages=(flake8 mypy)
readonly kBuild="$PWD/build/analyse" kGroups="$PWD/build/analyse/groups"

fail() { printf '[analyse] FAILED: %s\n' "$*" >&2; exit 1; }

step() {
    local start=$SECONDS name="$1"
    shift
    echo "[analyse] $name"
    "$@" || fail "$name"
    echo "[analyse] $name: $((SECONDS - start)) s"
}

# make_commands FOLDER [OPTION...]: the commands of the release build, with clang in the compiler's place.
make_commands() {
    local build="$1"
    shift
    cmake --preset release -B "$build" -DCCACHE=CCACHE-NOTFOUND -Wno-dev "$@" >/dev/null
    # clang does not look for the standard library in a folder of Debian's name.
    local headers clang="clang++-$kVersion --target=x86_64-w64-mingw32 -nostdinc++ -Wno-unknown-warning-option"
    headers="$(x86_64-w64-mingw32-g++-posix -print-file-name=include)/c++"
    for folder in "$headers" "$headers/x86_64-w64-mingw32" "$headers/backward"; do clang+=" -isystem $folder"; done
    mkdir -p "$build/clang"
    sed "s|[^ \"]*x86_64-w64-mingw32-g++-posix |$clang |" "$build/compile_commands.json" \
        >"$build/clang/compile_commands.json"
}

commands() {
    make_commands "$kBuild" -DCMAKE_UNITY_BUILD=OFF
    make_commands "$kGroups"
}

tidy_source() {
    local said
    said="$(clang-tidy-$kVersion --quiet --warnings-as-errors='*' -p "$kBuild/clang" "$1" 2>&1)" && return
    printf '[analyse] %s\n%s\n' "$1" "$(grep -v 'warnings* generated' <<<"$said")"
    return 1
}

# Eight sources of one target usually include the same headers: reading them as one takes a sixth of the time. If that
# finds anything, each source is read by itself, and only that result counts: names of two sources may collide, and a
# fault of the analyser is reported with its source's name.
tidy_group() {
    local source result=0
    clang-tidy-$kVersion --quiet --warnings-as-errors='*' --checks=-bugprone-suspicious-include \
        -p "$kGroups/clang" "$1" >/dev/null 2>&1 && return
    while read -r source; do tidy_source "$source" || result=1; done < <(sed -n 's/^#include "\(.*\)"$/\1/p' "$1")
    return $result
}
export -f tidy_source tidy_group
export kVersion kBuild kGroups

# Reads all sources even if one has findings, as many at once as there are processors.
tidy() {
    if [[ $# -gt 0 ]]; then
        printf '%s\0' "$@" | xargs -0 -P "$(nproc)" -I{} bash -c 'tidy_source "$1"' - {}
    else
        # The stand-ins belong to the tests.
        find "$kGroups/CMakeFiles" -path '*/Unity/*.cxx' ! -path '*/standin_*' -print0 | xargs -0 -P "$(nproc)" -I{} bash -c 'tidy_group "$1"' - {}
    fi
}

check() {
    cppcheck --quiet --error-exitcode=1 --platform=win64 --std=c++20 -j "$(nproc)" \
        --enable=warning,style,performance,portability --suppressions-list=tools/cppcheck.txt \
        --relative-paths="$PWD" "${sources[@]/#/--file-filter=*}" --project="$kBuild/clang/compile_commands.json"
}

# Runs Debian's own programs, not others of these names that the caller has installed.
python() {
    local folders=(tools tests bench samples)
    /usr/bin/flake8 --max-line-length 120 "${folders[@]}" &&
        /usr/bin/mypy --config-file tools/mypy.ini --cache-dir build/mypy $(find "${folders[@]}" -name '*.py')
}

if [[ "${1:-}" == --python ]]; then
    need_packages "${kPythonPackages[@]}"
    mkdir -p build
    step "Python" python
    exit
fi
if [[ $# -gt 0 ]]; then sources=("$@"); else mapfile -t sources < <(find src -name '*.cpp' | sort); fi
tools/setup.sh
need_packages "${kPackages[@]}" "${kPythonPackages[@]}"
step "commands" commands
step "clang and clang-tidy" tidy "$@"
step "cppcheck" check
step "Python" python
