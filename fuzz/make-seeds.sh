#!/usr/bin/env bash
# Writes the seed corpora, one directory per harness, into OUT: slices of the
# sample MP3s (their first and last KB, whole files for tag_location) and the
# tags and texts that BUILD_DIR/bin/fuzz-seeds makes.
#   fuzz/make-seeds.sh BUILD_DIR OUT
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
build="$1"
out="$2"
for harness in $(cat "$root/fuzz/harnesses.txt"); do
  mkdir -p "$out/$harness"
done
"$build/bin/fuzz-seeds" "$out" "$root/tests/data/tagged"

for file in "$root"/tests/data/*.mp3 "$root"/tests/data/tagged/*.mp3; do
  name="$(basename "$file" .mp3)"
  cp "$file" "$out/tag_location/$name"
  tail -c 128 "$file" >"$out/id3v1/$name"
  head -c 2048 "$file" >"$out/id3v2/$name" # each sample's whole ID3v2 tag
  # ape: the first byte chooses where the tag is looked for (0 start, 1 and 2 the end, 3 searched).
  { printf '\0'; head -c 1024 "$file"; } >"$out/ape/$name-start"
  { printf '\3'; tail -c 1024 "$file"; } >"$out/ape/$name-end"
  head -c 1024 "$file" >"$out/decoders/$name"
done
