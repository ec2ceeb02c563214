#!/usr/bin/env bash
# Regenerates the small, untagged MP3 samples used by the tests.
# Audio is a sine tone synthesised with python3's standard library and
# encoded with lame; no ID3 tag is asked for, so lame writes none.
# Usage: tests/data/make-samples.sh   (writes next to this script)
set -euo pipefail

here="$(cd "$(dirname "$0")" && pwd)"
tmp="$(mktemp -d)"
trap 'rm -rf "$tmp"' EXIT

# make_wav OUT SECONDS RATE CHANNELS FREQ...  (one frequency per channel)
make_wav() {
    python3 - "$@" <<'PY'
import math, struct, sys, wave
out, secs, rate, chans = sys.argv[1], float(sys.argv[2]), int(sys.argv[3]), int(sys.argv[4])
freqs = [float(f) for f in sys.argv[5:5 + chans]]
frames = round(secs * rate)
with wave.open(out, "wb") as w:
    w.setnchannels(chans)
    w.setsampwidth(2)
    w.setframerate(rate)
    data = bytearray()
    for i in range(frames):
        for f in freqs:
            data += struct.pack("<h", int(16000 * math.sin(2 * math.pi * f * i / rate)))
    w.writeframes(bytes(data))
PY
}

lame_opts=(--quiet --noreplaygain)

make_wav "$tmp/a.wav" 1.0 44100 1 440
lame "${lame_opts[@]}" -m m --cbr -b 64 "$tmp/a.wav" "$here/sine-1s.mp3"

make_wav "$tmp/b.wav" 3.0 44100 2 440 660
lame "${lame_opts[@]}" -m s --cbr -b 128 "$tmp/b.wav" "$here/sine-3s-stereo.mp3"

make_wav "$tmp/c.wav" 2.5 22050 1 1000
lame "${lame_opts[@]}" -m m -V 5 --resample 22.05 "$tmp/c.wav" "$here/tone-2500ms.mp3"

# Refuse to leave a tagged file behind: no ID3v2 at the start, no ID3v1 at the end.
for f in sine-1s.mp3 sine-3s-stereo.mp3 tone-2500ms.mp3; do
    p="$here/$f"
    if [[ "$(head -c 3 "$p")" == "ID3" || "$(tail -c 128 "$p" | head -c 3)" == "TAG" ]]; then
        echo "make-samples: $f carries an ID3 tag" >&2
        exit 1
    fi
done
