#!/usr/bin/env bash
# Runs the demo and every test on next year's machine: on the next Debian, built by its compiler once for each of the
# two C runtimes, and under its Wine. That Debian is created once, from nothing, in build/next, and kept there. Needs
# root, and a system on which root may mount.
#
#   tools/next.sh [SUITE]          everything; SUITE is trixie (Debian 13) unless another one is named; UCRT comes first
#   tools/next.sh --only RUNTIME   one runtime: msvcrt, or ucrt, the one that is part of Windows 10
#   tools/next.sh -- COMMAND...    this in place of demo and tests, such as: tools/next.sh -- tools/test.sh -R unit
#
# Ends with times and counts. The whole output is in build/next/SUITE-RUNTIME.log.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
source tools/tool.sh
answer_help "${1:-}"
source tools/packages.sh

readonly kKeys=/usr/share/keyrings/debian-archive-keyring.gpg
readonly kHome="$PWD/build/next"
readonly kSources="$PWD/build/sources"

say() { printf '[next] %s\n' "$*"; }
fail() { printf '[next] FAILED: %s\n' "$*" >&2; exit 1; }

read_arguments() {
    suite='' runtimes=(ucrt msvcrt) command=()
    while [[ $# -gt 0 && "$1" != -- ]]; do
        if [[ "$1" == --only && "${2:-}" =~ ^(msvcrt|ucrt)$ ]]; then
            runtimes=("$2")
            shift 2
        elif [[ "$1" =~ ^[a-z]+$ && -z "$suite" ]]; then
            suite="$1"
            shift
        else
            wrong_use "no such option: $*"
        fi
    done
    [[ $# -ne 1 ]] || wrong_use "no command follows --"
    command=("${@:2}")
    suite="${suite:-trixie}"
    root="$kHome/$suite"
}

create_root() {
    local start=$SECONDS log="$kHome/$suite.log" fresh="$root.new" mirror
    need_packages debootstrap debian-archive-keyring python3 util-linux
    rm -rf "$fresh" "$kHome/entries"
    mkdir -p "$kHome/entries"
    PYTHONPATH=tools python3 -B -m shipping.apt "$kHome/entries" "$suite"
    mirror="$(sed -nE 's/^URIs: *(\S+).*|^deb +(\[.*\] +)?(\S+).*/\1\3/p' "$kHome"/entries/* | head -n 1)"
    [[ -n "$mirror" ]] || fail "the apt sources of this machine name no archive of Debian to take $suite from"
    say "creating ${root#"$PWD/"}"
    debootstrap --variant=minbase --keyring="$kKeys" --include=ca-certificates,ccache "$suite" "$fresh" "$mirror" \
        >"$log" 2>&1 || { tail -n 5 "$log" >&2; fail "debootstrap made no $suite: is the archive within reach? ($log)"; }
    rm -f "$fresh/etc/apt/sources.list"
    cp "$kHome"/entries/* "$fresh/etc/apt/sources.list.d/"
    mv "$fresh" "$root"
    say "created in $((SECONDS - start)) s"
}

# As the first process of a system of its own: gives it its devices, and becomes the command, in a folder of the root.
become() {
    local root="$1" folder="$2" names=()
    mount -t proc proc "$root/proc"
    mount -t sysfs -o ro sysfs "$root/sys"
    mount --rbind /dev "$root/dev"
    mount -t tmpfs tmpfs "$root/dev/shm"
    mount --bind "$3" "$root/sources"
    for name in http_proxy https_proxy no_proxy; do [[ -z "${!name:-}" ]] || names+=("$name=${!name}"); done
    # shellcheck disable=SC2016
    exec chroot "$root" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LC_ALL=C.UTF-8 BREVANT_SOURCES=/sources \
        "${names[@]}" BREVANT_TOOLCHAIN="${folder##*/}" bash -c 'cd "$0" && exec "$@"' "$folder" "${@:4}"
}
export -f become

# enter FOLDER COMMAND...: this shell, a part of a pipeline, becomes a command in a folder of the root. Its mounts and
# all its processes end with it, and it ends with this tool.
enter() {
    # shellcheck disable=SC2016
    exec setpriv --pdeathsig KILL unshare --mount --pid --fork --kill-child bash -ec 'become "$@"' become "$root" "$1" "$kSources" "${@:2}"
}

# The project's files below the folder $1, each ended by a zero byte.
files_of() {
    (cd "$1" && find . '(' -path ./build -o -path ./dist -o -path ./.git -o -name __pycache__ ')' -prune -o -type f -print0)
}

# Puts the project's files into the folder $1, as they are now; what was built there stays. A file that is as before
# keeps its time, another one gets the present time: its own may be older than what was built before.
bring_sources() {
    local file
    mkdir -p "$1"
    while IFS= read -r -d '' file; do [[ -e "$file" ]] || rm -f -- "$1/$file"; done < <(files_of "$1")
    while IFS= read -r -d '' file; do
        cmp -s -- "$file" "$1/$file" && continue
        mkdir -p "$1/${file%/*}"
        cp --preserve=mode --remove-destination -- "$file" "$1/$file"
    done < <(files_of .)
}

# The demo and all tests, with their times. Runs in the root.
readonly kEverything='
start=$SECONDS
tools/demo.sh
echo "[next] demo: $((SECONDS - start)) s"
start=$SECONDS
tools/test.sh
echo "[next] tests: $((SECONDS - start)) s"'

# try RUNTIME: what was asked for with one runtime. The last line of its log says how it went.
try() {
    local log="$kHome/$suite-$1.log" result=0
    say "$suite, $1; log: ${log#"$PWD/"}"
    bring_sources "$root/brevant/$1"
    if [[ ${#command[@]} -gt 0 ]]; then
        enter "/brevant/$1" "${command[@]}" 2>&1 | tee "$log" || result=1
    else
        enter "/brevant/$1" bash -euo pipefail -c "$kEverything" 2>&1 | tee "$log" |
            { grep --line-buffered '^\[[a-z]*\]' || true; } || { tail -n 40 "$log" >&2; result=1; }
    fi
    return $result
}

# Debian's compiler itself names no more than its major version.
readonly kVersions='
compiler="$(dpkg-query -W -f "\${Version}" gcc-mingw-w64-base)"
echo "GCC ${compiler%%-*}, $(wine --version 2>/dev/null)"'

# report RUNTIME: compiler, Wine, seconds, and how many of ctest's tests passed.
report() {
    local log="$kHome/$suite-$1.log" versions
    versions="$(enter "/brevant/$1" bash -c "$kVersions")"
    say "$suite, $1: $versions; demo $(sed -n 's/^\[next\] demo: //p' "$log"), tests $(sed -n 's/^\[next\] tests: //p' "$log"):" \
        "$(sed -nE 's/.*, ([0-9]+) tests failed out of ([0-9]+)$/\1 \2/p' "$log" |
            awk '{ failed += $1; all += $2 } END { print all - failed " of " all " passed" }')"
}

main() {
    local runtime failed=()
    read_arguments "$@"
    [[ "$(id -u)" -eq 0 ]] || fail "root is needed: a Debian of its own is created and entered (sudo tools/next.sh)"
    mkdir -p "$kHome" "$kSources"
    exec 9>"$kHome/lock"
    flock -n 9 || fail "another tools/next.sh is at work here"
    unshare --mount --pid --fork true 2>/dev/null ||
        fail "root may not mount here: start the container as a privileged one, or use a virtual machine"
    [[ -d "$root" ]] || create_root
    mkdir -p "$root/sources"
    cp /etc/resolv.conf "$root/etc/resolv.conf"
    for runtime in "${runtimes[@]}"; do try "$runtime" || failed+=("$runtime"); done
    if [[ ${#command[@]} -eq 0 ]]; then
        for runtime in "${runtimes[@]}"; do report "$runtime"; done
    fi
    [[ ${#failed[@]} -eq 0 ]] || fail "$suite, ${failed[*]}"
    say "done in $SECONDS s"
}

main "$@"
