#!/usr/bin/env bash
# Measures what --all-formats costs: storing the generated tree of COUNT MP3
# files into a fresh SQLite catalogue with and without the option, and the
# normal mode with it over that tree and over a tree of as many FLAC files
# (the same layout, each a copy of a tagged FLAC sample of tests/data/formats),
# without a database. The runs alternate, RUNS times each; prints the median
# of each and the two ratios.
# Usage: [BUILD=build] [RUNS=5] [BENCH_TREE=DIR] bench/all-formats.sh [COUNT]
set -euo pipefail
export LC_ALL=C.UTF-8
name=all-formats
source "$(dirname "$0")/common.sh"

run="$build/bin/catalogue-run"
require "$sonarcat" "$run"
use_tree "${1:-20000}"
runs="${RUNS:-5}"
flac="$tmp/flac"
python3 - "$tree" "$flac" "$root/tests/data/formats" <<'PY'
import os, shutil, sys
tree, out, samples = sys.argv[1:]
names = ["xiph.flac", "xiph-id3v2-id3v1.flac"]
n = 0
for dirpath, _, files in os.walk(tree):
    for f in files:
        if not f.lower().endswith(".mp3"):
            continue
        target = os.path.join(out, os.path.relpath(dirpath, tree))
        os.makedirs(target, exist_ok=True)
        shutil.copyfile(os.path.join(samples, names[n % 2]), os.path.join(target, f[:-4] + ".flac"))
        n += 1
PY

"$sonarcat" "$tree" >/dev/null 2>&1 # warm the page cache
"$sonarcat" "$flac" >/dev/null 2>&1
for ((i = 0; i < runs; i++)); do
    "$run" SQLite "$sonarcat" "$tree" >>"$tmp/store"
    "$run" --all-formats SQLite "$sonarcat" "$tree" >>"$tmp/store-all"
    "$run" --all-formats none "$sonarcat" "$tree" >>"$tmp/read-mp3"
    "$run" --all-formats none "$sonarcat" "$flac" >>"$tmp/read-flac"
done

median() { sort -n "$1" | awk '{ t[NR] = $1 } END { print t[int((NR + 1) / 2)] }'; }
echo "$count MP3 files and as many FLAC files, medians of $runs alternating runs (report to /dev/null)"
for r in store store-all read-mp3 read-flac; do
    s="$(median "$tmp/$r")"
    printf '  %-46s %8s s  %6.0f files/s\n' "$(case $r in
        store) echo "MP3 tree into SQLite" ;;
        store-all) echo "MP3 tree into SQLite, --all-formats" ;;
        read-mp3) echo "MP3 tree, --all-formats, no database" ;;
        read-flac) echo "FLAC tree, --all-formats, no database" ;;
        esac)" "$s" "$(awk -v n="$count" -v s="$s" 'BEGIN { print n / s }')"
done
echo "  storing with --all-formats over without: $(ratio "$(median "$tmp/store-all")" "$(median "$tmp/store")")"
echo "  FLAC tree over MP3 tree (time):          $(ratio "$(median "$tmp/read-flac")" "$(median "$tmp/read-mp3")")"
