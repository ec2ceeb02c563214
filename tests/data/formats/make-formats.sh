#!/usr/bin/env bash
# Makes the samples of the formats other than MP3 (see README.md): a quiet
# tone written as WAV by python3, encoded by each format's own encoder and
# tagged by that format's own tools, by ffmpeg's -metadata or by mutagen.
# The tracker modules are written whole by python3. Rerunning the script
# makes the same bytes.
#
# Debian packages: flac, vorbis-tools, opus-tools, speex, faketime (speexenc
# picks its stream serial number from the clock), wavpack, musepack-tools,
# ffmpeg, python3-mutagen.
set -euo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
tmp="$(mktemp -d)"
trap 'rm -rf "$tmp"' EXIT
export LC_ALL=C.UTF-8
py=/usr/bin/python3 # Debian's, which has python3-mutagen
cd "$here"

# The values the tags carry (README.md).
artist1='Björk'
artist2='日本語'
album_artist='Various Artists'
composer='Zoë Komponistin'
mb_track=8b2f6f3e-4c1d-4d5e-9a7b-2c3d4e5f6a7b
mb_album=3f1e2d3c-4b5a-4968-8776-a5b4c3d2e1f0
mb_artist=5c6d7e8f-9a0b-4c1d-8e2f-3a4b5c6d7e8f
rg_gain='-6.50 dB'
rg_peak='0.031250'

# tone OUT SECONDS RATE: a 440 Hz tone, mono, 16 bits, at a twentieth of full scale.
tone() {
    $py - "$1" "$2" "$3" <<'PY'
import math, struct, sys, wave
out, secs, rate = sys.argv[1], float(sys.argv[2]), int(sys.argv[3])
with wave.open(out, "wb") as w:
    w.setnchannels(1); w.setsampwidth(2); w.setframerate(rate)
    w.writeframes(b"".join(struct.pack("<h", int(1600 * math.sin(2 * math.pi * 440 * i / rate))) for i in range(round(secs * rate))))
PY
}
tone "$tmp/8k.wav" 0.5 8000
tone "$tmp/16k.wav" 0.5 16000
tone "$tmp/32k.wav" 0.5 32000
tone "$tmp/8k-short.wav" 0.25 8000

# ffx IN OPTIONS... OUT: ffmpeg, which writes no tag, encoder name or time of its own unless told to.
ffx() { ffmpeg -nostdin -loglevel error -y -i "$1" -map_metadata -1 -fflags +bitexact -flags:a +bitexact "${@:2}"; }

# mutagen FILE PYTHON: runs PYTHON with mutagen's modules, the file as `path`.
mutagen() {
    $py - "$1" <<PY
import sys
from mutagen.apev2 import APEv2
from mutagen.asf import ASF
from mutagen.id3 import ID3, TIT2, TPE1, TPE2, TALB, TCOM, TDRC, TCON, TRCK, TPOS, TXXX, UFID, COMM
from mutagen.mp4 import MP4, MP4FreeForm
path = sys.argv[1]
$2
PY
}
# id3v1 FILE TITLE ARTIST ALBUM YEAR TRACK GENRE: an ID3v1.1 tag at the end, alone. mutagen
# writes one only beside an ID3v2 tag, from its frames, which is then removed.
id3v1() {
    mutagen "$1" "t = ID3(); t.add(TIT2(text=['$2'])); t.add(TPE1(text=['$3'])); t.add(TALB(text=['$4']))
t.add(TDRC(text=['$5'])); t.add(TRCK(text=['$6'])); t.add(TCON(text=['$7'])); t.save(path, v1=2)
from mutagen.id3 import delete
delete(path, delete_v1=False, delete_v2=True)"
}

# --- FLAC: a Vorbis comment by metaflac ---------------------------------------------
f=xiph.flac
flac --silent --force --no-padding -o "$f" "$tmp/8k.wav"
metaflac --remove-all-tags --set-tag="TITLE=Quiet Tone" --set-tag="ARTIST=$artist1" --set-tag="ARTIST=$artist2" \
    --set-tag="ALBUM=Quiet Samples" --set-tag="ALBUMARTIST=$album_artist" --set-tag="COMPOSER=$composer" \
    --set-tag="DATE=2021-05-04" --set-tag="GENRE=Ambient" --set-tag="TRACKNUMBER=3" --set-tag="TRACKTOTAL=12" \
    --set-tag="DISCNUMBER=1" --set-tag="DISCTOTAL=2" --set-tag="MUSICBRAINZ_TRACKID=$mb_track" \
    --set-tag="MUSICBRAINZ_ALBUMID=$mb_album" --set-tag="MUSICBRAINZ_ARTISTID=$mb_artist" \
    --set-tag="REPLAYGAIN_TRACK_GAIN=$rg_gain" --set-tag="REPLAYGAIN_TRACK_PEAK=$rg_peak" "$f"

