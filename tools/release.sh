#!/usr/bin/env bash
# Makes the release that the tag at HEAD names, in dist/: brevant-VERSION.zip (programs, guides, licence notices),
# brevant-VERSION-symbols.zip, a bill of materials (CycloneDX) and SHA256SUMS. The demo passes on exactly these files,
# or nothing is made. docs/release.md tells the whole way.
#
#   tools/release.sh              BREVANT_SIGN names the command that signs a file: "$BREVANT_SIGN FILE"
#   tools/release.sh --unsigned   leaves the programs unsigned
#   tools/release.sh --verify     makes the release of HEAD twice, unsigned, in different folders, and compares every
#                                 byte; needs no tag and leaves nothing behind
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

readonly kRoot="$PWD"
kVersion="$(sed -n 's/^project(Brevant VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)"
readonly kVersion
export PYTHONPATH="$kRoot/tools"

say() { printf '[release] %s\n' "$*"; }
fail() { printf '[release] FAILED: %s\n' "$*" >&2; exit 1; }

require_clean_tree() {
    local changes
    changes="$(git status --porcelain)"
    [[ -z "$changes" ]] || fail "the tree is dirty; a release is made of what is committed:"$'\n'"$changes"
}

require_tag() {
    local tags
    tags="$(git tag --points-at HEAD | paste -sd ' ')"
    [[ " $tags " == *" v$kVersion "* ]] ||
        fail "HEAD is not tagged v$kVersion, the version of CMakeLists.txt (tags here: ${tags:-none})"
}

require_signer() {
    [[ "${BREVANT_SIGN:-}" == *[![:space:]]* ]] || fail "BREVANT_SIGN names no signing command (or say --unsigned)"
    read -ra signer <<<"$BREVANT_SIGN"
    command -v "${signer[0]}" >/dev/null || fail "the signing command is not there: ${signer[0]} (BREVANT_SIGN)"
}

# Builds the commit in the folder $1, from the locked dependencies alone and without the compiler's cache.
build() {
    local folder="$1" start=$SECONDS log="$work/build.log"
    mkdir -p "$folder"
    git archive "$commit" | tar -x -C "$folder"
    (
        cd "$folder"
        export CCACHE_DISABLE=1 BREVANT_SOURCES="${BREVANT_SOURCES:-$kRoot/build/sources}"
        # Before "||" no command ends the shell by itself.
        tools/setup.sh --exact && cmake --preset release -Wno-dev && cmake --build --preset release
    ) >"$log" 2>&1 || { tail -n 30 "$log" >&2; fail "the build in $folder"; }
    say "built in $((SECONDS - start)) s"
}

sign() {
    local file before
    for file in "$1"/*.exe "$1"/*.dll; do
        before="$(sha256sum <"$file")"
        "${signer[@]}" "$file" >"$work/sign.log" 2>&1 || { cat "$work/sign.log" >&2; fail "signing ${file##*/}"; }
        [[ "$(sha256sum <"$file")" != "$before" ]] || fail "the signing command left ${file##*/} as it was"
    done
    say "signed by ${signer[0]}"
}

# Packs what was built in the folder $1 into the folder $2.
pack() { python3 -B -m shipping.release pack "$1" "$2" "$kVersion" "$SOURCE_DATE_EPOCH"; }

verify() {
    local place
    # Two paths of different length: neither may show in what is built.
    for place in one a-second-place; do
        build "$work/$place"
        pack "$work/$place" "$work/$place/dist"
    done
    python3 -B -m shipping.release compare "$work/one" "$work/a-second-place"
}

release() {
    require_tag
    [[ "$1" == --unsigned ]] || require_signer
    build "$work/build"
    [[ "$1" == --unsigned ]] || sign "$work/build/build/release/bin"
    pack "$work/build" "$work/dist"
    python3 -B -m zipfile -e "$work/dist/brevant-$kVersion.zip" "$work/unpacked"
    say "the demo on the files of brevant-$kVersion.zip"
    BREVANT_BIN="$work/unpacked/brevant-$kVersion" tools/demo.sh || fail "the demo did not pass"
    rm -rf dist
    mv "$work/dist" dist
    say "made in ${SECONDS} s:"
    (cd dist && stat --format='  dist/%n  %s bytes' -- *)
}

main() {
    [[ $# -le 1 && "${1:-}" =~ ^(|--unsigned|--verify)$ ]] || fail "usage: tools/release.sh [--unsigned | --verify]"
    [[ -n "$kVersion" ]] || fail "CMakeLists.txt names no version"
    require_clean_tree
    # Whoever commits meanwhile changes nothing of this release.
    commit="$(git rev-parse HEAD)"
    SOURCE_DATE_EPOCH="$(git log -1 --format=%ct "$commit")"
    export SOURCE_DATE_EPOCH
    mkdir -p build
    work="$(mktemp -d "$kRoot/build/release-work.XXXXXX")"
    trap 'rm -rf "$work"' EXIT
    if [[ "${1:-}" == --verify ]]; then verify; else release "${1:-}"; fi
}

[[ "${BASH_SOURCE[0]}" != "$0" ]] || main "$@"
