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

root="$(cd "$(dirname "$0")/.." && pwd)"
count="${1:-20000}"
build="${BUILD:-build}"
[[ "$build" == /* ]] || build="$root/$build"
sonarcat="$build/bin/sonarcat"
baseline="$build/bin/mediainfo-baseline"
runs="${RUNS:-3}"

for exe in "$sonarcat" "$baseline" /usr/bin/time /usr/bin/mediainfo; do
    [[ -x "$exe" ]] || { echo "normal: $exe not found" >&2; exit 1; }
done

tmp="$(mktemp -d)"
trap 'rm -rf "$tmp"' EXIT
tree="${BENCH_TREE:-$tmp/full}"
if [[ ! -d "$tree" || -z "$(ls -A "$tree")" ]]; then
    "$root/bench/make-tree.sh" "$tree" "$count" >/dev/null
fi
count="$(find "$tree" -type f -iname '*.mp3' | wc -l)"
quarter="$tmp/quarter"
"$root/bench/make-tree.sh" "$quarter" $((count / 4)) >/dev/null

# measure NAME CMD... : one run; appends "microseconds max-RSS-kB" to $tmp/NAME.runs.
measure() {
    local name="$1" rc=0 start end rss
    shift
    start="${EPOCHREALTIME/./}"
    /usr/bin/time -v -o "$tmp/time.txt" "$@" >/dev/null 2>"$tmp/$name.err" || rc=$?
    end="${EPOCHREALTIME/./}"
    ((rc == 0)) || echo "normal: $name exited with status $rc" >&2
    rss="$(awk -F': ' '/Maximum resident set size/ { print $2 }' "$tmp/time.txt")"
    echo "$((end - start)) $rss" >>"$tmp/$name.runs"
}
median() { sort -n "$1" | awk '{ t[NR] = $1 } END { printf "%.2f", t[int((NR + 1) / 2)] / 1e6 }'; }
rss() { sort -k2,2n "$1" | awk 'END { print $2 }'; }
ratio() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.3f", a / b }'; }

"$baseline" "$tree" >/dev/null # warm the page cache
for ((i = 0; i < runs; i++)); do
    measure baseline "$baseline" "$tree"
    measure sonarcat "$sonarcat" "$tree"
done
measure quarter "$sonarcat" "$quarter"
measure tool /usr/bin/mediainfo "$tree"

b="$(median "$tmp/baseline.runs")" s="$(median "$tmp/sonarcat.runs")" t="$(median "$tmp/tool.runs")"
echo "normal mode over $count MP3 files (plus covers), median of $runs warm runs"
printf '  %-22s %9s  %12s\n' program "wall (s)" "max RSS (kB)"
printf '  %-22s %9s  %12s\n' mediainfo-baseline "$b" "$(rss "$tmp/baseline.runs")"
printf '  %-22s %9s  %12s\n' sonarcat "$s" "$(rss "$tmp/sonarcat.runs")"
printf '  %-22s %9s  %12s\n' "mediainfo (tool, 1 run)" "$t" "$(rss "$tmp/tool.runs")"
echo "  sonarcat/baseline: $(ratio "$s" "$b")   sonarcat/tool: $(ratio "$s" "$t")"
echo "  sonarcat max RSS (kB): $((count / 4)) files: $(rss "$tmp/quarter.runs"), $count files: $(rss "$tmp/sonarcat.runs")"
