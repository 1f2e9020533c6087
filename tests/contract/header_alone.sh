#!/bin/sh
# header_alone.sh INCLUDE_DIRECTORY HEADER COMPILER...
#
# A header has to compile with nothing included before it, and a second time, as C11 and as C++17.
set -eu

include=$1
header=$2
shift 2

for compiler in "$@"; do
    for language in "c -std=c11" "c++ -std=c++17"; do
        # shellcheck disable=SC2086 # a language is two words
        printf '#include "%s"\n#include "%s"\n' "$header" "$header" |
            "$compiler" -x $language -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror \
                -I "$include" -fsyntax-only -
        echo "$compiler, $language: fine"
    done
done
