#!/usr/bin/env bash
# aclsh side by side with the Linux packet filter tools, on the same rules: every ClassBench set
# in ../shared/classbench and generated sets of 1,000, 10,000 and 100,000 rules, each converted
# by tools/classbench-convert.py for all three tools.
#
#   tools/setup.sh compare && sudo benchmarks/compare.sh [BUILD_DIR]
#
# BUILD_DIR defaults to build/release, which must be built.
#
# Measured, medians:
#   load  a text file of the whole set: `aclsh FILE` (the list committed, bound and programmed
#         by two simulated dataplanes), `iptables-legacy-restore FILE`, `nft -f FILE`, timed
#         together by one hyperfine run per set;
#   edit  the first rule replaced by the same match with the other action, on the loaded set:
#         one `nft -f` transaction (delete and insert) and one `iptables-legacy -R`, timed by
#         hyperfine (nft's chain reloaded before each run, untimed); for aclsh the same edit as a
#         session in one running aclsh, which a new process cannot time apart from its load, so
#         it is read from aclsh_bench (BM_OneEditSession: the list alone; BM_OneEditProgrammed:
#         bound and reprogrammed by two dataplanes).
# The packet filters run in a private network namespace (unshare -n): nothing touches the
# machine's own tables. Prints a table of medians and ratios (the other tool's time over
# aclsh's), and writes it with a plot and the raw medians (compare.tsv) to docs/.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build/release}
if [ -z "${ACLKIT_COMPARE_NAMESPACE:-}" ]; then
  exec unshare -n env ACLKIT_COMPARE_NAMESPACE=1 "$0" "$@"
fi
for tool in hyperfine nft iptables-legacy-restore gnuplot "$build/aclsh/aclsh" "$build/benchmarks/aclsh/aclsh_bench"; do
  command -v "$tool" >/dev/null || { echo "compare.sh: $tool is missing (tools/setup.sh compare, and the release build)" >&2; exit 1; }
done
classbench=${ACLKIT_CLASSBENCH_DIR:-../shared/classbench}
runs=${ACLKIT_COMPARE_RUNS:-5}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
convert=tools/classbench-convert.py
results=$work/results.tsv

# The dataplanes and the binding, typed before the list in the file aclsh loads.
setup=$'platform all on\ndataplane dp1\ndataplane dp2\ninterface Ethernet1\nip access-group classbench in\nexit'

median() {  # hyperfine JSON, command index -> milliseconds
  python3 -c 'import json,sys; print(json.load(open(sys.argv[1]))["results"][int(sys.argv[2])]["median"] * 1e3)' "$1" "$2"
}
bench_median() {  # aclsh_bench JSON, benchmark name -> milliseconds
  python3 -c '
import json, sys
for b in json.load(open(sys.argv[1]))["benchmarks"]:
    if b["name"] == sys.argv[2] + "_median":
        print(b["real_time"] * {"ns": 1e-6, "us": 1e-3, "ms": 1, "s": 1e3}[b["time_unit"]])' "$1" "$2"
}

