#!/usr/bin/env bash
# Installs a build, moves it, and uses it as others would: the tool, programs that build on it, and a build of the
# product alone for a target. usage: run.sh BUILD (a release build of everything)
set -euo pipefail
build=$(realpath "$1")
source=$(realpath "$(dirname "${BASH_SOURCE[0]}")/../..")
work=$build/install-test
rm -rf "$work"
mkdir "$work"
step() { printf '%s\n' "- $*"; }
fails() { printf 'install: %s\n' "$*" >&2; exit 1; }
is_picture() { djpeg -outfile /dev/null "$1" || fails "$1 is no picture"; }

step 'install, and move what was installed'
cmake --install "$build" --prefix "$work/first" --strip >"$work/log"
mv "$work/first" "$work/moved"
root=$work/moved
libraries=$(dirname "$(find "$root" -name libkovcameraadaptor.so)")
[ -z "$(grep -rlaF "$build" "$root" | head -n 1)" ] || fails "the build's folder stands in $(grep -rlaF "$build" "$root")"
"$root/bin/kovcam" shoot single -i scene:still-life -o "$work/tool" --picture-size 640x480 >/dev/null
is_picture "$work/tool/single-001.jpg"
[ "$("$root/bin/kovcam" --version)" = "$(strings "$libraries/libkovcameraadaptor.so" |
    sed -n 's/^kovcameraadaptor \([0-9]\)/kovcam \1/p')" ] || fails 'tool and library tell different versions'

step 'a program that finds it with find_package'
cmake -S "$source/tests/install/consumer" -B "$work/consumer" -G Ninja -D CMAKE_PREFIX_PATH="$root" >"$work/log"
cmake --build "$work/consumer" >"$work/log" || { cat "$work/log"; exit 1; }
"$work/consumer/consumer" "$work/cmake.jpg"
is_picture "$work/cmake.jpg"

step 'a program that builds it as a part of itself'
cmake -S "$source/tests/install/consumer" -B "$work/part" -G Ninja -D CMAKE_BUILD_TYPE=Release -D KOV_SOURCE="$source" >"$work/log"
# The program's own source, and that all the rest is known: to compile it as well would take minutes and show no more.
cmake --build "$work/part" --target CMakeFiles/consumer.dir/main.cpp.o >"$work/log" || { cat "$work/log"; exit 1; }
cmake --build "$work/part" --target consumer -- -n >"$work/log" || { cat "$work/log"; exit 1; }

step 'a program that finds it with pkg-config'
export PKG_CONFIG_PATH=$libraries/pkgconfig
read -ra flags <<<"$(pkg-config --cflags kovcameraadaptor-service)"
read -ra links <<<"$(pkg-config --libs kovcameraadaptor-service)"
g++ -std=c++20 "${flags[@]}" "$source/tests/install/consumer/main.cpp" -o "$work/by-name" "${links[@]}"
LD_LIBRARY_PATH=$libraries "$work/by-name" "$work/pkg-config.jpg"
is_picture "$work/pkg-config.jpg"

step 'the product alone, on reduced headers and libraries by name'
python3 "$source/tests/install/reduce_headers.py" "$source/platform" "$work/platform"
cmake -S "$source" -B "$work/target" -G Ninja -D CMAKE_BUILD_TYPE=Release -D KOV_PLATFORM_INCLUDE="$work/platform" \
    -D KOV_CLOSED_LIBRARIES="-L$build/lib;camera;arccamera;PanoraMax1;ActionShot;PlusMe;caps;media;kovruntime" >"$work/log"
cmake --build "$work/target" >"$work/log" || { cat "$work/log"; exit 1; }
for name in camera arccamera PanoraMax1 ActionShot PlusMe caps media jpeg; do
    readelf -d "$work/target/lib/libkovcameraadaptor.so" | grep -q "NEEDED.*lib$name\.so" || fails "lib$name is not needed"
done
readelf -d "$work/target/lib/libkovcameraadaptor.so" | grep -q NODELETE || fails 'the library can be unloaded'

step 'the binary interface of both builds'
for library in "$work/target/lib/libkovcameraadaptor.so" "$build/lib/libkovcameraadaptor.so"; do
    python3 "$source/tools/check_abi.py" "$library" "$source/docs/porting.md"
    undefined=$(LD_LIBRARY_PATH=$build/lib ldd -r "$library" 2>&1 | grep 'undefined symbol' || true)
    [ -z "$undefined" ] || fails "$undefined"
done
python3 "$source/tools/check_abi.py" "$build/lib/libcaps.so" "$source/docs/porting.md" >"$work/log" &&
    fails 'a library that is not the adaptor passes'
printf 'install: everything holds\n'
