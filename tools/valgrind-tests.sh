#!/usr/bin/env bash
# Runs every unit, property and replay test binary of a build (default build/debug) under
# valgrind memcheck; any memory error or definitely/indirectly lost block fails the run.
# Death tests are left out: their children die by design, before they could free anything.
# The property test runs a quarter of its cases here: memcheck slows it some thirtyfold, and
# the sanitizer build runs all of them.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build/debug}
status=0
while IFS= read -r test; do
  echo "memcheck: $test"
  cases=()
  [[ $test == */model_property_test ]] && cases=(env "RC_PARAMS=${RC_PARAMS:-seed=20261122 max_success=250}")
  "${cases[@]}" valgrind --quiet --error-exitcode=99 --leak-check=full --errors-for-leak-kinds=definite,indirect \
    --show-leak-kinds=definite,indirect "$test" --gtest_brief=1 --gtest_filter='-*Death*' >/dev/null || status=1
done < <(find "$build/tests" -type f -executable -name '*_test' | sort)
exit $status