# --- FLAC: a Vorbis comment, then ID3v2.4 and ID3v1.1 by mutagen ----------------------
f=xiph-id3v2-id3v1.flac
flac --silent --force --no-padding -o "$f" "$tmp/8k.wav"
metaflac --remove-all-tags --set-tag="TITLE=Vorbis Title" --set-tag="ARTIST=$artist1" "$f"
mutagen "$f" "t = ID3(); t.add(TIT2(text=['ID3v2 Title'])); t.add(TPE1(text=['$artist1', '$artist2'])); t.add(TRCK(text=['3/12']))
t.add(TXXX(desc='MusicBrainz Album Id', text=['$mb_album'])); t.save(path, v1=2)"

# --- Ogg Vorbis: oggenc, then vorbiscomment (its keys as given, in any case) ------------
f=vorbis.ogg
oggenc --quiet --serial 1 -q 0 -o "$tmp/v.ogg" "$tmp/8k.wav"
vorbiscomment --write --raw -t "title=日本語の歌" -t "Artist=$artist1" -t "ARTIST=$artist2" -t "album=Quiet Samples" \
    -t "DATE=2021" -t "GENRE=Ambient" -t "TRACKNUMBER=3" -t "DISCNUMBER=1" -t "ALBUMARTIST=$album_artist" \
    -t "COMPOSER=$composer" -t "MUSICBRAINZ_TRACKID=$mb_track" -t "MUSICBRAINZ_ALBUMID=$mb_album" \
    -t "REPLAYGAIN_ALBUM_GAIN=-7.25 dB" "$tmp/v.ogg" "$f"

# --- Ogg FLAC: flac's own tag options ---------------------------------------------------
f=flac.oga
flac --silent --force --ogg --serial-number=2 --no-padding -T "TITLE=Ogg FLAC Tone" -T "ARTIST=$artist1" -T "ARTIST=$artist2" \
    -T "DATE=2021-05-04" -T "MUSICBRAINZ_ARTISTID=$mb_artist" -o "$f" "$tmp/8k.wav"

# --- Opus: opusenc's tag options (it adds ENCODER itself) --------------------------------
f=opus.opus
opusenc --quiet --serial 3 --bitrate 6 --padding 0 --title "Opus Tone" --artist "$artist1" --artist "$artist2" \
    --album "Quiet Samples" --tracknumber 3 --genre Ambient --date 2021-05-04 \
    --comment "MUSICBRAINZ_TRACKID=$mb_track" --comment "REPLAYGAIN_TRACK_GAIN=$rg_gain" "$tmp/8k.wav" "$f"

# --- Speex: speexenc's (title and author, in lower case, and extra comments) --------------
f=speex.spx
faketime '2021-05-04 00:00:00' speexenc --quality 0 --title "Speex Tone" --author "$artist1" \
    --comment "ALBUM=Quiet Samples" --comment "DATE=2021" "$tmp/8k.wav" "$f" 2>/dev/null

# --- MP4: AAC tagged by ffmpeg, ALAC tagged by mutagen -----------------------------------
f=aac.m4a
ffx "$tmp/8k.wav" -c:a aac -b:a 12k -metadata title="AAC Tone" -metadata artist="$artist1" -metadata album="日本語" \
    -metadata album_artist="$album_artist" -metadata composer="$composer" -metadata date=2021 -metadata genre=Ambient \
    -metadata track=3/12 -metadata disc=1/2 -metadata comment="Made by ffmpeg" "$f"
f=alac.m4a
ffx "$tmp/8k-short.wav" -c:a alac "$f"
mutagen "$f" "t = MP4(path); t['©nam'] = ['ALAC Tone']; t['©ART'] = ['$artist1', '$artist2']; t['©alb'] = ['Quiet Samples']
t['aART'] = ['$album_artist']; t['©wrt'] = ['$composer']; t['©day'] = ['2021-05-04']; t['©gen'] = ['Ambient']
t['trkn'] = [(3, 12)]; t['disk'] = [(1, 2)]
for name, value in [('MusicBrainz Track Id', '$mb_track'), ('MusicBrainz Album Id', '$mb_album'),
                    ('MusicBrainz Artist Id', '$mb_artist'), ('replaygain_track_gain', '$rg_gain')]:
    t['----:com.apple.iTunes:' + name] = [MP4FreeForm(value.encode())]
