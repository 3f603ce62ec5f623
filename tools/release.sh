#!/usr/bin/env bash
# Makes the release that the tag at HEAD names, in dist/: brevant-VERSION.zip (programs, guides, licence notices),
# brevant-VERSION-symbols.zip, a bill of materials (CycloneDX) and SHA256SUMS. The demo passes on exactly these files,
# or nothing is made. docs/release.md describes every step.
#
#   tools/release.sh              BREVANT_SIGN names the command that signs a file: "$BREVANT_SIGN FILE"; BREVANT_SIGN_SUMS
#                                 one that writes FILE.sig beside the file, for SHA256SUMS
#   tools/release.sh --unsigned   leaves the programs unsigned
#   tools/release.sh --verify     makes the release of HEAD twice, unsigned, in different folders, and compares every
#                                 byte; needs no tag and leaves nothing behind
#   --known-older REASON          releases although the archive names a newer version of a shipped library, or cannot be
#                                 asked; the reason becomes part of the bill of materials
#
# BREVANT_ARCHIVE, when it is set, is a file with deb-src lines to be asked in place of this machine's archive, or the
# sources of an earlier release (brevant-VERSION-sources.tar): a tag can be released again when no archive has them.
#
# tools/next.sh has to pass first, unless BREVANT_WITHOUT_NEXT says why it is left out.
set -euo pipefail
[[ -z "${BREVANT_ARCHIVE:-}" ]] || BREVANT_ARCHIVE="$(realpath -- "$BREVANT_ARCHIVE")" && export BREVANT_ARCHIVE
cd "$(dirname "${BASH_SOURCE[0]}")/.."

readonly kRoot="$PWD"
kVersion="$(sed -n 's/^project(Brevant VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)"
readonly kVersion
export PYTHONPATH="$kRoot/tools" BREVANT_SOURCES="${BREVANT_SOURCES:-$kRoot/build/sources}"
source tools/tool.sh
source tools/packages.sh

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

# Sets the arrays signer and sums_signer.
require_signers() {
    local name
    for name in BREVANT_SIGN BREVANT_SIGN_SUMS; do
        [[ "${!name:-}" == *[![:space:]]* ]] || fail "$name names no signing command (or say --unsigned)"
    done
    read -ra signer <<<"$BREVANT_SIGN"
    read -ra sums_signer <<<"$BREVANT_SIGN_SUMS"
    command -v "${signer[0]}" >/dev/null || fail "the signing command is not there: ${signer[0]} (BREVANT_SIGN)"
    command -v "${sums_signer[0]}" >/dev/null ||
        fail "the signing command is not there: ${sums_signer[0]} (BREVANT_SIGN_SUMS)"
}

require_newest() {
    local result=0
    tools/update-dependencies.sh --check || result=$?
    [[ $result -ne 0 ]] || return 0
    [[ -n "$reason" ]] || case $result in
        1) fail "a shipped library is older than the newest that the archive names (--known-older REASON releases it)" ;;
        *) fail "whether a shipped library lacks a security fix is not known (--known-older REASON releases it)" ;;
    esac
    say "goes on, for a known reason: $reason"
}

# Tries the next Debian's compiler and Wine before anything is built.
try_next() {
    if [[ "${BREVANT_WITHOUT_NEXT:-}" == *[![:space:]]* ]]; then
        say "not tried on the next Debian: $BREVANT_WITHOUT_NEXT"
    else
        tools/next.sh || fail "tools/next.sh (BREVANT_WITHOUT_NEXT=REASON leaves it out)"
    fi
}

