#!/bin/bash
# Milliseconds from the start of the process to the visible window, median of ten runs with a warm cache. Runs under an
# X server of its own.
#
#   bench/app/startup.sh [build/release/bin/tovscope]
set -eu
top=$(cd "$(dirname "$0")/../.." && pwd)
if [ -z "${TOV_BENCH_DISPLAY:-}" ]; then
    TOV_BENCH_DISPLAY=1 exec "$top/tests/support/with-xvfb" "$0" "$@"
fi
program=${1:-$top/build/release/bin/tovscope}
export HOME=$(mktemp -d)
export XDG_CONFIG_HOME=$HOME/.config XDG_RUNTIME_DIR=$HOME QT_QPA_PLATFORM=xcb
trap 'rm -rf "$HOME"' EXIT

times=()
for run in 0 1 2 3 4 5 6 7 8 9 10; do
    begin=$(date +%s%N)
    "$program" 2>/dev/null &
    pid=$!
    # Its own --sync looks only twice a second.
    until xdotool search --all --onlyvisible --pid $pid --name '^TovScope - ' >/dev/null 2>&1; do
        kill -0 $pid || { echo "the program ended early" >&2; exit 1; }
    done
    end=$(date +%s%N)
    kill $pid
    wait $pid 2>/dev/null || true
    [ $run = 0 ] || times+=($(((end - begin) / 1000000))) # the first run warms the cache
done
sorted=($(printf '%s\n' "${times[@]}" | sort -n))
echo "window visible after ${sorted[5]} ms (median of ten; ${sorted[0]} to ${sorted[9]})"
