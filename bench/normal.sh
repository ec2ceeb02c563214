#!/usr/bin/env bash
# Measures the normal mode (no database, report to /dev/null) on a generated
# tree of COUNT MP3 files against
#   - mediainfo-baseline: the least a libmediainfo loop can do (open each
#     file, ask its format and report, close), and
#   - the `mediainfo` command-line tool given the same tree (Debian package
#     `mediainfo`), which keeps every result until the end.
# Prints the median wall time of RUNS warm runs (the tool runs once), the
# ratios, and peak memory; sonarcat also runs on a tree of COUNT/4 files to
# show that its peak memory does not grow with the number of files.
#
# Needs GNU time (package `time`) and the `mediainfo` tool.
# Usage: [BUILD=build] [RUNS=3] [BENCH_TREE=DIR] bench/normal.sh [COUNT]
set -euo pipefail
export LC_ALL=C.UTF-8
name=normal
source "$(dirname "$0")/common.sh"

baseline="$build/bin/mediainfo-baseline"
runs="${RUNS:-3}"
require "$sonarcat" "$baseline" /usr/bin/time /usr/bin/mediainfo
use_tree "${1:-20000}"
make_quarter

"$baseline" "$tree" >/dev/null # warm the page cache
for ((i = 0; i < runs; i++)); do
    measure baseline "$baseline" "$tree"
    measure sonarcat "$sonarcat" "$tree"
done
measure quarter "$sonarcat" "$quarter"
measure tool /usr/bin/mediainfo "$tree"

b="$(median_seconds "$tmp/baseline.runs")" s="$(median_seconds "$tmp/sonarcat.runs")" t="$(median_seconds "$tmp/tool.runs")"
echo "normal mode over $count MP3 files (plus covers), median of $runs warm runs"
printf '  %-22s %9s  %12s\n' program "wall (s)" "max RSS (kB)"
printf '  %-22s %9s  %12s\n' mediainfo-baseline "$b" "$(max_rss "$tmp/baseline.runs")"
printf '  %-22s %9s  %12s\n' sonarcat "$s" "$(max_rss "$tmp/sonarcat.runs")"
printf '  %-22s %9s  %12s\n' "mediainfo (tool, 1 run)" "$t" "$(max_rss "$tmp/tool.runs")"
echo "  sonarcat/baseline: $(ratio "$s" "$b")   sonarcat/tool: $(ratio "$s" "$t")"
echo "  sonarcat max RSS (kB): $((count / 4)) files: $(max_rss "$tmp/quarter.runs"), $count files: $(max_rss "$tmp/sonarcat.runs")"
