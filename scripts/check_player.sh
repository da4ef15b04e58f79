#!/usr/bin/env bash
# check_player.sh PROGRAM: plays files with each of the common options.
set -euo pipefail
trap 'echo "$0: line $LINENO failed" >&2' ERR
play=$(realpath "$1")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"

ffmpeg -nostdin -v error -f lavfi -i testsrc2=size=320x240:rate=25 -t 1 -c:v libx264 -g 10 -pix_fmt yuv420p h264.mp4
ffmpeg -nostdin -v error -f lavfi -i testsrc2=size=320x240:rate=25 -t 1 -c:v libx265 -x265-params log-level=none h265.mkv
ffmpeg -nostdin -v error -f lavfi -i testsrc2=size=320x240:rate=25 -t 1 -c:v mpeg4 mpeg4.mp4
ffmpeg -nostdin -v error -f lavfi -i testsrc2=size=320x240:rate=25 -t 1 -vf scale=321:241 -c:v mjpeg jpeg.avi
for container in 3gp avi mkv; do
    ffmpeg -nostdin -v error -f lavfi -i testsrc2=size=352x288:rate=25 -t 1 -c:v h263 h263.$container
done
ffmpeg -nostdin -v error -f lavfi -i sine -t 1 sound.wav

field() { sed -n "s/^ *\"$2\": \"\{0,1\}\([^\",]*\)\"\{0,1\},\{0,1\}$/\1/p" "$1"; }

for file in h264.mp4 h265.mkv mpeg4.mp4 h263.3gp h263.avi h263.mkv jpeg.avi; do
    "$play" --headless --quiet --stats stats.json --contact-sheet sheet.png "$file"
    # Every frame is counted with its outcome. How many are shown depends on the load of the machine.
    shown=$(field stats.json shown)
    sum=$((shown + $(field stats.json lost) + $(field stats.json waiting_at_end)))
    [ "$(field stats.json fed)" = 25 ] && [ "$sum" = 25 ] && [ "$(field stats.json waiting_at_end)" = 0 ] && [ "$shown" -gt 0 ] || { echo "$file"; cat stats.json; exit 1; }
    [ "$(head -c 4 sheet.png | tail -c 3)" = PNG ]
done
[ "$(field stats.json width)" = 321 ]

# A clip that is shorter than the buffer is played to its end; a file without a picture ends with the cause.
ffmpeg -nostdin -v error -f lavfi -i testsrc2=size=320x240:rate=25 -t 1 -c:v libx264 -g 10 -bf 0 -pix_fmt yuv420p all.mp4
"$play" --headless --quiet --buffer 60000 --stats stats.json all.mp4
[ "$(field stats.json shown)" = 25 ] && [ "$(field stats.json last_cause)" = none ]
ffmpeg -nostdin -v error -i all.mp4 -c copy -bsf:v noise=drop=key dependent.mp4
status=0
"$play" --headless --quiet --stats stats.json dependent.mp4 2>error || status=$?
[ "$status" = 1 ] && grep -q 'nothing was shown: no key frame' error
"$play" --version >version && grep -q '^corvane-play, libcorvane 5\.5\.' version
"$play" -h >help && grep -q '^usage:' help    # not through a pipe, which grep would close too early

"$play" --headless --stats stats.json --channels 3 --format bgr --rotate 90 --size 160x120 --loop 2 --threads 1 h264.mp4 2>status
[ "$(field stats.json fed)" = 50 ] && [ "$(field stats.json width)" -le 124 ]
grep -q 'shown' status

# Sound: by SDL's disk driver, at half the volume, and none when muted. Frames of sound are counted with their outcome.
ffmpeg -nostdin -v error -i h264.mp4 -f lavfi -i sine=sample_rate=8000 -shortest -c:v copy -c:a pcm_alaw heard.mkv
export SDL_AUDIODRIVER=disk SDL_DISKAUDIOFILE=$work/heard.pcm
"$play" --headless --quiet --mute --stats stats.json heard.mkv
[ "$(field stats.json sound_heard)" = 0 ] && [ "$(field stats.json sound_not_played)" -gt 0 ] && ! [ -e heard.pcm ]
"$play" --headless --quiet --volume 50 --stats stats.json heard.mkv 2>/dev/null
[ "$(field stats.json sound_heard)" -gt 0 ] && [ "$(field stats.json sound_heard)" = "$(field stats.json sound_taken)" ]
peak=$(od -An -v -td2 heard.pcm | tr -s ' ' '\n' | sort -n | tail -1)
[ "$peak" -gt 1900 ] && [ "$peak" -lt 2100 ] || { echo "peak $peak"; exit 1; }
# G.726 as the program ffmpeg decodes it, but for its roundings; AVI has it with wrong times. Sound that is not decoded is named, unless another is there.
for container in mkv avi; do
    for rate in 16 32; do
        ffmpeg -nostdin -v error -y -i h264.mp4 -f lavfi -i sine=sample_rate=8000 -shortest -c:v copy -c:a g726 -b:a ${rate}k g726.$container
        "$play" --headless --quiet --raw-sound g726.wav --stats stats.json g726.$container 2>error
        [ "$(field stats.json sound_heard)" -gt 0 ] && [ "$(field stats.json sound_heard)" = "$(field stats.json sound_taken)" ]
        ffmpeg -nostdin -v error -y -i g726.$container -f s16le g726.pcm
        python3 - g726.wav g726.pcm <<'EOF'
