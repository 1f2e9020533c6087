#!/bin/sh
# hardened_build.sh SOURCE BUILD CC CXX: builds the tool as it is released, and looks whether it is hardened. Some 40 s on two
# cores, and little when nothing changed.
set -eu
log=$2.log
{
    cmake -S "$1" -B "$2" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_C_COMPILER="$3" -DCMAKE_CXX_COMPILER="$4" \
        -DVIDEO_STREAM_TESTS=OFF -DVIDEO_STREAM_BENCH=OFF && cmake --build "$2" --target vrc -j 2
} >"$log" 2>&1 || {
    tail -n 40 "$log" >&2
    exit 1
}
sh "$(dirname "$0")/hardening.sh" "$2/apps/vrc/vrc" "$2"
