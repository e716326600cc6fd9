#!/usr/bin/env bash
# Makes the results that the tests of the page look at: make_results.sh COMMAND FOLDER
set -euo pipefail
command=$1 out=$2
source=$(cd "$(dirname "$0")/../.." && pwd)
demo=$source/examples/courtyard
quiet() { "$command" run --quiet "$@"; }
mkdir -p "$out"
# With the hours of a cell of the court.
quiet --study "$demo/study.toml" --hours-of 10236 --page --out "$out/courtyard"
quiet --study "$demo/study.toml" --period 6/1-8/31 --out "$out/summer"
"$command" view --quiet "$out/courtyard" "$out/summer" --out "$out/compared.html"
# Months, and the hours of groups; the page of the run and the page of what the folder has.
quiet --weather "$demo/weather.epw" --scene "$demo/courtyard.obj" --grid 3 --split month \
  --by object --hours-of groups --page --out "$out/months"
"$command" view --quiet "$out/months" --out "$out/months-view.html"
quiet --weather "$demo/weather.epw" --scene "$demo/courtyard.obj" --sensors plane:z=1.5,grid=1 \
  --period 6/21 --page --out "$out/plane"
printf 'x,y,z,nx,ny,nz\n0,0,1,0,0,1\n5,5,12,0,0,1\n-30,-30,2,0,-1,0\n40,20,2,1,0,0\n' >"$out/points.csv"
quiet --weather "$demo/weather.epw" --scene "$demo/courtyard.obj" --sensors "$out/points.csv" \
  --period 6/21 --page --out "$out/points"
cut -d, -f1-3 "$out/points.csv" >"$out/bare.csv"
quiet --weather "$demo/weather.epw" --scene "$demo/courtyard.obj" --sensors "$out/bare.csv" \
  --period 6/21 --page --out "$out/bare"
python3 "$source/viewer/tests/hostile.py" >"$out/hostile.obj"
quiet --weather "$demo/weather.epw" --scene "$out/hostile.obj" --grid 1 --period 6/21 --page --out "$out/hostile"
# Another design of the demo, with a tower that shades the court and a house so far away that the shadows
# of a moment are coarse; its sun around noon in winter has other columns.
printf 'o tower\nv 0 -60 0\nv 20 -60 0\nv 20 -50 0\nv 0 -50 0\nv 0 -60 60\nv 20 -60 60\nv 20 -50 60\nv 0 -50 60
f 1 2 6 5\nf 2 3 7 6\nf 3 4 8 7\nf 4 1 5 8\nf 5 6 7 8\no house\nv 3000 0 0\nv 3010 0 0\nv 3010 0 20\nv 3000 0 20
f 9 10 11 12\n' >"$out/tower.obj"
quiet --study "$demo/study.toml" --scene "$demo/courtyard.obj" --scene "$out/tower.obj" --out "$out/tower"
"$command" sunhours --quiet --scene "$demo/courtyard.obj" --scene "$out/tower.obj" --select surface --grid 0.75 \
  --lat 47 --lon 8 --tz 1 --dates 12/21 --hours 12:00-12:02 --out "$out/noon"
"$command" view --quiet "$out/courtyard" "$out/tower" "$out/noon" --out "$out/designs.html"
# Two houses against each other: the cells of the wall between them are enclosed.
cat >"$out/houses.obj" <<'OBJ'
v 0 0 0
v 6 0 0
v 6 6 0
v 0 6 0
v 0 0 6
v 6 0 6
v 6 6 6
v 0 6 6
v 12 0 0
v 12 6 0
v 12 0 6
v 12 6 6
o west
f 1 2 6 5
f 2 3 7 6
f 3 4 8 7
f 4 1 5 8
f 5 6 7 8
f 1 4 3 2
o east
f 2 9 11 6
f 9 10 12 11
f 10 3 7 12
f 3 2 6 7
f 6 11 12 7
f 2 3 10 9
OBJ
quiet --weather "$demo/weather.epw" --scene "$out/houses.obj" --grid 1 --period 6/21 --page --out "$out/houses"
"$command" view --quiet "$out/houses" --out "$out/houses-view.html"
# Hours of sun on two days, judged; they need no weather.
"$command" sunhours --quiet --scene "$demo/courtyard.obj" --grid 3 --lat 47 --lon 8 --tz 1 \
  --dates 3/21,12/21 --min 2 --out "$out/sun"
"$command" view --quiet "$out/sun" --out "$out/sun.html"
# A day before and after a change, in folders of the same name, and what differs.
for albedo in 0.2 0.6; do
  quiet --weather "$demo/weather.epw" --scene "$demo/courtyard.obj" --grid 3 --period 6/21 --albedo $albedo \
    --out "$out/albedo-$albedo/result"
done
"$command" view --quiet "$out"/albedo-0.{2,6}/result --out "$out/twice.html"
"$command" compare --quiet "$out"/albedo-0.{2,6}/result --out "$out/change"
"$command" view --quiet "$out/change" --out "$out/change.html"
# More days than a small page holds.
quiet --weather "$demo/weather.epw" --scene "$demo/courtyard.obj" --grid 4 --split day --page --page-limit 0.6 \
  --out "$out/days"
# A thousand level sensors over the demo, for the shadows of a moment.
awk 'BEGIN { srand(7); print "x,y,z,nx,ny,nz"
  for (i = 0; i < 1000; ++i) printf "%.3f,%.3f,0.05,0,0,1\n", -37.9 + 89.8 * rand(), -34.9 + 70.8 * rand() }' >"$out/level.csv"
if [ -n "${INSOLATE_TEST_DATA:-}" ]; then
  quiet --weather "$INSOLATE_TEST_DATA/weather/mannheim.epw" --scene "$INSOLATE_TEST_DATA/meshes/lyon_terrain.obj" \
    --scene "$INSOLATE_TEST_DATA/meshes/lyon_buildings.obj" --grid 5 --page --out "$out/lyon"
fi
