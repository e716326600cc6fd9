#!/usr/bin/env bash
# usage: try_debian_package.sh <build folder> <work folder>
# Makes the Debian package, unpacks it into a folder of its own and runs the command from there: once on a
# model that the import program reads.
set -euo pipefail
build=$1 work=$2
rm -rf "$work"
mkdir -p "$work/unpacked"
cpack --config "$build/CPackConfig.cmake" -G DEB -B "$work" >"$work/log" 2>&1 || { cat "$work/log"; exit 1; }
dpkg-deb -x "$work"/*.deb "$work/unpacked"
cd "$work"
printf 'OFF\n3 1 0\n0 0 0\n4 0 0\n0 4 0\n3 0 1 2\n' >one.off
"$work/unpacked/usr/bin/insolate" run --weather "$INSOLATE_SOURCE_DIR/examples/courtyard/weather.epw" \
  --scene one.off --quiet --out out
lines=$(wc -l <out/sensors.csv)
[ "$lines" -gt 1 ] || { echo "no sensors"; exit 1; }
for file in lib/*/libinsolate.so include/insolate/study/study.h lib/*/pkgconfig/insolate-study.pc; do
  # shellcheck disable=SC2086
  [ -e "$(echo "$work"/unpacked/usr/$file)" ] || [ -e "$(echo "$work"/unpacked/usr/${file/\/\*/})" ] ||
    { echo "not in the package: $file"; exit 1; }
done
echo "$((lines - 1)) sensors by the packaged command"
