#!/bin/sh
# porting_guide.sh SOURCE_ROOT: docs/porting.md says of every function and table that the module calls what it must
# guarantee.
set -eu

failures=0
while read -r name; do
    if ! grep -q "^|.*\`$name\`.*|.*|\$" "$1/docs/porting.md"; then
        echo "docs/porting.md does not speak of $name"
        failures=$((failures + 1))
    fi
done <"$1/tests/contract/called_symbols.txt"
exit "$failures"
