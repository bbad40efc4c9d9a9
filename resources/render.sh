#!/bin/sh
# Renders the icons of the resource tree from their drawings. For developers; needs rsvg-convert and ImageMagick.
#
# The drawings stand on a grid of 16. One picture of 48 pixels serves every size in use: 16, 24 and 32 follow from it by
# whole steps of the grid, so lines stay sharp.
set -eu
cd "$(dirname "$0")"
mkdir -p png
for drawing in svg/*.svg; do
    name=$(basename "$drawing" .svg)
    case $name in
    TovScope) continue ;;
    velmor_logo)
        rsvg-convert -w 180 "$drawing" -o "png/$name.png"
        rsvg-convert -w 360 "$drawing" -o "png/$name@2x.png"
        ;;
    *) rsvg-convert -w 48 -h 48 "$drawing" -o "png/$name.png" ;;
    esac
done

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
for size in 16 24 32 48 64 128; do
    rsvg-convert -w $size -h $size svg/TovScope.svg -o "$work/$(printf %03d $size).png"
done
convert "$work"/*.png png/TovScope.ico
