#!/usr/bin/env bash
# Regenerates the README's pictures of the `tesselux` command under docs/:
# the demo's contact sheet, and one picture per control group (the demo
# input's frame 42 on the left, the rendered frame on the right; the mask
# group also shows the mask frame).
# usage: tools/docs_pictures.sh [BUILD_DIR]   (default build/)
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
t=${1:-$here/build}/bin/tesselux
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$t" demo -o "$work/demo" --quiet >/dev/null
cp "$work/demo/contact_sheet.png" "$here/docs/demo-contact-sheet.png"
in=$work/demo/input.mp4
mask=$work/demo/mask.mp4
k=42
render() { local out=$1; shift; "$t" render "$in" -o "$out" --frames "$k-$k" --quiet "$@"; }
# Strength 0 swaps nothing: the frames as the command reads them.
render "$work/in.png" --strength 0
"$t" render "$mask" -o "$work/mask.png" --frames "$k-$k" --quiet --strength 0

render "$work/shuffle.png" --block-width 64 --block-height 36 --strength 0.2 --spread 0.3
render "$work/channel.png" --block-width 48 --block-height 48 --strength 0.3 --spread 0.3 --channels red \
  --direction horizontal
render "$work/time.png" --block-width 80 --block-height 80 --strength 0.3 --spread 0.1 --time-frames 8 \
  --time-probability 100 --stepping-unit frame --time-step-frames 10 --edge-mode wrap
render "$work/masked.png" --block-width 32 --block-height 32 --strength 1 --spread 1 --mask "$mask" \
  --mask-intensity 60 --mask-type threshold

oiiotool "$work/in.png" "$work/shuffle.png" "$work/channel.png" --mosaic 3x1 --resize 1920x360 \
  -o "$here/docs/controls-shuffle.png"
oiiotool "$work/in.png" "$work/time.png" --mosaic 2x1 --resize 1280x360 -o "$here/docs/controls-time-shift.png"
oiiotool "$work/in.png" "$work/mask.png" "$work/masked.png" --mosaic 3x1 --resize 1920x360 \
  -o "$here/docs/controls-mask-filter.png"
echo "docs pictures written"
