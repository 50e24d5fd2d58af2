#!/usr/bin/env bash
# End-to-end benchmark of `tesselux render` against the ffmpeg tool on the same
# generated 1920x1080, 30 fps, 10-second H.264 input:
#   (a) tesselux render to H.264 CRF 18       vs (b) ffmpeg transcode, no filter
#   (c) tesselux render to null: (no encode)  vs (d) ffmpeg decode only (-f null)
# Prints frames per second of each and the ratios a/b and c/d, for the input
# without audio and again for the same input with an AAC track (which both
# sides copy into the transcode).
#
# usage: bench/e2e.sh [BUILD_DIR] (default build/); REPEAT=n runs n rounds of
# the four and keeps each one's fastest (use an even n); WORK=dir keeps the
# files there (default: a temp dir).
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$here/build}
tesselux=$build/bin/tesselux
repeat=${REPEAT:-1}
[ -x "$tesselux" ] || { echo "e2e: $tesselux not built (scripts/build build)" >&2; exit 1; }
work=${WORK:-$(mktemp -d)}
mkdir -p "$work"
[ -n "${WORK:-}" ] || trap 'rm -rf "$work"' EXIT

input=$work/input_1080p30_10s.mp4
if [ ! -f "$input" ]; then
  ffmpeg -v error -y -f lavfi -i testsrc2=size=1920x1080:rate=30 -t 10 \
    -c:v libx264 -crf 18 -pix_fmt yuv420p "$input"
fi
aacInput=$work/input_1080p30_10s_aac.mp4
if [ ! -f "$aacInput" ]; then
  ffmpeg -v error -y -i "$input" -f lavfi -i sine=frequency=440:sample_rate=48000:duration=10 \
    -map 0:v -map 1:a -c:v copy -c:a aac -b:a 128k "$aacInput"
fi
frames=$(ffprobe -v error -select_streams v:0 -count_packets -show_entries stream=nb_read_packets \
  -of csv=p=0 "$input")

# Seconds one run of the command takes.
timed() {
  local t0 t1
  t0=$(date +%s.%N)
  "$@" >/dev/null 2>&1
  t1=$(date +%s.%N)
  awk -v a="$t0" -v b="$t1" 'BEGIN { printf "%.3f", b - a }'
}
smaller() { awk -v t="$1" -v b="$2" 'BEGIN { if (b == "" || t < b) print t; else print b }'; }

# Each round runs the four commands one after another, so that a slow spell
# of a shared machine falls on all of them; each keeps its fastest round, and
# the ratios of each round are printed too, with their median. Every other
# round runs each pair the other way round: on the virtual machines measured,
# the second command of a pair ran a few per cent faster than the first.
runA() { timed "$tesselux" render "$input" -o "$work/a.mp4" -y --quiet; }
runB() { timed ffmpeg -v error -y -i "$input" -c:v libx264 -crf 18 -pix_fmt yuv420p -c:a copy "$work/b.mp4"; }
runC() { timed "$tesselux" render "$input" -o null: --quiet; }
runD() { timed ffmpeg -v error -y -i "$input" -f null -; }
measure() {
  local label=$1
  ta="" tb="" tc="" td=""
  rab=() rcd=()
  for round in $(seq "$repeat"); do
    if [ $((round % 2)) = 1 ]; then
      a=$(runA); b=$(runB); c=$(runC); d=$(runD)
    else
      b=$(runB); a=$(runA); d=$(runD); c=$(runC)
    fi
    ta=$(smaller "$a" "$ta"); tb=$(smaller "$b" "$tb"); tc=$(smaller "$c" "$tc"); td=$(smaller "$d" "$td")
    rab+=("$(awk -v a="$a" -v b="$b" 'BEGIN { printf "%.2f", b / a }')")
    rcd+=("$(awk -v c="$c" -v d="$d" 'BEGIN { printf "%.2f", d / c }')")
  done
  median() { printf '%s\n' "$@" | sort -n | awk '{ v[NR] = $1 } END { m = (NR + 1) / 2; printf "%.2f", (v[int(m)] + v[int(m + 0.5)]) / 2 }'; }

  fps() { awk -v n="$frames" -v t="$1" 'BEGIN { printf "%.2f", n / t }'; }
  fa=$(fps "$ta"); fb=$(fps "$tb"); fc=$(fps "$tc"); fd=$(fps "$td")
  echo "input: $frames frames, 1920x1080, 30 fps, H.264$label; $(nproc) cores; best of $repeat"
  printf '(a) tesselux render -> H.264 CRF 18   %8s fps\n' "$fa"
  printf '(b) ffmpeg transcode, no filter       %8s fps\n' "$fb"
  printf '(c) tesselux render -> null:          %8s fps\n' "$fc"
  printf '(d) ffmpeg decode only (-f null)      %8s fps\n' "$fd"
  awk -v a="$fa" -v b="$fb" -v c="$fc" -v d="$fd" \
    'BEGIN { printf "a/b %.2fx (target 0.90x)   c/d %.2fx (target 0.80x)\n", a / b, c / d }'
  echo "per round: a/b ${rab[*]} (median $(median "${rab[@]}")x)   c/d ${rcd[*]} (median $(median "${rcd[@]}")x)"
}

measure ""
input=$aacInput measure " + AAC audio (copied)"
