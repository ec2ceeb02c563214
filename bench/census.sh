#!/usr/bin/env bash
# Measures the cost of `sonarcat --summary` against census-baseline, which
# makes only the system calls a census needs, on a generated tree of COUNT
# MP3 files: median wall time of 5 warm-cache runs of each, their ratio, and
# peak memory (max RSS). sonarcat also runs on a tree of COUNT/4 files, to
# show whether its peak memory grows with the number of files.
#
# Needs GNU time as /usr/bin/time (Debian package `time`).
# Usage: [BUILD=build] [BENCH_TREE=DIR] bench/census.sh [COUNT]
#   BUILD       build directory, relative to the repository root (default build)
#   BENCH_TREE  keep the full tree here and reuse it on later runs (COUNT is
#               then the number of MP3 files found in it)
set -euo pipefail
export LC_ALL=C

root="$(cd "$(dirname "$0")/.." && pwd)"
count="${1:-20000}"
build="${BUILD:-build}"
[[ "$build" == /* ]] || build="$root/$build"
sonarcat="$build/bin/sonarcat"
baseline="$build/bin/census-baseline"
runs=5

for exe in "$sonarcat" "$baseline" /usr/bin/time; do
    [[ -x "$exe" ]] || { echo "census: $exe not found" >&2; exit 1; }
done

tmp="$(mktemp -d)"
trap 'rm -rf "$tmp"' EXIT
tree="${BENCH_TREE:-$tmp/full}"
if [[ ! -d "$tree" || -z "$(ls -A "$tree")" ]]; then
    "$root/bench/make-tree.sh" "$tree" "$count" >/dev/null
fi
count="$(find "$tree" -type f -iname '*.mp3' | wc -l)"  # a reused tree may differ
quarter="$tmp/quarter"
"$root/bench/make-tree.sh" "$quarter" $((count / 4)) >/dev/null

# measure NAME CMD... : runs CMD once, appends "microseconds max-RSS-kB" to
# $tmp/NAME.runs and keeps its output in $tmp/NAME.out. GNU time supplies the
# RSS; wall time is taken here because time prints it only to 10 ms.
measure() {
    local name="$1" rc=0 start end rss
    shift
    start="${EPOCHREALTIME/./}"
    /usr/bin/time -v -o "$tmp/time.txt" "$@" >"$tmp/$name.out" || rc=$?
    end="${EPOCHREALTIME/./}"
    ((rc == 0)) || echo "census: $name exited with status $rc" >&2
    rss="$(awk -F': ' '/Maximum resident set size/ { print $2 }' "$tmp/time.txt")"
    echo "$((end - start)) $rss" >>"$tmp/$name.runs"
}
median_seconds() { sort -n "$1" | awk '{ t[NR] = $1 } END { printf "%.3f", t[int((NR + 1) / 2)] / 1e6 }'; }
max_rss() { sort -k2,2n "$1" | awk 'END { print $2 }'; }

# One warm-up run of each fills the page cache; the timed runs alternate.
"$baseline" "$tree" >/dev/null || true
"$sonarcat" --summary "$tree" >/dev/null || true
"$sonarcat" --summary "$quarter" >/dev/null || true
for ((i = 0; i < runs; i++)); do
    measure baseline "$baseline" "$tree"
    measure sonarcat "$sonarcat" --summary "$tree"
    measure quarter "$sonarcat" --summary "$quarter"
done

b="$(median_seconds "$tmp/baseline.runs")"
s="$(median_seconds "$tmp/sonarcat.runs")"
echo "baseline: $(cat "$tmp/baseline.out")"
echo "sonarcat: $(cat "$tmp/sonarcat.out")"
echo
echo "census of $count files, median of $runs warm runs"
printf '  %-20s %9s  %12s\n' program "wall (s)" "max RSS (kB)"
printf '  %-20s %9s  %12s\n' census-baseline "$b" "$(max_rss "$tmp/baseline.runs")"
printf '  %-20s %9s  %12s\n' "sonarcat --summary" "$s" "$(max_rss "$tmp/sonarcat.runs")"
echo "  ratio sonarcat/baseline: $(awk -v s="$s" -v b="$b" 'BEGIN { printf "%.2f", s / b }')"
echo
echo "sonarcat max RSS (kB): $((count / 4)) files: $(max_rss "$tmp/quarter.runs")," \
    "$count files: $(max_rss "$tmp/sonarcat.runs")"
