#!/usr/bin/env bash
# clang-tidy over the sources of the product and its workshop, as many at once as there are cores. Usage: cmake/tidy.sh BUILD_DIR [FILE...]
set -eu
cd "$(dirname "$(readlink -f "$0")")/.."
build=$1
shift
if [ $# -eq 0 ]; then
  mapfile -t files < <(git ls-files '*.cpp' ':!bench' ':!tests' ':!fuzz')
  set -- "${files[@]}"
fi
printf '%s\0' "$@" | xargs -0 -P "$(nproc)" -n 1 clang-tidy --quiet -p "$build" 2> >(grep -v 'warnings generated' >&2)
echo "clang-tidy: $# files clean"