t.save()"

# --- ASF: WMA encoded by ffmpeg, tagged by mutagen -------------------------------------------
f=wma.wma
ffx "$tmp/16k.wav" -c:a wmav2 -b:a 24k "$f"
mutagen "$f" "t = ASF(path); t['Title'] = ['WMA Tone']; t['Author'] = ['$artist1']; t['WM/AlbumTitle'] = ['Quiet Samples']
t['WM/AlbumArtist'] = ['$album_artist']; t['WM/Composer'] = ['$composer']; t['WM/Year'] = ['2021']; t['WM/Genre'] = ['Ambient']
t['WM/TrackNumber'] = ['3']; t['WM/PartOfSet'] = ['1/2']; t['WM/ARTISTS'] = ['$artist1', '$artist2']
t['MusicBrainz/Track Id'] = ['$mb_track']; t['MusicBrainz/Album Id'] = ['$mb_album']
t['replaygain_track_gain'] = ['$rg_gain']; t.save()"

# --- WavPack: APEv2 by wavpack -w, then ID3v1.1 by mutagen --------------------------------------
# Two blocks of 2000 samples: MediaInfo knows no WavPack file of one block.
f=wavpack.wv
wavpack -q -y --blocksize=2000 -w "Title=WavPack Tone" -w "Artist=$artist1" -w "Album=Quiet Samples" -w "Album Artist=$album_artist" \
    -w "Composer=$composer" -w "Year=2021" -w "Genre=Ambient" -w "Track=3/12" -w "Disc=1/2" \
    -w "MUSICBRAINZ_TRACKID=$mb_track" -w "REPLAYGAIN_TRACK_GAIN=$rg_gain" -w "REPLAYGAIN_TRACK_PEAK=$rg_peak" \
    "$tmp/8k.wav" -o "$f"
id3v1 "$f" "WavPack ID3v1" "$artist1" "Quiet Samples" 2021 3 Ambient

# --- Musepack: APEv2 by mpcenc, then ID3v1.1 by mutagen ---------------------------------------------
f=musepack.mpc
mpcenc --silent --overwrite --quality 0 --title "Musepack Tone" --artist "$artist2" --album "Quiet Samples" \
    --year 2021 --track 3 --genre Ambient --tag "MUSICBRAINZ_ALBUMID=$mb_album" "$tmp/32k.wav" "$f"
id3v1 "$f" "Musepack ID3v1" "$artist1" "Quiet Samples" 2021 3 Ambient

# --- TrueAudio: encoded by ffmpeg, ID3v2.4 and ID3v1.1 by mutagen -----------------------------------
f=trueaudio.tta
ffx "$tmp/8k-short.wav" -c:a tta "$f"
mutagen "$f" "t = ID3(); t.add(TIT2(text=['TrueAudio Tone'])); t.add(TPE1(text=['$artist1', '$artist2'])); t.add(TALB(text=['Quiet Samples']))
t.add(TDRC(text=['2021-05-04'])); t.add(TCON(text=['Ambient'])); t.add(TRCK(text=['3/12'])); t.add(TPOS(text=['1/2']))
t.add(UFID(owner='http://musicbrainz.org', data=b'$mb_track')); t.save(path, v1=2)"

# --- WAV: RIFF INFO by ffmpeg; RIFF INFO and an ID3v2.4 chunk by mutagen; no tag at all ------------
f=riff-info.wav
ffx "$tmp/8k-short.wav" -c:a pcm_s16le -metadata title="RIFF Tone" -metadata artist="$artist1" -metadata album="日本語" \
    -metadata comment="Made by ffmpeg" -metadata genre=Ambient -metadata date=2021-05-04 -metadata track=3 "$f"
f=id3v2-riff-info.wav
ffx "$tmp/8k-short.wav" -c:a pcm_s16le -metadata title="RIFF Tone" -metadata artist="$artist1" "$f"
mutagen "$f" "from mutagen.wave import WAVE
w = WAVE(path); w.add_tags(); t = w.tags; t.add(TIT2(text=['ID3v2 Tone'])); t.add(TPE1(text=['$artist1', '$artist2']))
t.add(TPE2(text=['$album_artist'])); t.add(TCOM(text=['$composer'])); t.add(TXXX(desc='MusicBrainz Artist Id', text=['$mb_artist']))
w.save()"
f=untagged.wav
cp "$tmp/8k-short.wav" "$f"

