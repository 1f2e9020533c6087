#!/bin/sh
# hardening.sh PROGRAM [BUILD]: what stands in a hardened program's file, and in BUILD, if given, how all of it was compiled.
set -eu
program=$1
result=0

# expect WHAT PATTERN TEXT: TEXT has to have a line that matches.
expect() {
    if ! printf '%s\n' "$3" | grep -Eq -- "$2"; then
        echo "hardening: $program: $1 is missing (no line matches '$2')" >&2
        result=1
    fi
}

header=$(readelf -hW "$program")
segments=$(readelf -lW "$program")
dynamic=$(readelf -dW "$program")
symbols=$(readelf --dyn-syms -W "$program")
expect 'an address space laid out anew' 'Type: +DYN' "$header"
expect 'an address space laid out anew' 'FLAGS_1.* PIE' "$dynamic"
expect 'read-only tables' '^ +GNU_RELRO ' "$segments"
expect 'read-only tables from the start' 'FLAGS.* (BIND_)?NOW' "$dynamic"
expect 'a stack without code' '^ +GNU_STACK .* RW +0x' "$segments"
expect 'a guarded stack' ' __stack_chk_fail(@|$)' "$symbols"
expect 'buffers that know their size' ' __(memcpy|snprintf|vsnprintf|vfprintf|fprintf|read|fread)_chk(@|$)' "$symbols"
if printf '%s\n' "$segments" | grep -Eq ' RWE '; then
    echo "hardening: $program: memory that can be written and executed" >&2
    result=1
fi
machine_flags=
if [ "$(uname -m)" = x86_64 ]; then
    machine_flags='-fcf-protection=full -fstack-clash-protection'
    code=$(objdump -d --no-show-raw-insn "$program" | grep -E -A 1 'or[bq] |<main>:$')
    expect 'returns that are checked' 'x86 feature: .*SHSTK' "$(readelf -nW "$program")"
    expect 'jumps that can be checked' 'endbr64' "$(printf '%s\n' "$code" | grep -A 1 '<main>:$')"
    expect 'a stack that does not grow past its guard' 'or[bq] +\$0x0,.*\(%rsp' "$code"
fi

# Each source: one that was left out would not show in the program.
if [ $# -gt 1 ]; then
    commands=$(grep '"command":' "$2/compile_commands.json")
    for flag in -D_FORTIFY_SOURCE=3 -fstack-protector-strong -fPIE -O $machine_flags; do
        if printf '%s\n' "$commands" | grep -qv -e "$flag"; then
            echo "hardening: compiled without $flag:" >&2
            printf '%s\n' "$commands" | grep -v -e "$flag" | grep -o -e '-c [^ ]*' | head -n 5 >&2
            result=1
        fi
    done
fi
exit $result
