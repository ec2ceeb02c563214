#!/usr/bin/env bash
# Measures what storing costs: the normal mode over a generated tree of COUNT
# MP3 files without a database, and storing into a fresh catalogue of every
# engine that the tests know (tests/support/Catalogue.h) and can reach here:
# the servers come from SONARCAT_TEST_POSTGRES, SONARCAT_TEST_MARIADB and
# SONARCAT_TEST_FIREBIRD, as .ci/run sets them. The runs alternate, RUNS times
# each, a fresh catalogue every time (made as the tests make theirs); prints
# the median files per second of each and its cost over no database.
# Usage: [BUILD=build] [RUNS=3] [BENCH_TREE=DIR] [ENGINES="SQLite,MariaDB"] bench/storing.sh [COUNT]
set -euo pipefail
export LC_ALL=C.UTF-8
name=storing
source "$(dirname "$0")/common.sh"

run="$build/bin/catalogue-run"
require "$sonarcat" "$run"
use_tree "${1:-20000}"
files="$(find "$tree" -type f | wc -l)"
runs="${RUNS:-3}"
if [[ -n "${ENGINES:-}" ]]; then IFS=, read -ra engines <<<"$ENGINES"; else mapfile -t engines < <("$run" --engines); fi
engines=(none "${engines[@]}")

"$sonarcat" "$tree" >/dev/null 2>&1 # warm the page cache
declare -A skipped=()
for ((i = 0; i < runs; i++)); do
    for n in "${!engines[@]}"; do
        [[ -z "${skipped[$n]:-}" ]] || continue
        rc=0
        seconds="$("$run" "${engines[$n]}" "$sonarcat" "$tree" 2>"$tmp/err")" || rc=$?
        if ((rc == 3)); then skipped[$n]="$(cat "$tmp/err")"; continue; fi
        if ((rc != 0)) || grep -q Exception "$tmp/err"; then echo "storing: ${engines[$n]}: errors, see below" >&2; head "$tmp/err" >&2; fi
        echo "$seconds" >>"$tmp/engine$n"
    done
done

median() { sort -n "$1" | awk '{ t[NR] = $1 } END { print t[int((NR + 1) / 2)] }'; }
plain="$(median "$tmp/engine0")"
echo "normal mode over $files files (report to /dev/null), median of $runs alternating runs"
printf '  %-18s %8s  %9s  %s\n' run "wall (s)" "files/s" "cost of storing"
for n in "${!engines[@]}"; do
    label="${engines[$n]}"
    [[ "$label" == none ]] && label="no database"
    if [[ -n "${skipped[$n]:-}" ]]; then printf '  %-18s %s\n' "$label" "skipped: ${skipped[$n]}"; continue; fi
    s="$(median "$tmp/engine$n")"
    printf '  %-18s %8s  %9s  %s\n' "$label" "$s" "$(awk -v n="$files" -v s="$s" 'BEGIN { printf "%.0f", n / s }')" \
        "$( ((n == 0)) || awk -v a="$s" -v b="$plain" 'BEGIN { printf "%+.1f%%", (a / b - 1) * 100 }')"
done
