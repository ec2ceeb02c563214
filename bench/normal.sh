#!/usr/bin/env bash
# Measures the normal mode (report to /dev/null) on a generated tree of COUNT
# MP3 files, on one core (taskset -c 0: one helper process) and on every core
# the process may use, without a database and with a fresh SQLite catalogue
# (when the sqlite3 tool is there), against
#   - mediainfo-baseline: the least a one-thread libmediainfo loop can do
#     (open each file, ask its format and report, close), once over the
#     tree and once a loop a core, each over its share of the tree, and
#   - the `mediainfo` command-line tool given the same tree (Debian package
#     `mediainfo`), which keeps every result until the end.
# Prints the median wall time of RUNS warm alternating runs (the tool runs
# once), the ratios to the baseline, and peak memory; sonarcat also runs on a
# tree of COUNT/4 files to show that its peak memory does not grow with the
# number of files.
#
# OPTIONS are passed to every sonarcat run (OPTIONS=--charset=CP1251 measures
# the tags read in another character set).
#
# Needs GNU time (package `time`), taskset (util-linux) and the `mediainfo` tool.
# Usage: [BUILD=build] [RUNS=3] [BENCH_TREE=DIR] [OPTIONS=...] bench/normal.sh [COUNT]
set -euo pipefail
export LC_ALL=C.UTF-8
name=normal
source "$(dirname "$0")/common.sh"

baseline="$build/bin/mediainfo-baseline"
runs="${RUNS:-3}"
read -ra options <<<"${OPTIONS:-}"
require "$sonarcat" "$baseline" /usr/bin/time /usr/bin/mediainfo /usr/bin/taskset
use_tree "${1:-20000}"
make_quarter
catalogue=""
if command -v sqlite3 >/dev/null; then catalogue="DRIVER=ZELSQLite3;DATABASE=$tmp/catalogue.db"; fi

# The most every core can give: one baseline loop per core, each over its
# share of the top directories (dealt round, so the shares weigh the same).
cores="$(nproc)"
for ((k = 0; k < cores; k++)); do mkdir -p "$tmp/share$k"; done
k=0
for top in "$tree"/*; do ln -s "$top" "$tmp/share$((k++ % cores))/"; done
printf '%s\n' '#!/bin/sh' "for share in $tmp/share*; do '$baseline' \"\$share\" >/dev/null & done" 'wait' >"$tmp/every-core-baseline"
chmod +x "$tmp/every-core-baseline"

"$baseline" "$tree" >/dev/null # warm the page cache
for ((i = 0; i < runs; i++)); do
    measure baseline "$baseline" "$tree"
    measure baseline-cores "$tmp/every-core-baseline"
    measure one-core /usr/bin/taskset -c 0 "$sonarcat" "${options[@]}" "$tree"
    measure all-cores "$sonarcat" "${options[@]}" "$tree"
    if [[ -n "$catalogue" ]]; then
        rm -f "$tmp/catalogue.db" && sqlite3 "$tmp/catalogue.db" <"$root/schema/sqlite3.sql"
        measure sqlite "$sonarcat" "${options[@]}" --database="$catalogue" "$tree"
    fi
done
measure quarter "$sonarcat" "${options[@]}" "$quarter"
measure tool /usr/bin/mediainfo "$tree"

b="$(median_seconds "$tmp/baseline.runs")" t="$(median_seconds "$tmp/tool.runs")"
echo "normal mode${OPTIONS:+ with $OPTIONS} over $count MP3 files (plus covers) on $(nproc) core(s), median of $runs warm runs"
printf '  %-34s %9s  %12s  %s\n' program "wall (s)" "max RSS (kB)" "/baseline"
row() { printf '  %-34s %9s  %12s  %s\n' "$1" "$2" "$3" "$(ratio "$2" "$b")"; }
row mediainfo-baseline "$b" "$(max_rss "$tmp/baseline.runs")"
row "mediainfo-baseline, a loop a core" "$(median_seconds "$tmp/baseline-cores.runs")" "$(max_rss "$tmp/baseline-cores.runs")"
row "sonarcat, one core" "$(median_seconds "$tmp/one-core.runs")" "$(max_rss "$tmp/one-core.runs")"
row "sonarcat, every core" "$(median_seconds "$tmp/all-cores.runs")" "$(max_rss "$tmp/all-cores.runs")"
if [[ -n "$catalogue" ]]; then row "sonarcat, every core, SQLite" "$(median_seconds "$tmp/sqlite.runs")" "$(max_rss "$tmp/sqlite.runs")"; fi
row "mediainfo (tool, 1 run)" "$t" "$(max_rss "$tmp/tool.runs")"
echo "  sonarcat max RSS (kB), every core: $((count / 4)) files: $(max_rss "$tmp/quarter.runs"), $count files: $(max_rss "$tmp/all-cores.runs")"
