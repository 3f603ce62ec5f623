#!/usr/bin/env bash
# Sets up, checks formats and sources, builds the checked and the shipped programs, and runs every test: first what
# finds the common mistake (format, Python, unit tests), then the rest.
#
#   tools/test.sh           everything
#   tools/test.sh --fast    no more than format and unit tests, for an edit cycle
#   tools/test.sh -R NAME   builds everything and runs some tests; the arguments go to ctest
set -euo pipefail
usage() { sed -n '2,8s/^# \{0,1\}//p' "${BASH_SOURCE[0]}"; }
[[ "${1:-}" != --help ]] || { usage; exit 0; }
cd "$(dirname "${BASH_SOURCE[0]}")/.."
source tools/packages.sh

readonly kUnitTests='^unit\.'

step() {
    local start=$SECONDS name="$1"
    shift
    echo "[test] $name"
    "$@"
    echo "[test] $name: $((SECONDS - start)) s"
}

check_format() {
    find . -path ./build -prune -o '(' -name '*.h' -o -name '*.cpp' ')' -print0 |
        xargs -0 -r clang-format --dry-run -Werror
}

build_checked() {
    cmake --preset test -Wno-dev >/dev/null
    cmake --build --preset test
}

run_tests() { ctest --preset test --no-tests=error "$@"; }

# Machines whose test was ended by force; a name that this system cannot remove is no reason to stop.
[[ ! -d build/machines ]] ||
    find build/machines -mindepth 1 -maxdepth 1 -mmin +120 -exec rm -rf {} + ||
    echo "[test] not all of build/machines could be removed"

step "set-up" tools/setup.sh
step "format" check_format
if [[ "${1:-}" == --fast ]]; then
    step "checked programs and tests" build_checked
    step "unit tests" run_tests -R "$kUnitTests"
    exit
fi
need_packages chromium # in which the report of a trial is opened
step "Python" tools/analyse.sh --python
step "checked programs and tests" build_checked
[[ $# -gt 0 ]] || step "unit tests" run_tests -R "$kUnitTests"
step "shipped programs" tools/build.sh
if [[ $# -gt 0 ]]; then step "tests" run_tests "$@"; else step "other tests" run_tests -E "$kUnitTests"; fi
echo "[test] passed after $SECONDS s"
