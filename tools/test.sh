#!/usr/bin/env bash
# Sets up, checks formats and sources, builds the shipped and the checked programs, and runs every test.
# Arguments go to ctest, for example: tools/test.sh -R system
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
source tools/packages.sh

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

# Machines whose test was ended by force; a name that this system cannot remove is no reason to stop.
[[ ! -d build/machines ]] ||
    find build/machines -mindepth 1 -maxdepth 1 -mmin +120 -exec rm -rf {} + ||
    echo "[test] not all of build/machines could be removed"

step "set-up" tools/setup.sh
need_packages chromium # in which the report of a trial is opened
step "format" check_format
step "Python" tools/analyse.sh --python
step "shipped programs" tools/build.sh
step "checked programs and tests" build_checked
echo "[test] tests (${SECONDS} s so far)"
exec ctest --preset test --no-tests=error "$@"
