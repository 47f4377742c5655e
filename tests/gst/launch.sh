#!/usr/bin/env bash
# The element as people use it: installed, and with gst-launch-1.0. usage: launch.sh BUILD
set -euo pipefail
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
for component in library gstreamer; do
    cmake --install "$1" --prefix "$work/first" --component $component --strip >/dev/null
done
mv "$work/first" "$work/moved"
GST_PLUGIN_PATH=$(dirname "$(find "$work/moved" -name libgstkovcamera.so)")
export GST_PLUGIN_PATH GST_REGISTRY=$work/registry KOV_CAMERA_SPEED=4
cd "$work"
fails() { printf 'launch: %s\n' "$*" >&2; exit 1; }
launch() { timeout 60 gst-launch-1.0 -q "$@" || fails "gst-launch-1.0 $*"; }

# A film in a common format, played again frame by frame.
launch -e kovcamerasrc mode=cartoon effect=stamp num-buffers=30 ! video/x-raw,width=320 ! videoconvert ! jpegenc ! \
    matroskamux ! filesink location=film.mkv
launch filesrc location=film.mkv ! matroskademux ! jpegdec ! videoconvert ! pngenc snapshot=false ! multifilesink location=film-%02d.png
[ "$(find . -name 'film-*.png' | wc -l)" -eq 30 ] || fails 'the film has not the 30 frames that were recorded'

printf '%s\n' "$(gst-inspect-1.0 kovcamerasrc)" >inspect
for word in vfsrc imgsrc source mode effect jpeg-quality picture-size start-capture stop-capture command; do
    grep -q -- "$word" inspect || fails "gst-inspect-1.0 does not tell of $word"
done
gst-launch-1.0 -q kovcamerasrc source=/dev/video99 ! fakesink 2>error && fails 'a camera that is not there plays'
grep -q 'there is no file /dev/video99' error || fails "the error does not say why: $(cat error)"
