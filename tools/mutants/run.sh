#!/usr/bin/env bash
# The planted faults: each patch here is one small fault in the library (a flipped condition, a
# dropped step, an off-by-one, a swapped field, a missing undo). This applies them one at a time
# to the work tree, rebuilds incrementally and runs the tests; a fault no test notices survives.
# Run it before and after changing tests: every fault killed before must still be killed after.
# Too slow for CI (a few minutes a fault); it is a tool for whoever folds or drops tests.
#
#   tools/mutants/run.sh [PATCH...]     all patches when none is named
#
# Each patch starts with "Fault: what goes wrong" and "Check: a ctest -L pattern" naming the
# tests (by label: a test binary, AclshScript, PythonModule) most likely to notice; those run first, then, if they pass, every test. The build is
# the "mutants" preset's (build/mutants). Prints one line per fault and exits 1 when a fault
# survives or a patch no longer applies or builds.
set -uo pipefail
cd "$(dirname "$0")/../.."
build=build/mutants
results=$(mktemp)
trap 'rm -f "$results"' EXIT

patches=("$@")
[ ${#patches[@]} -gt 0 ] || patches=(tools/mutants/*.patch)

cmake --preset mutants >/dev/null || exit 1
echo "building the unchanged tree"
cmake --build "$build" >/dev/null || { echo "the unchanged tree does not build" >&2; exit 1; }

# The first test that failed in the last ctest run.
first_failure() {
  sed -n '1s/^[0-9]*://p' "$build/Testing/Temporary/LastTestsFailed.log" 2>/dev/null
}

for patch in "${patches[@]}"; do
  name=$(basename "$patch" .patch)
  check=$(sed -n 's/^Check: //p' "$patch" | head -n 1)
  started=$SECONDS
  if ! git apply "$patch" 2>/dev/null; then
    echo "$name: does not apply" | tee -a "$results"
    continue
  fi
  if ! cmake --build "$build" >/dev/null 2>&1; then
    verdict="does not build"
  elif [ -n "$check" ] && ! ctest --test-dir "$build" -L "$check" -j 2 --stop-on-failure --timeout 600 >/dev/null 2>&1; then
    verdict="killed by $(first_failure)"
  elif ! ctest --test-dir "$build" -j 2 --stop-on-failure --timeout 600 >/dev/null 2>&1; then
    verdict="killed by $(first_failure) (not by its checks)"
  else
    verdict="SURVIVED"
  fi
  git apply -R "$patch"
  echo "$name: $verdict ($((SECONDS - started)) s)" | tee -a "$results"
done

echo "restoring the build of the unchanged tree"
cmake --build "$build" >/dev/null
total=$(wc -l <"$results")
killed=$(grep -c ': killed by' "$results")
echo "$killed of $total faults killed"
[ "$killed" -eq "$total" ]
