#!/usr/bin/env bash
# Names function, source file and line of places in a shipped program: tools/symbolise.sh FILE OFFSET...
# OFFSET is hexadecimal: the distance from where the program was loaded, as crash reports give it (Brevant.exe+0x1A2B),
# or an address of a program that was loaded where it asks to be. The symbols are looked for beside the file, then in
# BREVANT_SYMBOLS, the folder that the symbols archive was unpacked into. A return address is that of the next
# instruction: give it less 1.
set -euo pipefail

readonly kTools=x86_64-w64-mingw32

fail() { printf '[symbolise] FAILED: %s\n' "$*" >&2; exit 1; }

# The symbols that the debug link of the program $1 names; only those that were made with it will do.
symbols_of() {
    local link name folder
    link="$(mktemp)"
    # shellcheck disable=SC2064
    trap "rm -f '$link'" RETURN
    "$kTools-objcopy" --dump-section ".gnu_debuglink=$link" "$1" /dev/null 2>/dev/null || true
    name="$(tr '\0' '\n' <"$link" | head -n 1)"
    [[ -n "$name" ]] || fail "$1 has no debug link"
    for folder in "$(dirname "$1")" "${BREVANT_SYMBOLS:-.}"; do
        [[ -f "$folder/$name" ]] || continue
        python3 -c 'import sys, zlib
link, symbols = (open(name, "rb").read() for name in sys.argv[1:])
sys.exit(zlib.crc32(symbols) != int.from_bytes(link[-4:], "little"))' "$link" "$folder/$name" ||
            fail "$folder/$name belongs to another build of ${1##*/}"
        echo "$folder/$name"
        return
    done
    fail "no $name beside $1 or in BREVANT_SYMBOLS"
}

main() {
    [[ $# -ge 2 ]] || fail "usage: tools/symbolise.sh FILE OFFSET..."
    local file="$1" symbols base offset addresses=()
    shift
    [[ -f "$file" ]] || fail "no file $file"
    symbols="$(symbols_of "$file")"
    base=$((0x$("$kTools-objdump" -p "$file" | sed -n 's/^ImageBase\s*//p')))
    for offset in "$@"; do
        [[ "$offset" =~ ^(0[xX])?[0-9A-Fa-f]+$ ]] || fail "not a hexadecimal offset: $offset"
        offset=$((16#${offset#0[xX]}))
        ((offset >= base)) || offset=$((offset + base))
        addresses+=("$(printf '0x%x' "$offset")")
    done
    "$kTools-addr2line" --exe="$symbols" --functions --demangle --inlines --pretty-print "${addresses[@]}" |
        sed -E 's| at (\.{1,2}/)+| at |'
}

main "$@"