# --- AIFF: encoded by ffmpeg, an ID3v2.4 chunk by mutagen -------------------------------------------
f=id3v2.aiff
ffx "$tmp/8k-short.wav" -c:a pcm_s16be "$f"
mutagen "$f" "from mutagen.aiff import AIFF
a = AIFF(path); a.add_tags(); t = a.tags; t.add(TIT2(text=['AIFF Tone'])); t.add(TPE1(text=['$artist1', '$artist2']))
t.add(TALB(text=['Quiet Samples'])); t.add(TPE2(text=['$album_artist'])); t.add(TCOM(text=['$composer']))
t.add(TDRC(text=['2021-05-04'])); t.add(TCON(text=['Ambient'])); t.add(TRCK(text=['3/12'])); t.add(TPOS(text=['1/2']))
t.add(UFID(owner='http://musicbrainz.org', data=b'$mb_track')); t.add(TXXX(desc='MusicBrainz Album Id', text=['$mb_album']))
t.add(TXXX(desc='MusicBrainz Artist Id', text=['$mb_artist'])); t.add(TXXX(desc='replaygain_track_gain', text=['$rg_gain']))
t.add(COMM(lang='eng', desc='', text=['Made by mutagen'])); a.save()"

# --- MPEG layer II: encoded by ffmpeg, ID3v2.4, APEv2 and ID3v1.1 by mutagen --------------------------
f=id3v2-ape-id3v1.mp2
ffx "$tmp/16k.wav" -c:a mp2 -b:a 32k "$f"
# APEv2 first: mutagen's APEv2 drops an ID3v1 tag behind it, its ID3 puts the ID3v1 tag at the end.
mutagen "$f" "a = APEv2(); a['Title'] = 'MP2 APE'; a['Artist'] = ['$artist1', '$artist2']; a['Year'] = '2021'; a.save(path)
t = ID3(); t.add(TIT2(text=['MP2 ID3v2'])); t.add(TPE1(text=['$artist1'])); t.add(TRCK(text=['7'])); t.save(path, v1=2)"

# --- Tracker modules, written whole: ProTracker (MOD) and FastTracker 2 (XM), one short sample each ---
$py - quiet.mod quiet.xm <<'PY'
import math, struct, sys
sample = bytes(int(20 * math.sin(2 * math.pi * i / 32)) & 0xFF for i in range(64))  # 8-bit signed, one period a 32 bytes
# MOD: title, 31 sample slots (the names double as a message), the order list, "M.K.", one empty pattern, the sample.
names = [b"Quiet sine", "by Björk".encode("latin-1")] + [b""] * 29
mod = b"Quiet Module".ljust(20, b"\0")
for i, name in enumerate(names):
    words = len(sample) // 2 if i == 0 else 0
    mod += name.ljust(22, b"\0") + struct.pack(">HBBHH", words, 0, 32 if words else 0, 0, words if words else 1)
mod += bytes([1, 127]) + bytes(128) + b"M.K." + bytes(64 * 4 * 4) + sample
open(sys.argv[1], "wb").write(mod)
# XM: header, one pattern of 64 empty rows (packed), one instrument with one sample (delta-coded).
channels, rows = 2, 64
xm = b"Extended Module: " + b"Quiet XM".ljust(20, b"\0") + b"\x1a" + b"FastTracker v2.00".ljust(20, b"\0") + struct.pack("<HI", 0x0104, 276)
xm += struct.pack("<8H", 1, 0, channels, 1, 1, 0, 6, 125) + bytes(256)
packed = b"\x80" * (channels * rows)
xm += struct.pack("<IBHH", 9, 0, rows, len(packed)) + packed
deltas, last = bytearray(), 0
for b in sample:
    deltas.append((b - last) & 0xFF); last = b
xm += struct.pack("<I", 263) + b"Quiet sine".ljust(22, b"\0") + struct.pack("<BHI", 0, 1, 40) + bytes(263 - 33)
xm += struct.pack("<IIIBbBBbB", len(sample), 0, len(sample), 32, 0, 1, 128, 0, 0) + b"Sine 440".ljust(22, b"\0") + deltas
open(sys.argv[2], "wb").write(xm)
PY
