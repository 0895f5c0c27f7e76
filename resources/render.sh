#!/usr/bin/env bash
# Renders the icons and the watermark from svg/. Running it twice changes nothing.
# Needs rsvg-convert (librsvg2-bin), icotool (icoutils) and convert (imagemagick).
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"

for tool in rsvg-convert icotool convert; do
    command -v "$tool" >/dev/null || { echo "render.sh: $tool is missing" >&2; exit 1; }
done

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# png SOURCE WIDTH HEIGHT TARGET [CONVERT OPTION...]
png() {
    local source=$1 width=$2 height=$3 target=$4
    shift 4
    rsvg-convert -w "$width" -h "$height" -o "$work/raw.png" "svg/$source.svg"
    # Without -strip and the excluded chunks the file would carry the time it was made.
    convert "$work/raw.png" "$@" -strip -depth 8 \
        -define png:exclude-chunks=date,time,gama,chrm,bkgd,text \
        -define png:compression-level=9 -define png:compression-filter=5 \
        "$target"
}

# ico SOURCE NAME: the small sizes come from the simplified drawing. All are full colour with
# alpha (PNG32), since not every reader of .ico files takes a palette.
ico() {
    local source=$1 name=$2 size drawing images=()
    for size in 16 20 24 32 40 48 64 256; do
        drawing=$source
        ((size > 32)) || drawing=small/$source
        png "$drawing" "$size" "$size" "PNG32:$work/$name-$size.png"
        ((size == 256)) || images+=("$work/$name-$size.png")
    done
    # 256 px is stored as PNG.
    icotool -c -b 32 -o "$name.ico" "${images[@]}" --raw="$work/$name-256.png"
}

for name in omri online sync offline; do
    png "$name" 36 36 "${name}36.png"
    png "$name" 72 72 "${name}36@2x.png"
done
png omri 72 72 omri72.png
png omri 144 144 omri72@2x.png

ico omri orvel
ico online synced
ico sync syncing
ico offline offline
ico quota quota

png watermark 420 300 watermark.png -alpha off
png watermark 840 600 watermark@2x.png -alpha off

# The installer reads nothing but this format.
png installer 164 314 "BMP3:installer.bmp" -alpha off
