#!/usr/bin/env bash
# Runs aclsh on a script as a user would and compares what it printed, and its exit status,
# with what the script's neighbours expect: NAME.out (standard output), NAME.err (standard
# error; nothing when the file is absent) and, on the script's first line,
# "! aclsh OPTIONS... exits STATUS". With --json every line of standard output must be JSON.
#   run-script.sh ACLSH SCRIPT EXPECTED-PREFIX
set -uo pipefail
aclsh=$1 script=$2 expected=$3
header=$(head -n 1 "$script")
options=$(sed -nE 's/^! aclsh ?(.*) exits [0-9]+$/\1/p' <<<"$header")
status=$(sed -nE 's/^! aclsh.* exits ([0-9]+)$/\1/p' <<<"$header")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$(dirname "$script")"
# shellcheck disable=SC2086 # the options are words
"$aclsh" $options "$(basename "$script")" >"$work/out" 2>"$work/err"
actual=$?
[ -f "$expected.err" ] || expected_err=/dev/null
fail=0
diff -u "$expected.out" "$work/out" || fail=1
diff -u "${expected_err:-$expected.err}" "$work/err" || fail=1
# With --json standard output is JSON Lines, each an object with one member naming its kind.
if [[ " $options " == *" --json "* ]]; then
  python3 -c 'import json, sys
for n, line in enumerate(sys.stdin, 1):
    try:
        document = json.loads(line)
    except ValueError as e:
        sys.exit(f"standard output line {n} is not JSON: {e}")
    if not isinstance(document, dict) or len(document) != 1:
        sys.exit(f"standard output line {n} is not an object of one member")' <"$work/out" || fail=1
fi
[ "$actual" = "${status:-0}" ] || { echo "exit status $actual, expected ${status:-0}" >&2; fail=1; }
exit $fail
