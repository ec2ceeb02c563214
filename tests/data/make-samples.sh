#!/usr/bin/env bash
# Regenerates the untagged MP3 samples (see README.md): sine tones written as
# WAV by python3 and encoded by lame, which asks for no tag.
set -euo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
tmp="$(mktemp -d)"
trap 'rm -rf "$tmp"' EXIT
# sample OUT SECONDS RATE "FREQ..." LAME-OPTIONS...  (one frequency per channel)
sample() {
    python3 - "$tmp/in.wav" "$2" "$3" $4 <<'PY'
import math, struct, sys, wave
out, secs, rate, freqs = sys.argv[1], float(sys.argv[2]), int(sys.argv[3]), [float(f) for f in sys.argv[4:]]
with wave.open(out, "wb") as w:
    w.setnchannels(len(freqs)); w.setsampwidth(2); w.setframerate(rate)
    w.writeframes(b"".join(struct.pack("<h", int(16000 * math.sin(2 * math.pi * f * i / rate))) for i in range(round(secs * rate)) for f in freqs))
PY
    lame --quiet --noreplaygain "${@:5}" "$tmp/in.wav" "$here/$1"
    if [[ "$(head -c 3 "$here/$1")" == ID3 || "$(tail -c 128 "$here/$1" | head -c 3)" == TAG ]]; then echo "make-samples: $1 carries a tag" >&2; exit 1; fi
}
sample sine-1s.mp3 1.0 44100 "440" -m m --cbr -b 64
sample sine-3s-stereo.mp3 3.0 44100 "440 660" -m s --cbr -b 128
sample tone-2500ms.mp3 2.5 22050 "1000" -m m -V 5 --resample 22.05
