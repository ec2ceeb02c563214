#!/usr/bin/env bash
# Measures --update on a generated tree of COUNT MP3 files: for each engine
# (SQLite and PostgreSQL unless ENGINES names others; servers as for
# storing.sh) a catalogue filled by a plain run, then an update of the tree
# as it is (nothing to read) and one after 1% of the files were touched,
# next to the census (--summary) of the same tree, which also looks at every
# file without reading it. Prints the medians of RUNS alternating rounds and
# the unchanged update's peak memory.
# Usage: [BUILD=build] [RUNS=3] [BENCH_TREE=DIR] [ENGINES="SQLite,PostgreSQL"] bench/update.sh [COUNT]
set -euo pipefail
export LC_ALL=C.UTF-8
name=update
source "$(dirname "$0")/common.sh"

run="$build/bin/catalogue-run"
require "$sonarcat" "$run"
use_tree "${1:-20000}"
runs="${RUNS:-3}"
IFS=, read -ra engines <<<"${ENGINES:-SQLite,PostgreSQL}"

"$sonarcat" --summary "$tree" >/dev/null # warm the page cache
declare -A skipped=()
for ((i = 0; i < runs; i++)); do
    measure census "$sonarcat" --summary "$tree"
    for engine in "${engines[@]}"; do
        [[ -z "${skipped[$engine]:-}" ]] || continue
        rc=0
        line="$("$run" --update "$engine" "$sonarcat" "$tree" 2>"$tmp/err")" || rc=$?
        if ((rc == 3)); then skipped[$engine]="$(cat "$tmp/err")"; continue; fi
        ((rc == 0)) || { echo "update: $engine failed" >&2; head "$tmp/err" >&2; }
        echo "$line" >>"$tmp/$engine"
    done
done

census="$(median_seconds "$tmp/census.runs")"
column() { awk -v c="$2" '{ print $c }' "$1" | sort -n | awk '{ t[NR] = $1 } END { print t[int((NR + 1) / 2)] }'; }
echo "--update over $count MP3 files (plus covers), median of $runs rounds; census: $census s"
printf '  %-12s %14s %9s %16s %14s\n' engine "unchanged (s)" /census "1% changed (s)" "peak (kB)"
for engine in "${engines[@]}"; do
    if [[ -n "${skipped[$engine]:-}" ]]; then printf '  %-12s skipped: %s\n' "$engine" "${skipped[$engine]}"; continue; fi
    unchanged="$(column "$tmp/$engine" 1)"
    printf '  %-12s %14s %9s %16s %14s\n' "$engine" "$unchanged" "$(ratio "$unchanged" "$census")" "$(column "$tmp/$engine" 2)" \
        "$(column "$tmp/$engine" 3)"
done
