#!/usr/bin/env bash
# Measures a first scan and an update over a network share with a real round
# trip on this machine (bench/share/share.sh: an sshd in a network namespace,
# sshfs, every packet held DELAY ms each way), against what the share allows:
# reading every byte with 32 files in flight, find, and the one-thread
# libmediainfo loop. The tree is COUNT generated MP3 files (bench/make-tree.sh)
# with a cover in each album, a notes.txt in each artist's directory and a
# README.txt at the top. Every command runs once, on a fresh mount (cold
# caches); prints wall time, files per second and the ratio to reading every
# byte, for each delay in DELAYS.
#
# Needs root and the share's packages (.ci/install-deps installs them).
# Usage: [BUILD=build] [DELAYS="10 1"] bench/share.sh [COUNT]   (COUNT defaults to 600)
set -euo pipefail
name=share
source "$(dirname "$0")/common.sh"
count_wanted="${1:-600}"
baseline="$build/bin/mediainfo-baseline"
require "$sonarcat" "$baseline" /usr/bin/taskset
share="$root/bench/share/share.sh"
export SC_SHARE_DIR="$tmp/state" SC_SHARE_NS="sonarcat-bench-$$" SC_SHARE_PORT=$((30000 + $$ % 20000))
trap 'bash "$share" stop >/dev/null 2>&1; rm -rf "$tmp"' EXIT

src="$tmp/library" mnt="$tmp/mnt"
"$root/bench/make-tree.sh" "$src" "$count_wanted" >/dev/null
for artist in "$src"/artist-*; do printf 'Ripped with care.\n' >"$artist/notes.txt"; done
printf 'My music.\n' >"$src/README.txt"
files="$(find "$src" -type f | wc -l)"

# cold NAME CMD... : one run of CMD on a fresh mount; prints its line.
cold() {
    local what="$1" start end
    shift
    bash "$share" remount >/dev/null
    start="${EPOCHREALTIME/./}"
    "$@" >/dev/null 2>&1 || echo "$name: $what exited with status $?" >&2
    end="${EPOCHREALTIME/./}"
    seconds="$(awk -v t=$((end - start)) 'BEGIN { printf "%.2f", t / 1e6 }')"
    printf '  %-36s %8s %9.1f %10s\n' "$what" "$seconds" "$(awk -v n="$files" -v s="$seconds" 'BEGIN { print n / s }')" \
        "$(awk -v s="$seconds" -v f="${floor:-$seconds}" 'BEGIN { printf "%.2f", s / f }')"
}

for delay in ${DELAYS:-10 1}; do
    bash "$share" start "$delay" "$src" "$mnt" | grep '^ping' || true
    echo "$files files over a share with a $((2 * delay)) ms round trip, each command on a fresh mount"
    printf '  %-36s %8s %9s %10s\n' command "wall (s)" files/s "/every byte"
    floor=
    cold "every byte, 32 files in flight" sh -c "find '$mnt' -type f -print0 | xargs -0 -P 32 -n 4 cat"
    floor="$seconds"
    cold "find" find "$mnt"
    cold "one-thread libmediainfo loop" "$baseline" "$mnt"
    cold "sonarcat" "$sonarcat" "$mnt"
    cold "sonarcat, one core" taskset -c 0 "$sonarcat" "$mnt"
    rm -f "$tmp/catalogue.db"
    cold "sonarcat --database=SQLite" "$sonarcat" "--database=DRIVER=ZELSQLite3;DATABASE=$tmp/catalogue.db" "$mnt"
    cold "sonarcat --update, nothing changed" "$sonarcat" --update "--database=DRIVER=ZELSQLite3;DATABASE=$tmp/catalogue.db" "$mnt"
done
