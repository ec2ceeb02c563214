#!/usr/bin/env bash
# Measures what storing costs: the normal mode over a generated tree of COUNT
# MP3 files without a database, then storing into a fresh SQLite catalogue,
# then (when SONARCAT_TEST_POSTGRES names a server, as .ci/postgres prints it)
# into a fresh PostgreSQL database. The runs alternate, RUNS times each (a
# fresh catalogue every time); prints the median files per second for each
# and the cost of storing over the run without a database.
# Needs sqlite3, and psql for PostgreSQL.
# Usage: [BUILD=build] [RUNS=3] [BENCH_TREE=DIR] bench/storing.sh [COUNT]
set -euo pipefail
export LC_ALL=C.UTF-8
name=storing
source "$(dirname "$0")/common.sh"

require "$sonarcat"
use_tree "${1:-20000}"
pgdb=""
trap 'drop_postgres; rm -rf "$tmp"' EXIT
files="$(find "$tree" -type f | wc -l)"

pg="${SONARCAT_TEST_POSTGRES:-}"
setting() { sed -n "s/.*$1=\([^;]*\).*/\1/p" <<<"$pg"; }
psql_admin() { PGPASSWORD="$(setting PASSWORD)" psql -X -h "$(setting SERVER)" -p "$(setting PORT)" -U "$(setting USER)" -d postgres "$@"; }
drop_postgres() { [[ -z "$pgdb" ]] || psql_admin -qc "DROP DATABASE IF EXISTS $pgdb" >/dev/null 2>&1 || true; }

runs="${RUNS:-3}"

# timed ARGS... : one run of sonarcat over the tree; prints seconds.
timed() {
    local start end
    start="${EPOCHREALTIME/./}"
    "$sonarcat" "$@" "$tree" >/dev/null 2>"$tmp/err"
    end="${EPOCHREALTIME/./}"
    if grep -q Exception "$tmp/err"; then echo "storing: errors, see below" >&2; head "$tmp/err" >&2; fi
    awk -v us="$((end - start))" 'BEGIN { printf "%.3f", us / 1e6 }'
}
median() { sort -n | awk '{ t[NR] = $1 } END { print t[int((NR + 1) / 2)] }'; }
rate() { awk -v n="$files" -v s="$1" 'BEGIN { printf "%.0f", n / s }'; }
cost() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%+.1f%%", (a / b - 1) * 100 }'; }
fresh_sqlite() {
    rm -f "$tmp"/music.sqlite3*
    sqlite3 "$tmp/music.sqlite3" <"$root/schema/sqlite3.sql"
}
fresh_postgres() {
    drop_postgres
    pgdb="sonarcat_bench_$$"
    psql_admin -qc "CREATE DATABASE $pgdb" >/dev/null
    PGPASSWORD="$(setting PASSWORD)" psql -X -q -h "$(setting SERVER)" -p "$(setting PORT)" -U "$(setting USER)" -d "$pgdb" \
        -f "$root/schema/postgresql.sql" >/dev/null
}

"$sonarcat" "$tree" >/dev/null 2>&1 # warm the page cache
: >"$tmp/plain" && : >"$tmp/lite" && : >"$tmp/post"
for ((i = 0; i < runs; i++)); do
    timed >>"$tmp/plain" && echo >>"$tmp/plain"
    fresh_sqlite
    timed --database="DRIVER=ZELSQLite3;DATABASE=$tmp/music.sqlite3" >>"$tmp/lite" && echo >>"$tmp/lite"
    if [[ -n "$pg" ]]; then
        fresh_postgres
        timed --database="DRIVER=ZELPostgreSQL;$pg;DATABASE=$pgdb" >>"$tmp/post" && echo >>"$tmp/post"
    fi
done
stored="$(sqlite3 "$tmp/music.sqlite3" 'SELECT COUNT(*) FROM STOR_FILE')"
plain="$(median <"$tmp/plain")" lite="$(median <"$tmp/lite")"

echo "normal mode over $files files (report to /dev/null), median of $runs alternating runs"
printf '  %-22s %8s  %9s  %s\n' run "wall (s)" "files/s" "cost of storing"
printf '  %-22s %8s  %9s\n' "no database" "$plain" "$(rate "$plain")"
printf '  %-22s %8s  %9s  %s  (%s files stored)\n' SQLite "$lite" "$(rate "$lite")" "$(cost "$lite" "$plain")" "$stored"
if [[ -n "$pg" ]]; then
    post="$(median <"$tmp/post")"
    printf '  %-22s %8s  %9s  %s  (server %s)\n' PostgreSQL "$post" "$(rate "$post")" "$(cost "$post" "$plain")" "$(setting SERVER)"
fi
