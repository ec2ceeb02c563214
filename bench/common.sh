# Shared by the benchmark scripts (sourced): the paths of the build, a
# scratch directory removed on exit, the tree to measure, and timing helpers.
# Callers set `name` (for messages) first; BUILD and BENCH_TREE come from the
# environment.

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build="${BUILD:-build}"
[[ "$build" == /* ]] || build="$root/$build"
sonarcat="$build/bin/sonarcat"
tmp="$(mktemp -d)"
trap 'rm -rf "$tmp"' EXIT

# require EXE... : stops unless every program is there.
require() {
    local exe
    for exe in "$@"; do
        [[ -x "$exe" ]] || { echo "$name: $exe not found" >&2; exit 1; }
    done
}

# use_tree COUNT : sets `tree` (BENCH_TREE, built when empty, or a fresh one)
# and `count`, the number of MP3 files in it.
use_tree() {
    tree="${BENCH_TREE:-$tmp/full}"
    if [[ ! -d "$tree" || -z "$(ls -A "$tree")" ]]; then
        "$root/bench/make-tree.sh" "$tree" "$1" >/dev/null
    fi
    count="$(find "$tree" -type f -iname '*.mp3' | wc -l)" # a reused tree may differ
}

# make_quarter : sets `quarter`, a fresh tree of count/4 files.
make_quarter() {
    quarter="$tmp/quarter"
    "$root/bench/make-tree.sh" "$quarter" $((count / 4)) >/dev/null
}

# measure RUN CMD... : runs CMD once, appends "microseconds max-RSS-kB" to
# $tmp/RUN.runs and keeps its output in $tmp/RUN.out. GNU time supplies the
# RSS; wall time is taken here because time prints it only to 10 ms.
measure() {
    local run="$1" rc=0 start end rss
    shift
    start="${EPOCHREALTIME/./}"
    /usr/bin/time -v -o "$tmp/time.txt" "$@" >"$tmp/$run.out" 2>"$tmp/$run.err" || rc=$?
    end="${EPOCHREALTIME/./}"
    ((rc == 0)) || echo "$name: $run exited with status $rc" >&2
    rss="$(awk -F': ' '/Maximum resident set size/ { print $2 }' "$tmp/time.txt")"
    echo "$((end - start)) $rss" >>"$tmp/$run.runs"
}

# median_seconds FILE, max_rss FILE, ratio A B
median_seconds() { sort -n "$1" | awk '{ t[NR] = $1 } END { printf "%.3f", t[int((NR + 1) / 2)] / 1e6 }'; }
max_rss() { sort -k2,2n "$1" | awk 'END { print $2 }'; }
ratio() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.3f", a / b }'; }
