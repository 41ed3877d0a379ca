#!/usr/bin/env bash
# Renders the pictures of the resource bundle, and the icon and installer of the Windows program, from their
# sources. All are committed, so only who changes a picture needs this.
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

art=$root/ui/resources/art
images=$root/ui/resources/images
download_page=https://www.brekka.example/app

install_packages librsvg2-bin qrencode fonts-noto-cjk icoutils imagemagick

# A path of 29 strokes' height, drawn into the popup's background.
code=$(qrencode --type=SVG --level=M --symversion=3 --margin=0 --rle --svg-path --output=- "$download_page" |
    sed -n 's/.* d="\(M[^"]*\)".*/\1/p')
[ -n "$code" ] || fail 'no path in the output of qrencode'
sed -i "s|\(id=\"code\".* d=\"\)[^\"]*|\1$code|" "$art/qrback.svg"

(cd "$art" && find . -name '*.svg' -printf '%P\n') | while IFS= read -r source; do
    mkdir -p "$(dirname "$images/$source")"
    rsvg-convert --output "$images/${source%.svg}.png" "$art/$source"
done

# The sizes that the shell shows, each rendered for itself; the largest one is stored compressed.
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
for size in 16 24 32 48 256; do
    rsvg-convert --width "$size" --height "$size" --output "$work/$size.png" "$art/icon.svg"
done
icotool --create --output "$root/app/brekka.ico" "$work"/{16,24,32,48}.png --raw "$work/256.png"

# The installer takes 16 million colours or a palette; 256 of them are enough for it.
rsvg-convert --output "$work/installer.png" "$root/scripts/windows/installer.svg"
convert "$work/installer.png" -colors 256 -compress none "BMP3:$root/scripts/windows/installer.bmp"
