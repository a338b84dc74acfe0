#!/usr/bin/env bash
# Line and branch coverage of the core (platform/, model/, Acl/) and of the layers every change
# goes through (client/, interchange/, aclsh/) by the test suite, from a build with
# gcov counters whose tests have run (default build/debug, after `cmake --workflow --preset
# debug`), reported per directory (headers count where they live, whichever include root
# reached them). Fails below a directory's floors; a floor is raised when coverage rises and
# never lowered. Writes BUILD/coverage.txt and BUILD/coverage.json.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build/debug}
gcovr --root . --object-directory "$build" --filter 'platform/' --filter 'model/' --filter 'Acl/' \
  --filter 'client/' --filter 'interchange/' --filter 'aclsh/' \
  --exclude-throw-branches --exclude-unreachable-branches -j 2 \
  --json-summary "$build/coverage.json" --txt "$build/coverage.txt"
python3 - "$build/coverage.json" <<'PY'
import json, re, sys
floors = {  # directory: (lines %, branches %)
    "platform": (98, 70),
    "model": (99, 78),
    "Acl": (99, 89),
    "client": (96, 81),
    "interchange": (97, 78),
    "aclsh": (97, 77),
}
totals = {}
for f in json.load(open(sys.argv[1]))["files"]:
    path = re.sub(r"^build/[^/]+/include/[^/]+/aclkit/", "", f["filename"])
    t = totals.setdefault(path.split("/")[0], [0, 0, 0, 0])
    for i, key in enumerate(("line_covered", "line_total", "branch_covered", "branch_total")):
        t[i] += f[key]
failed = False
for directory, (line_floor, branch_floor) in floors.items():
    covered, lines, taken, branches = totals.get(directory, [0, 1, 0, 1])
    line, branch = 100.0 * covered / lines, 100.0 * taken / max(branches, 1)
    low = line < line_floor or branch < branch_floor
    failed |= low
    print(f"{directory + '/':10} lines {line:5.1f}% ({covered}/{lines})  branches {branch:5.1f}% ({taken}/{branches})"
          f"  floors {line_floor}/{branch_floor}{'  BELOW' if low else ''}")
sys.exit(1 if failed else 0)
PY
