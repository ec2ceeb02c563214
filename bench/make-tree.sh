#!/usr/bin/env bash
# Builds a music-library-like tree of COUNT small MP3 files for the census
# benchmark: DIR/artist-NNN/album-NN/track-NN.mp3, 20 tracks per album and
# 10 albums per artist, so no directory holds more than 21 entries.
# Files are copies of the samples in tests/data/ (rotated); every third file
# gets a 128-byte ID3v1 block appended, every fifth an ID3v2.3 tag (title
# frame + padding) prepended. Every eleventh file is named *.MP3, and each
# album also holds a cover.jpg that must not be counted.
# Usage: bench/make-tree.sh DIR [COUNT]    (COUNT defaults to 20000)
set -euo pipefail

dir="${1:?usage: make-tree.sh DIR [COUNT]}"
count="${2:-20000}"
data="$(cd "$(dirname "$0")/../tests/data" && pwd)"

mkdir -p "$dir"
if [[ -n "$(ls -A "$dir")" ]]; then
    echo "make-tree: $dir is not empty" >&2
    exit 1
fi

python3 - "$dir" "$count" "$data" <<'PY'
import os, struct, sys
root, count, data = sys.argv[1], int(sys.argv[2]), sys.argv[3]
samples = [open(os.path.join(data, n), "rb").read()
           for n in ("sine-1s.mp3", "sine-3s-stereo.mp3", "tone-2500ms.mp3")]

def id3v1(i):
    field = lambda s, n: s.encode()[:n].ljust(n, b"\0")
    return (b"TAG" + field(f"Track {i}", 30) + field("Bench Artist", 30)
            + field("Bench Album", 30) + b"2024" + field("", 28)
            + bytes([0, i % 20 + 1, 12]))

def id3v23(i):
    text = b"\0" + f"Track {i}".encode()           # encoding 0, Latin-1
    frame = b"TIT2" + struct.pack(">I", len(text)) + b"\0\0" + text
    body = frame + bytes(64)                       # frame + padding
    n = len(body)                                  # synchsafe size
    size = bytes([(n >> 21) & 127, (n >> 14) & 127, (n >> 7) & 127, n & 127])
    return b"ID3\x03\x00\x00" + size + body

v1 = v23 = 0
for i in range(count):
    album = os.path.join(root, f"artist-{i // 200:03d}", f"album-{i // 20 % 10:02d}")
    if i % 20 == 0:
        os.makedirs(album)
        with open(os.path.join(album, "cover.jpg"), "wb") as f:
            f.write(b"\xff\xd8\xff\xe0 not really a picture")
    content = samples[i // 5 % 3]
    if i % 5 == 0:
        content = id3v23(i) + content
        v23 += 1
    if i % 3 == 0:
        content = content + id3v1(i)
        v1 += 1
    ext = "MP3" if i % 11 == 0 else "mp3"
    with open(os.path.join(album, f"track-{i % 20 + 1:02d}.{ext}"), "wb") as f:
        f.write(content)
print(f"{root}: {count} files, ID3v1[{v1}] ID3v23[{v23}]")
PY
