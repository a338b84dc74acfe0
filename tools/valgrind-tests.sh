#!/usr/bin/env bash
# Runs every unit, property and replay test binary of a build (default build/debug) under
# valgrind memcheck; any memory error or definitely/indirectly lost block fails the run.
# Death tests are left out: their children die by design, before they could free anything; so
# are the fault loops, which the sanitizer build runs under its leak checker.
# The model's property test runs a quarter of its cases here and the collections' a tenth:
# memcheck slows them some sixtyfold, and the sanitizer build runs all of them.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build/debug}
# Two binaries at a time, each on a core of its own; a line per binary with its outcome.
memcheck() {
  local test=$1 cases=()
  case $test in
    */model_property_test) cases=(env "RC_PARAMS=${RC_PARAMS:-seed=20261122 max_success=250}") ;;
    */platform_fwk_test) cases=(env "RC_PARAMS=${RC_PARAMS:-seed=20261124 max_success=10}") ;;
  esac
  if "${cases[@]}" valgrind --quiet --error-exitcode=99 --leak-check=full --errors-for-leak-kinds=definite,indirect \
    --show-leak-kinds=definite,indirect "$test" --gtest_brief=1 --gtest_filter='-*Death*' >/dev/null; then
    echo "memcheck: $test"
  else
    echo "memcheck FAILED: $test"
    return 1
  fi
}
export -f memcheck
find "$build/tests" -type f -executable -name '*_test' ! -name fault_injection_test | sort | xargs -P 2 -I{} bash -c 'memcheck {}'