# Builds the commit in the folder $1, from the locked dependencies alone and without the compiler's cache.
build() {
    local folder="$1" start=$SECONDS log="$work/build.log"
    mkdir -p "$folder"
    git archive "$commit" | tar -x -C "$folder"
    (
        cd "$folder"
        export CCACHE_DISABLE=1
        # Before "||" no command ends the shell by itself.
        tools/setup.sh --exact && cmake --preset release -Wno-dev && cmake --build --preset release &&
            cmake --build --preset release --target standins
    ) 2>&1 | tee "$log" | show_progress || { tail -n 30 "$log" >&2; fail "the build in $folder"; }
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

# Signs the list of sums in the folder $1, and with it every file of the release.
sign_sums() {
    "${sums_signer[@]}" "$1/SHA256SUMS" >"$work/sign.log" 2>&1 || { cat "$work/sign.log" >&2; fail "signing SHA256SUMS"; }
    [[ -s "$1/SHA256SUMS.sig" ]] || fail "the signing command wrote no SHA256SUMS.sig (BREVANT_SIGN_SUMS)"
}

# Packs what was built in the folder $1 into the folder $2, with a valid bill of materials.
pack() {
    /usr/bin/python3 -B -m shipping.release pack "$1" "$2" "$kVersion" "$SOURCE_DATE_EPOCH" ${reason:+--known-older "$reason"}
    /usr/bin/python3 -B -m shipping.schema validate "$2/brevant-$kVersion.cdx.json" "$work/schema" ||
        fail "the bill of materials is not valid"
}

# Runs before the build, which is useless if its bill cannot be validated.
take_schema() {
    need_packages python3-jsonschema
    /usr/bin/python3 -B -m shipping.schema fetch "$work/schema" || fail "the schema of the bill of materials"
}

verify() {
    local place
    take_schema
    # Two paths of different length: neither may appear in the programs.
    for place in one a-second-place; do
        build "$work/$place"
        pack "$work/$place" "$work/$place/dist"
    done
    python3 -B -m shipping.release compare "$work/one" "$work/a-second-place"
}

release() {
    require_tag
    [[ "$1" == --unsigned ]] || require_signers
    require_newest
    take_schema
    try_next
    build "$work/build"
    [[ "$1" == --unsigned ]] || sign "$work/build/build/release/bin"
    pack "$work/build" "$work/dist"
    [[ "$1" == --unsigned ]] || sign_sums "$work/dist"
    python3 -B -m zipfile -e "$work/dist/brevant-$kVersion.zip" "$work/unpacked"
    say "the demo on the files of brevant-$kVersion.zip"
    BREVANT_BIN="$work/unpacked/brevant-$kVersion" tools/demo.sh || fail "the demo did not pass"
    rm -rf dist
    mv "$work/dist" dist
    say "made in ${SECONDS} s:"
    (cd dist && stat --format='  dist/%n  %s bytes' -- *)
}

read_options() {
    answer_help "$@"
    mode="" reason=""
    while [[ $# -gt 0 ]]; do
        case "$1" in
            --unsigned | --verify)
                [[ -z "$mode" ]] || wrong_use "$mode and $1 exclude each other"
                mode="$1"
                ;;
            --known-older)
                [[ "${2:-}" == *[![:space:]]* && "$2" != --* ]] || wrong_use "--known-older needs a reason"
                reason="$2"
                shift
                ;;
            *) wrong_use "no such option: $1" ;;
        esac
        shift
    done
    [[ "$mode" != --verify || -z "$reason" ]] || wrong_use "--verify releases nothing and needs no reason"
}

main() {
    read_options "$@"
    [[ -n "$kVersion" ]] || fail "CMakeLists.txt names no version"
    require_clean_tree
    # A commit in the meantime does not change this release.
    commit="$(git rev-parse HEAD)"
    SOURCE_DATE_EPOCH="$(git log -1 --format=%ct "$commit")"
    export SOURCE_DATE_EPOCH
    mkdir -p build
    work="$(mktemp -d "$kRoot/build/release-work.XXXXXX")"
    trap 'rm -rf "$work"' EXIT
    if [[ "$mode" == --verify ]]; then verify; else release "$mode"; fi
}

[[ "${BASH_SOURCE[0]}" != "$0" ]] || main "$@"
