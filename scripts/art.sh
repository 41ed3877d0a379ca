#!/usr/bin/env bash
# Renders the pictures of the resource bundle from their sources. Both are committed, so only who
# changes a picture needs this.
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

art=$root/ui/resources/art
images=$root/ui/resources/images
download_page=https://www.brekka.example/app

install_packages librsvg2-bin qrencode fonts-noto-cjk

# A path of 29 strokes' height, drawn into the popup's background.
code=$(qrencode --type=SVG --level=M --symversion=3 --margin=0 --rle --svg-path --output=- "$download_page" |
    sed -n 's/.* d="\(M[^"]*\)".*/\1/p')
[ -n "$code" ] || fail 'no path in the output of qrencode'
sed -i "s|\(id=\"code\".* d=\"\)[^\"]*|\1$code|" "$art/qrback.svg"

(cd "$art" && find . -name '*.svg' -printf '%P\n') | while IFS= read -r source; do
    mkdir -p "$(dirname "$images/$source")"
    rsvg-convert --output "$images/${source%.svg}.png" "$art/$source"
done
