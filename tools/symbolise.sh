#!/usr/bin/env bash
# Names function, source file and line of places in a shipped program: tools/symbolise.sh FILE OFFSET...
# OFFSET is hexadecimal: the distance from where the program was loaded, as crash reports give it (Brevant.exe+0x1A2B),
# or an address of a program that was loaded where it asks to be. The symbols are looked for beside the file, then in
# BREVANT_SYMBOLS, the folder that the symbols archive was unpacked into. A return address is that of the next
# instruction: give it less 1. The compiler's runtime has no line numbers: there the answer is the last function that begins
# before the place. Exit code: 0 all places are named, 1 one is outside of the program's code, 64 a wrong use.
set -euo pipefail

readonly kTools=x86_64-w64-mingw32

fail() { printf '[symbolise] FAILED: %s\n' "$*" >&2; exit 1; }

# The symbols that the debug link of the program $1 names; their checksum must match.
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

# code_of FILE: first and last address of each section with code, as 16 digits.
code_of() {
    local index name size address rest range
    "$kTools-objdump" -h "$1" | while read -r index name size address rest; do
        if [[ "$index" =~ ^[0-9]+$ ]]; then
            printf -v range '%016x %016x' "$((16#$address))" "$((16#$address + 16#$size - 1))"
        elif [[ "$index $name $size $address $rest" == *CODE* ]]; then
            echo "$range"
        fi
    done
}

# place_of SYMBOLS ADDRESS: functions and lines of an address of 16 digits; without line information, the function alone.
place_of() {
    local place
    place="$("$kTools-addr2line" --exe="$1" --functions --demangle --inlines --pretty-print "0x$2")"
    # A file without a line is a guess, and often a wrong one.
    if [[ "$place" != *:\? && "$place" != '?? ??:0' ]]; then
        sed -E 's/ at (\.{1,2}\/)+/ at /' <<<"$place"
        return
    fi
    "$kTools-nm" -n --demangle "$1" | address="$2" awk '
        BEGIN { address = ENVIRON["address"] "" }
        $2 ~ /^[TtWw]$/ && ($1 "") <= address { start = $1; $1 = $2 = ""; name = substr($0, 3) }
        END { print start, name }' | {
        read -r start name
        [[ -n "$name" ]] || fail "no function at $2"
        printf '%s+0x%x (no line information)\n' "$name" "$((16#$2 - 16#$start))"
    }
}

main() {
    source "$(dirname "${BASH_SOURCE[0]}")/tool.sh"
    answer_help "$@"
    [[ $# -ge 2 ]] || wrong_use "a program and an offset are needed"
    local file="$1" symbols base offset first last code result=0 addresses=()
    shift
    [[ -f "$file" ]] || fail "no file $file"
    symbols="$(symbols_of "$file")"
    base=$((0x$("$kTools-objdump" -p "$file" | sed -n 's/^ImageBase\s*//p')))
    for offset in "$@"; do
        [[ "$offset" =~ ^(0[xX])?[0-9A-Fa-f]+$ ]] || fail "not a hexadecimal offset: $offset"
        offset=$((16#${offset#0[xX]}))
        ((offset >= base)) || offset=$((offset + base))
        addresses+=("$(printf '%016x' "$offset")")
    done
    code="$(code_of "$file")"
    for offset in "${addresses[@]}"; do
        while read -r first last; do
            [[ "$offset" < "$first" || "$offset" > "$last" ]] || break
        done <<<"$code"
        if [[ "$offset" < "$first" || "$offset" > "$last" ]]; then
            printf '[symbolise] 0x%x is outside of the code of %s\n' "$((16#$offset - base))" "${file##*/}" >&2
            result=1
        else
            place_of "$symbols" "$offset"
        fi
    done
    return $result
}

main "$@"
