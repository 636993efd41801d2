#!/usr/bin/env bash
# Installs the kit from a build tree into a fresh prefix, checks that its
# headers name no third-party or engine-internal header, and builds and runs
# two tiny hosts against it: one with find_package, one with pkg-config; the
# first, copied into the prefix, must find the gamepad's installed images.
# Arguments: the build tree, a scratch folder, extra compiler/linker flags.
set -euo pipefail
build=$(realpath "$1") scratch=$(realpath -m "$2") flags=${3:-}
here=$(cd "$(dirname "$0")" && pwd)
# Runs a command quietly, showing its output only when it fails.
quiet() { local out; out=$("$@" 2>&1) || { echo "failed: $*"; echo "$out"; return 1; }; }
rm -rf "$scratch" && mkdir -p "$scratch"
prefix=$scratch/prefix
quiet cmake --install "$build" --prefix "$prefix"

headers=$prefix/include/vrq
[ -f "$headers/core/VRQGamePlayer.h" ] || { echo "no public headers under include/vrq"; exit 1; }
if found=$(find "$headers" -name '*_p.h' | grep .); then
  echo "private headers were installed:"; echo "$found"; exit 1
fi
if found=$(grep -rnE '#include *<(gst/|glib|gio/|curl/|spdlog/|openssl/|spng)' "$headers"); then
  echo "installed headers include third-party headers:"; echo "$found"; exit 1
fi
if found=$(grep -rnE '#include *"' "$headers" | grep -v '#include "vrq/'); then
  echo "installed headers include outside the vrq/ prefix:"; echo "$found"; exit 1
fi
# Every header a public header includes must itself be installed.
grep -rhoE '#include "vrq/[^"]+"' "$headers" | sort -u | sed -E 's/#include "vrq\/(.*)"/\1/' | while read -r h; do
  [ -f "$headers/$h" ] || { echo "an installed header includes $h, which is not installed"; exit 1; }
done

cp -r "$here/cmake-host" "$here/make-host" "$here/host.cpp" "$scratch/"
CXXFLAGS="$flags" LDFLAGS="$flags" quiet cmake -S "$scratch/cmake-host" -B "$scratch/cmake-host/build" -G Ninja \
  -DCMAKE_PREFIX_PATH="$prefix"
quiet cmake --build "$scratch/cmake-host/build"
PKG_CONFIG_PATH=$(find "$prefix" -name pkgconfig -type d | head -1) \
  quiet make -s -C "$scratch/make-host" HOSTFLAGS="$flags"

expected="1.1.7.20 900150983cd24fb0d6963f7d28e17f72"
for host in "$scratch/cmake-host/build/cmake-host" "$scratch/make-host/make-host"; do
  out=$("$host")
  [ "$out" = "$expected" ] || { echo "$(basename "$host") printed '$out', not '$expected'"; exit 1; }
done

# A host installed beside the kit finds the gamepad's images in share/vrq.
mkdir -p "$prefix/bin" && cp "$scratch/cmake-host/build/cmake-host" "$prefix/bin/"
out=$("$prefix/bin/cmake-host" images) || { echo "the installed host found no gamepad image: $out"; exit 1; }
[ "$out" = "$prefix/share/vrq/vrqvkey 128x128" ] || { echo "the installed host read its images from '$out'"; exit 1; }
echo "both hosts built against the installed kit and ran; the images were found beside it"
