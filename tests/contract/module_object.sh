#!/bin/sh
# module_object.sh SOURCE_ROOT LISTS_DIRECTORY WORK_DIRECTORY CXX_COMPILER
#
# Compiles the module with nothing but include/ beside it and looks at the object: it calls what the
# layers around it supply, exports what its header declares, and holds no data and no code that would
# have to run before main.
set -eu

root=$1
lists=$2
work=$3
compiler=$4
object=$work/video_stream.o
LC_ALL=C
export LC_ALL

mkdir -p "$work"
"$compiler" -std=c++17 -O2 -fno-exceptions -fno-rtti -I "$root/include" -c "$root/rtc/video_stream.cpp" -o "$object"

failures=0

# expect_same WHAT EXPECTED_FILE ACTUAL_FILE
expect_same() {
    if ! diff "$2" "$3" >"$work/difference"; then
        echo "$1: '<' is missing, '>' is not expected"
        sed -n 's/^[<>]/    &/p' "$work/difference"
        failures=$((failures + 1))
    fi
}

# expect_nothing WHAT FILE
expect_nothing() {
    if [ -s "$2" ]; then
        echo "$1:"
        sed 's/^/    /' "$2"
        failures=$((failures + 1))
    fi
}

# The C library's four, and what compilers add of their own accord.
allowed='^(memset|memmove|memcpy|abort|_GLOBAL_OFFSET_TABLE_|__stack_chk_fail)$'
nm -u --format=posix "$object" | cut -d ' ' -f 1 | grep -Ev "$allowed" | sort >"$work/undefined"
expect_same "called functions and tables" "$lists/called_symbols.txt" "$work/undefined"

nm -g --defined-only --format=posix "$object" >"$work/defined"
cut -d ' ' -f 1 "$work/defined" | sort >"$work/defined_names"
expect_same "exported functions" "$lists/exported_symbols.txt" "$work/defined_names"
grep -v '^[^ ]* T ' "$work/defined" >"$work/not_functions" || true
expect_nothing "exported, and not a function" "$work/not_functions"

size -A "$object" >"$work/sections"
grep -E '^\.(init_array|ctors|preinit_array)' "$work/sections" >"$work/initialisers" || true
expect_nothing "code that runs before main" "$work/initialisers"
# Constants with addresses in them, .data.rel.ro, are written by the loader alone.
grep -E '^\.(data|bss|tdata|tbss)' "$work/sections" | grep -v '^\.data\.rel\.ro' | awk '$2 > 0' >"$work/writable" || true
expect_nothing "writable data" "$work/writable"

[ "$failures" -eq 0 ] && echo "$(wc -l <"$work/undefined") called, $(wc -l <"$work/defined_names") exported: as declared"
exit "$failures"
