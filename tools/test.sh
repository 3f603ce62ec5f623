#!/usr/bin/env bash
# Sets up, checks formats and sources, builds the checked and the shipped programs, and runs every test: first what
# finds the common mistake (format, Python, unit tests), then the rest.
#
#   tools/test.sh           everything
#   tools/test.sh --fast    no more than format and unit tests, for an edit cycle
#   tools/test.sh -R NAME   builds everything and runs some tests; the arguments go to ctest
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
source tools/tool.sh
answer_help "${1:-}"
readonly kCtestOptions=' -R -E -L -LE -I -j -N -V -VV -Q --verbose --quiet --repeat --rerun-failed --timeout --parallel
    --output-on-failure --stop-on-failure --schedule-random --progress --show-only --tests-regex --exclude-regex '
# --fast is the only argument; the first of ctest's arguments is an option, and any other word belongs to the option
# before it.
for argument in "$@"; do
    [[ $# -eq 1 && "$argument" == --fast || "$argument" != -* && "$argument" != "$1" ]] ||
        [[ "$kCtestOptions" =~ [[:space:]]"${argument%%[=0-9]*}"[[:space:]] ]] || wrong_use "no such option: $argument"
done
source tools/packages.sh
source tools/programs.sh

readonly kUnitTests='^unit\.'
readonly kFormatVersion=14 # of clang-format, Debian 12's: another version formats some lines in another way

step() {
    local start=$SECONDS name="$1"
    shift
    echo "[test] $name"
    "$@"
    echo "[test] $name: $((SECONDS - start)) s"
}

check_format() {
    if [[ ! "$(clang-format --version)" =~ \ version\ $kFormatVersion\. ]]; then
        echo "[test] NOTICE: the format is not checked: this is not clang-format $kFormatVersion"
        return 0
    fi
    find . -path ./build -prune -o '(' -name '*.h' -o -name '*.cpp' ')' -print0 |
        xargs -0 -r clang-format --dry-run -Werror
}

build_checked() {
    forget_copied_builds
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
need_packages python3-jsonschema libxml2-utils # for the schemas
need_packages openssl # for signatures
step "locked dependencies" tools/update-dependencies.sh --check || true # says it, and the tests go on
step "Python" tools/analyse.sh --python
step "checked programs and tests" build_checked
[[ $# -gt 0 ]] || step "unit tests" run_tests -R "$kUnitTests"
step "shipped programs" tools/build.sh
if [[ $# -gt 0 ]]; then step "tests" run_tests "$@"; else step "other tests" run_tests -E "$kUnitTests"; fi
echo "[test] passed after $SECONDS s"
