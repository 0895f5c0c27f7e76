#!/usr/bin/env bash
# Puts the guide's pictures together: the program's windows in the surroundings that svg/guide*.svg draw.
# Running it twice changes nothing.
#   guide.sh GUIDEWINDOWS        the program built from tests/ui/guidewindows.cpp
# Needs rsvg-convert (librsvg2-bin), identify (imagemagick) and pngquant.
set -euo pipefail

program=$(realpath "$1")
cd "$(dirname "${BASH_SOURCE[0]}")"

for tool in rsvg-convert identify pngquant; do
    command -v "$tool" >/dev/null || { echo "guide.sh: $tool is missing" >&2; exit 1; }
done

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cp -r svg "$work/svg"
mkdir "$work/svg/windows"

# take LANGUAGE SCALE: the windows, and as a script for sed their sizes in logical pixels.
take() {
    local language=$1 scale=$2 picture window width height
    QT_QPA_PLATFORM=offscreen QT_SCALE_FACTOR=$scale LC_ALL=C.UTF-8 \
        "$program" "$work/svg/windows" "$language" >"$work/log" 2>&1 || { cat "$work/log" >&2; exit 1; }
    for picture in "$work"/svg/windows/*.png; do
        window=$(basename "$picture" .png)
        read -r width height < <(identify -format '%w %h\n' "$picture")
        echo "s/{$window.w}/$((width / scale))/g"
        echo "s/{$window.h}/$((height / scale))/g"
        echo "s/{$window.half}/$((height / scale / 2))/g"
    done >"$work/sizes"
}

for language in en sl; do
    for scale in 1 2; do
        take "$language" "$scale"
        for number in 1 2 3 4; do
            name=guide$number
            [[ $language == en ]] || name+=-$language
            ((scale == 1)) || name+=@${scale}x
            sed -f "$work/sizes" "svg/guide$number.svg" >"$work/svg/filled.svg"
            rsvg-convert -z "$scale" "$work/svg/filled.svg" |
                pngquant --speed 1 --nofs --strip 256 - >"$name.png"
        done
    done
done
