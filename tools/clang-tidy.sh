#!/usr/bin/env bash
# clang-tidy over the library's sources with the project's allow-list (.clang-tidy), warnings
# as errors, from a build's compile commands (default build/debug). --analyzer adds the static
# analyzer, which takes far longer and is not part of CI.
set -euo pipefail
cd "$(dirname "$0")/.."
build=build/debug
checks=()
for arg in "$@"; do
  case "$arg" in
    --analyzer) checks=(-checks=clang-analyzer-*) ;;
    *) build=$arg ;;
  esac
done
git ls-files 'platform/*.cpp' 'model/*.cpp' 'Acl/*.cpp' 'text/*.cpp' 'agent/*.cpp' 'client/*.cpp' 'interchange/*.cpp' 'aclsh/*.cpp' \
  'python/*.cpp' |
  xargs -P "$(nproc)" -n 2 clang-tidy -p "$build" --quiet --warnings-as-errors='*' "${checks[@]}"