import array, sys
ours, theirs = (array.array("h", open(name, "rb").read()[skip:]) for name, skip in zip(sys.argv[1:], (44, 0)))
power = sum(s * s for s in theirs)
assert len(ours) > 7000 and power > 100 * sum((a - b) ** 2 for a, b in zip(ours, theirs)), (len(ours), len(theirs))
EOF
    done
done
ffmpeg -nostdin -v error -y -i h264.mp4 -f lavfi -i sine -shortest -c:v copy -c:a mp2 mp2.mkv
"$play" --headless --stats stats.json mp2.mkv 2>error
[ "$(grep -c 'the sound is mp2, which is not decoded' error)" = 1 ] && [ "$(field stats.json sound_not_decoded)" = mp2 ]
grep -q 'sound none (mp2 is not decoded)' error && [ "$(field stats.json sound_taken)" = 0 ] && [ "$(field stats.json shown)" -gt 0 ]
ffmpeg -nostdin -v error -y -i mp2.mkv -f lavfi -i sine=sample_rate=8000 -shortest -map 0 -map 1:a -c copy -c:a:1 pcm_alaw two.mkv
"$play" --headless --stats stats.json two.mkv 2>error
! grep 'not decoded' error && [ "$(field stats.json sound_heard)" -gt 0 ]
unset SDL_AUDIODRIVER SDL_DISKAUDIOFILE

# Recorded while it plays, as it is or compressed anew; decoded without a channel that presents: every picture and all
# the sound, equal to the program ffmpeg's.
ffmpeg -nostdin -v error -y -i all.mp4 -f lavfi -i sine=sample_rate=8000 -shortest -c:v copy -c:a pcm_alaw both.mkv
packets() { ffprobe -v error -count_packets -show_entries stream=codec_name,nb_read_packets -of csv=p=0 "$1" | tr '\n' ' '; }
SDL_AUDIODRIVER=dummy "$play" --headless --quiet --record live.avi --stats stats.json both.mkv
[ "$(packets live.avi)" = "$(packets both.mkv)" ] || { packets live.avi; packets both.mkv; exit 1; }
SDL_AUDIODRIVER=dummy "$play" --headless --quiet --stats stats.json live.avi
[ "$(field stats.json fed)" = "$(($(packets live.avi | tr -cd '0-9 ,' | tr ' ' '\n' | cut -d, -f2 | paste -sd+)))" ] && [ "$(field stats.json lost)" = 0 ]
"$play" --decode-only --quiet --raw i420 decoded.i420 --raw-sound decoded.wav --contact-sheet decoded.png \
    --record again.avi --compress mpeg4 --stats stats.json both.mkv
[ "$(field stats.json shown)" = 25 ] && [ "$(field stats.json lost)" = 0 ] && [ "$(packets again.avi)" = "$(packets both.mkv | sed s/h264/mpeg4/)" ]
ffmpeg -nostdin -v error -y -i both.mkv -map 0:v -f rawvideo -pix_fmt yuv420p wanted.i420 -map 0:a -f s16le wanted.pcm
cmp decoded.i420 wanted.i420 && cmp -i 44:0 decoded.wav wanted.pcm
[ "$(head -c 4 decoded.png | tail -c 3)" = PNG ]
for mistake in "--record no/such/folder.avi" "--compress h264" "--decode-only --channels 2"; do
    status=0; "$play" --headless --quiet $mistake both.mkv 2>error || status=$?
    [ "$status" != 0 ] && [ "$(wc -l <error)" = 1 ]
done

# Stills of the decoded picture, at intervals.
stills() { # FORMAT EXTENSION
    "$play" --headless --quiet --still-format "$1" --snapshot-every 0.4 h264.mp4
    [ "$(ls corvane-00?."$2" | wc -l)" = 3 ]
    local raw=()
    [ "$1" = raw ] && raw=(-f rawvideo -pix_fmt yuv420p -s 320x240)
    for still in corvane-00?."$2"; do
        [ "$(ffmpeg -nostdin -v error "${raw[@]}" -i "$still" -f rawvideo -pix_fmt rgb24 - | wc -c)" = 230400 ]
    done
}
stills png png && stills jpeg jpg && stills bmp bmp && stills raw yuv

# Wrong arguments end with a sentence and a status.
! "$play" --headless missing.mp4 2>error && grep -q 'missing.mp4: No such file' error
! "$play" --headless sound.wav 2>error && grep -q 'no H.264, H.265, MPEG-4, H.263 or JPEG video' error
ffmpeg -nostdin -v error -f lavfi -i testsrc2=size=64x64:rate=25 -t 0.2 -c:v ffv1 other.mkv
! "$play" --headless other.mkv 2>error && grep -q 'JPEG video in it but ffv1' error
! "$play" --headless --wall 4 h264.mp4 2>error && grep -q 'no window' error
! "$play" --headless --still-format gif h264.mp4 2>error && grep -q 'no good value for --still-format' error
! "$play" --headless --volume 101 h264.mp4 2>error && grep -q 'no good value for --volume' error
! "$play" --headless --threads many h264.mp4 2>error && grep -q 'no good value for --threads' error
! DISPLAY= "$play" h264.mp4 2>error && grep -q -- '--headless' error
! "$play" --headless --quiet --stats /nonexistent/x h264.mp4 2>error && grep -q 'cannot be written' error
# Ctrl-C ends the player with its statistics.
"$play" --headless --quiet --stats stats.json --loop 1000 h264.mp4 & sleep 1; kill -INT $!; wait $!
[ "$(field stats.json shown)" -gt 0 ]
echo "the player plays, measures and complains as it should"
