#!/usr/bin/env bash
# Writes the seed corpora, one directory per harness, into OUT: what
# BUILD_DIR/bin/fuzz_seeds makes, and the untagged samples.
#   fuzz/make-seeds.sh BUILD_DIR OUT
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
"$1/bin/fuzz_seeds" "$2"
for file in "$root"/tests/data/*.mp3; do cp "$file" "$2/tag_location/"; done
