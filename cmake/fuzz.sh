#!/usr/bin/env bash
# Builds the fuzz targets and runs each for a time on a copy of its corpus. Usage: cmake/fuzz.sh SECONDS [NAME...]
# A finding is kept as build/fuzz/NAME-crash-...; put it into fuzz/corpus/NAME once it is mended.
set -eu
cd "$(dirname "$(readlink -f "$0")")/.."
seconds=$1
shift
export CCACHE_BASEDIR=$PWD CCACHE_NOHASHDIR=1
[ -f build/asan/build.ninja ] || cmake --preset asan >/dev/null
[ $# -gt 0 ] || set -- $(cd fuzz && ls ./*_fuzz.cpp | sed 's|./||; s|_fuzz.cpp||')
ninja -C build/asan --quiet "${@/%/_fuzz}"
run_one() {
  grown=build/fuzz/grown/$1
  mkdir -p "$grown"
  log=build/fuzz/$1.log
  if "build/asan/bin/$1_fuzz" "$grown" "fuzz/corpus/$1" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
      -artifact_prefix="build/fuzz/$1-" -print_final_stats=1 >"$log" 2>&1; then
    echo "$1: $(grep -o 'number_of_executed_units: .*' "$log"), clean"
  else
    tail -40 "$log"
    echo "$1: FAILED"
    return 1
  fi
}
export -f run_one
export seconds
printf '%s\0' "$@" | xargs -0 -P "$(nproc)" -I{} bash -c 'run_one {}'
