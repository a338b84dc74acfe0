#!/usr/bin/env bash
# Tests against code, in non-blank lines of C++, Python and shell: each layer's own tests (its
# mirror under tests/) against the layer, and in total everything under tests/ and fuzz/
# against every layer. The reference model and the property, fault-injection and fuzz tests
# hold the edit session to that model, so they count for Acl/; the shared test support counts
# in the total only. The aim is a quarter to a third: tests that catch real faults, grouped,
# not restating the code.
set -euo pipefail
cd "$(dirname "$0")/.."

lines() {
  git ls-files --cached --others --exclude-standard -- "$@" | grep -E '\.(cpp|h|py|pyi|sh)$' |
    { xargs -r cat 2>/dev/null || true; } | grep -cv '^[[:space:]]*$' || true
}
row() {
  local name=$1 code=$2 tests=$3
  if [ "$code" -gt 0 ]; then
    printf '%-13s %7d %7d %5d%%\n' "$name" "$code" "$tests" $((100 * tests / code))
  else
    printf '%-13s %7s %7d\n' "$name" "-" "$tests"
  fi
}

layers=(platform model Acl text agent client interchange aclsh python)
printf '%-13s %7s %7s %6s\n' layer code tests ratio
total_code=0
for layer in "${layers[@]}"; do
  code=$(lines "$layer")
  case $layer in
    Acl) tests=$(lines tests/Acl tests/support/model tests/reliability tests/fuzz fuzz) ;;
    *) tests=$(lines "tests/$layer") ;;
  esac
  row "$layer/" "$code" "$tests"
  total_code=$((total_code + code))
done
row "support" 0 "$(lines tests/support tests/package ':!tests/support/model')"
row "total" "$total_code" "$(lines tests fuzz)"
