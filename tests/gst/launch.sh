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

for mode in single continuous panorama smile self addme action cartoon; do
    launch kovcamerasrc mode=$mode num-buffers=10 ! videoconvert ! fakesink
done

# A film in a common format, played again frame by frame.
launch -e kovcamerasrc mode=cartoon effect=stamp num-buffers=30 ! video/x-raw,width=320 ! videoconvert ! jpegenc ! \
    matroskamux ! filesink location=film.mkv
launch filesrc location=film.mkv ! matroskademux ! jpegdec ! videoconvert ! pngenc snapshot=false ! multifilesink location=film-%02d.png
[ "$(find . -name 'film-*.png' | wc -l)" -eq 30 ] || fails 'the film has not the 30 frames that were recorded'

# Pictures beside a preview. A sweep is stopped by the end of the stream that Ctrl-C asks for.
launch kovcamerasrc source='scene:crossing?delay=0' mode=continuous num-pictures=9 name=c c.vfsrc ! fakesink \
    c.imgsrc ! multifilesink location=burst-%d.jpg
gst-launch-1.0 -e -m kovcamerasrc source=scene:landscape mode=panorama name=c c.vfsrc ! tee ! videoconvert ! fakesink \
    c.imgsrc ! multifilesink location=wide-%d.jpg >log &
for ((tries = 0; tries < 600; ++tries)); do
    [ "$(grep -c PANORAMA_FRAME_ADDED log || true)" -lt 3 ] || break
    sleep 0.1
done
kill -INT $!
wait $! || fails "$(cat log)"
for picture in burst-{0..8} wide-0; do
    djpeg -outfile /dev/null $picture.jpg || fails "$picture.jpg is no picture"
done

printf '%s\n' "$(gst-inspect-1.0 kovcamerasrc)" >inspect
for word in vfsrc imgsrc source mode effect jpeg-quality picture-size start-capture stop-capture command; do
    grep -q -- "$word" inspect || fails "gst-inspect-1.0 does not tell of $word"
done
gst-launch-1.0 -q kovcamerasrc source=/dev/video99 ! fakesink 2>error && fails 'a camera that is not there plays'
grep -q 'there is no file /dev/video99' error || fails "the error does not say why: $(cat error)"
