#!/usr/bin/env bash
# usage: check_exports.sh <shared library> <folder of the installed headers>
# Every exported name must belong to a public class, to the public part of namespace insolate, or to
# what the compiler adds for such a class (type information, virtual tables).
set -euo pipefail
classes='EModel|ECalculationPoint|EObject|EAnalysisController|ESolarAnalysisController|EUiController'
classes+='|EGeometry|ETriangularFacet|EWeatherData|ESolarPosition|ETerrestrialLocation|ECumulativeSky'
classes+='|ESolarRadiation|EPerezInput|EPerezResults|EShadingMask|EShadingMaskAccumulator'
classes+='|RT::InputPackageUitl|RT::SpatialTreeUtil|RT::GetTransparencyValueOnRayImpl'
classes+='|GetTransparencyValueOnRay|GetTransparencyValueOnRayInternal'
exported=$(nm -D --defined-only -C "$1" | sed -E 's/^[0-9a-f]* . //')
[ -n "$exported" ] || { echo "no exported symbols found in $1"; exit 1; }
# Weak instances of standard templates may be visible; they are not ours.
strays=$(grep -vE "^(typeinfo( name)? for |vtable for |(non-)?virtual thunk to )?($classes)(::|$|\()" <<<"$exported" |
         grep -vE '^(typeinfo( name)? for |vtable for |(non-)?virtual thunk to )?insolate::' |
         grep -vE '^(typeinfo( name)? for |vtable for |void |bool )?(std|__gnu_cxx|tbb|__asan|__odr_asan|__ubsan)' || true)
# What namespace insolate exports must stand in an installed header.
internal=$(grep -oE 'insolate::[A-Za-z_0-9]+' <<<"$exported" | sort -u | sed 's/insolate:://' |
           while read -r name; do grep -rqw "$name" "$2" || echo "insolate::$name"; done)
if [ -n "$strays$internal" ]; then
  printf 'exported, but not public:\n%s\n%s\n' "$strays" "$internal"
  exit 1
fi
for class in EModel ESolarAnalysisController EWeatherData ESolarPosition ECumulativeSky EShadingMask \
             EShadingMaskAccumulator ETriangularFacet EGeometry RT::InputPackageUitl RT::SpatialTreeUtil \
             RT::GetTransparencyValueOnRayImpl GetTransparencyValueOnRayInternal ESolarRadiation; do
  grep -qE "(^|for )$class(::|$)" <<<"$exported" || { echo "not exported: $class"; exit 1; }
done
echo "$(wc -l <<<"$exported") exported names, all public"
