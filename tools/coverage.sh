#!/usr/bin/env bash
# Line and branch coverage of platform/, model/ and Acl/ by the test suite, from the
# "coverage" preset's build, reported per directory (headers count where they live, whichever
# include root reached them). Fails below a directory's floors; a floor is raised when coverage
# rises and never lowered. Writes build/coverage/coverage.txt and summary.json.
set -euo pipefail
cd "$(dirname "$0")/.."
gcovr --root . --object-directory build/coverage --filter 'platform/' --filter 'model/' --filter 'Acl/' \
  --exclude-throw-branches --exclude-unreachable-branches -j 2 \
  --json-summary build/coverage/summary.json --txt build/coverage/coverage.txt
python3 - build/coverage/summary.json <<'PY'
import json, re, sys
floors = {  # directory: (lines %, branches %)
    "platform": (94, 53),
    "model": (98, 78),
    "Acl": (97, 88),
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