measure() {  # name, converter source arguments...
  local name=$1
  shift
  local base=$work/$name
  python3 "$convert" --to aclsh "$@" >"$base.acl"
  { echo "$setup"; cat "$base.acl"; } >"$base.load.acl"
  python3 "$convert" --to nft "$@" >"$base.nft"
  python3 "$convert" --to iptables "$@" >"$base.rules"
  python3 "$convert" --to nft --edit "$@" >"$base.edit.nft"
  local replace
  replace=$(python3 "$convert" --to iptables --edit "$@")
  local entries=$(($(wc -l <"$base.acl") - 2))
  echo "== $name: $entries entries" >&2

  hyperfine --style basic --runs "$runs" --warmup 1 --export-json "$base.load.json" \
    --prepare 'nft flush ruleset' \
    "$build/aclsh/aclsh $base.load.acl" "iptables-legacy-restore $base.rules" "nft -f $base.nft" >&2
  nft flush ruleset && iptables-legacy-restore "$base.rules"
  hyperfine --style basic --runs "$runs" --export-json "$base.edit.json" \
    --prepare "nft flush ruleset && nft -f $base.nft" "nft -f $base.edit.nft" \
    --prepare "iptables-legacy-restore $base.rules" "iptables-legacy $replace" >&2
  ACLKIT_CLASSBENCH_ACL=$base.acl "$build/benchmarks/aclsh/aclsh_bench" --benchmark_filter='OneEdit' \
    --benchmark_repetitions=3 --benchmark_report_aggregates_only=true \
    --benchmark_out="$base.bench.json" --benchmark_out_format=json >/dev/null 2>&1

  printf '%s\t%s\t%s\t%s\t%s\t%s\t%s\t%s\t%s\n' "$name" "$entries" \
    "$(median "$base.load.json" 0)" "$(median "$base.load.json" 1)" "$(median "$base.load.json" 2)" \
    "$(bench_median "$base.bench.json" BM_OneEditSession)" "$(bench_median "$base.bench.json" BM_OneEditProgrammed)" \
    "$(median "$base.edit.json" 1)" "$(median "$base.edit.json" 0)" >>"$results"
}

: >"$results"
for size in ${ACLKIT_COMPARE_SIZES:-1000 10000 100000}; do measure "generated_$size" --generate "$size"; done
for set in "$classbench"/*_*k; do measure "$(basename "$set")" "$set"; done

mkdir -p docs
cp "$results" docs/compare.tsv  # the medians in milliseconds, columns as in the table
python3 - "$results" docs/compare.md <<'PY'
import sys
rows = [line.rstrip("\n").split("\t") for line in open(sys.argv[1])]
out = ["| set | entries | load: aclsh | iptables-legacy-restore | nft -f | edit: aclsh session | aclsh programmed | iptables-legacy -R | nft -f |",
       "|---|---:|---:|---:|---:|---:|---:|---:|---:|"]
def time(ms):  # three significant figures, in the unit that keeps them readable
    if ms >= 1000:
        return f"{ms / 1000:.3g} s"
    return f"{ms:.3g} ms" if ms >= 1 else f"{ms * 1000:.3g} µs"
def ratio(x):
    return f"{x:.2f}x" if x < 10 else f"{x:,.0f}x"
for name, n, a, i, f, e, p, ie, fe in rows:
    a, i, f, e, p, ie, fe = map(float, (a, i, f, e, p, ie, fe))
    out.append(f"| {name} | {int(n):,} | {time(a)} | {time(i)} ({ratio(i / a)}) | {time(f)} ({ratio(f / a)}) "
               f"| {time(e)} | {time(p)} | {time(ie)} ({ratio(ie / p)}) | {time(fe)} ({ratio(fe / p)}) |")
text = "\n".join(out) + ("\n\nMedians; (Nx) is the tool's time over aclsh's programmed time: the load, or the edit with"
                          " its session, capability check and two simulated dataplanes. The tools program the kernel.\n")
open(sys.argv[2], "w").write(text)
print(text)
PY

# The generated sets, by size: how each operation grows with the list.
grep '^generated_' "$results" | sort -t$'\t' -k2,2n >"$work/generated.tsv"
gnuplot <<EOF
set terminal svg size 900,420 font "sans,11"
set output "docs/compare.svg"
set multiplot layout 1,2
set logscale xy
set xlabel "rules"
set ylabel "milliseconds (median)"
set key top left
set grid
set title "Loading a list from text"
plot "$work/generated.tsv" using 2:3 with linespoints title "aclsh", \
     "" using 2:4 with linespoints title "iptables-legacy-restore", \
     "" using 2:5 with linespoints title "nft -f"
set title "Replacing one rule"
plot "$work/generated.tsv" using 2:6 with linespoints title "aclsh session", \
     "" using 2:7 with linespoints title "aclsh, programmed", \
     "" using 2:8 with linespoints title "iptables-legacy -R", \
     "" using 2:9 with linespoints title "nft -f (delete, insert)"
unset multiplot
EOF
echo "wrote docs/compare.md and docs/compare.svg" >&2
