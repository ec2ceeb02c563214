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
name=census
source "$(dirname "$0")/common.sh"

baseline="$build/bin/census-baseline"
runs=5
require "$sonarcat" "$baseline" /usr/bin/time
use_tree "${1:-20000}"
make_quarter

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
echo "  ratio sonarcat/baseline: $(ratio "$s" "$b")"
echo
echo "sonarcat max RSS (kB): $((count / 4)) files: $(max_rss "$tmp/quarter.runs")," \
    "$count files: $(max_rss "$tmp/sonarcat.runs")"
