#!/usr/bin/env bash
# Makes the copies of sine-1s.mp3 in tagged/ that independent taggers tag
# (Debian packages eyed3, python3-mutagen, id3v2, ffmpeg); tagged/README.md
# lists the versions and the values that the tests check.
set -euo pipefail

here="$(cd "$(dirname "$0")" && pwd)"
src="$here/sine-1s.mp3"
out="$here/tagged"
tmp="$(mktemp -d)"
trap 'rm -rf "$tmp"' EXIT

mkdir -p "$out"
export LC_ALL=C.UTF-8

# A 2x2 RGB PNG, always the same bytes: the picture of the APIC frames.
python3 - "$out/cover.png" <<'PY'
import struct, sys, zlib
def chunk(kind, data):
    return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data) & 0xffffffff)
rows = b"".join(b"\x00" + b"\xff\x00\x00" * 2 for _ in range(2))
png = (b"\x89PNG\r\n\x1a\n"
       + chunk(b"IHDR", struct.pack(">IIBBBBB", 2, 2, 8, 2, 0, 0, 0))
       + chunk(b"IDAT", zlib.compress(rows, 9))
       + chunk(b"IEND", b""))
open(sys.argv[1], "wb").write(png)
PY

# The taggers split their arguments at ':': names relative to tagged/.
cd "$out"
fresh() { rm -f "$1"; cp "$src" "$1"; }

# 1. eyeD3: ID3v2.3, every text in UTF-16 with a byte order mark.
f=eyed3-v23-utf16.mp3
fresh "$f"
printf '%s' 'Première ligne — 日本語の歌詞' >"$tmp/lyrics.txt"
eyeD3 --quiet --no-color --to-v2.3 --encoding utf16 \
    --title 'Café' --artist 'Ünïcödé' --album '日本語' \
    --add-comment 'Größe zählt:Notiz:deu' \
    --add-lyrics "$tmp/lyrics.txt:Strophe:eng" \
    --user-text-frame 'Stimmung:fröhlich ☀ 🎵' \
    --user-url-frame 'Heimseite:http://example.org/cafe' \
    --add-image "cover.png:FRONT_COVER:Umschlag" \
    "$f" >/dev/null

# 2. mid3v2 (mutagen): ID3v2.4, every text in UTF-8.
f=mutagen-v24-utf8.mp3
fresh "$f"
mid3v2 --song 'Ünïcödé' --artist '日本語' --album 'Café' \
    --comment 'Kommentar:Ça va très bien:fra' \
    --USLT 'Refrain:Straße — 日本語:deu' \
    --TXXX 'Stimmung:ruhig ☕ 🎵' \
    --WXXX 'Heimseite:http://example.org/v24' \
    --picture "cover.png:Hülle:3:image/png" \
    "$f"

# 3. id3v2 (id3lib): ID3v2.3 in Latin-1 plus an ID3v1.1 tag at the end.
#    id3lib stores the argument bytes as they are, so the é is given in Latin-1.
f=id3lib-v23-v1.mp3
fresh "$f"
id3v2 --song $'Caf\xe9 Latin' --artist 'Plain Artist' --album 'Plain Album' \
    --year 1999 --track 7/12 --genre 13 \
    --comment 'Notes:Short comment:eng' \
    --TXXX 'Mood:calm' \
    "$f"

# 4. ffmpeg's MP3 muxer: ID3v2.3 (UTF-16 where a text is not ASCII) and ID3v1.
#    bitexact keeps the encoder's version string out of the tag.
f=ffmpeg-v23-v1.mp3
rm -f "$f"
ffmpeg -nostdin -loglevel error -i "$src" -c copy -map_metadata -1 -fflags +bitexact -flags:a +bitexact \
    -metadata title='Café' -metadata artist='日本語' -metadata album='Plain Album' \
    -metadata date=2021 -metadata track=3 -metadata genre=Pop -metadata comment='ffmpeg comment' \
    -id3v2_version 3 -write_id3v1 1 "$f"

# 5. eyeD3 again: ID3v2.4 in UTF-16 big-endian without a byte order mark,
#    then, in a second run, an ID3v1.1 tag beside it.
f=eyed3-v24-utf16be-v1.mp3
fresh "$f"
eyeD3 --quiet --no-color --to-v2.4 --encoding utf16-be \
    --title 'Größe' --artist '日本語' --track 5 \
    --add-comment 'Grüße aus Köln:Notiz:deu' \
    "$f" >/dev/null
eyeD3 --quiet --no-color --v1 --title 'V1 Title' --artist 'V1 Artist' --album 'V1 Album' \
    --release-year 2003 --track 5 --genre Jazz --comment 'v1 comment' \
    "$f" >/dev/null
echo "make-tagged: $(ls *.mp3 | wc -l) files, $(cat *.mp3 cover.png | wc -c) bytes; cover.png is $(stat -c %s cover.png) bytes"
