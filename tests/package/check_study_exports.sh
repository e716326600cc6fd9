#!/usr/bin/env bash
# usage: check_study_exports.sh <shared library> <folder of the installed headers>
# Every exported name must belong to namespace insolate::study and stand in an installed header.
set -euo pipefail
exported=$(nm -D --defined-only -C "$1" | sed -E 's/^[0-9a-f]* . //')
[ -n "$exported" ] || { echo "no exported symbols found in $1"; exit 1; }
ours='^(typeinfo( name)? for |vtable for |(non-)?virtual thunk to )?insolate::study::'
# Weak instances of templates of the libraries in use may be visible; they are not ours.
strays=$(grep -vE "$ours" <<<"$exported" | grep -vE '^(typeinfo( name)? for |vtable for |void |bool )?(EUiController|GetTransparencyValueOnRay|std|fmt|nlohmann|toml|tbb|tinyobj|__)' || true)
internal=$(grep -E "$ours" <<<"$exported" | grep -oE 'insolate::study::[A-Za-z_0-9]+' | sort -u | sed 's/insolate::study:://' |
           while read -r name; do grep -rqw "$name" "$2/study" || echo "insolate::study::$name"; done)
if [ -n "$strays$internal" ]; then
  printf 'exported, but not public:\n%s\n%s\n' "$strays" "$internal"
  exit 1
fi
# What the libraries in use are must not be needed to compile a host: our headers and standard ones only.
foreign=$(grep -rnE '^ *# *include' "$2/study" | grep -vE '[<"](study/[^>"]*|insolate/[^>"]*|[a-z_]+)[>"]' || true)
if [ -n "$foreign" ]; then
  printf 'installed headers include what the package does not bring:\n%s\n' "$foreign"
  exit 1
fi
for name in importMesh cutIntoSensors readWeatherYear runStudy writeSensorsCsv OutputFolder DataError; do
  grep -q "insolate::study::$name" <<<"$exported" || { echo "not exported: $name"; exit 1; }
done
echo "$(grep -cE "$ours" <<<"$exported") exported names, all public"
