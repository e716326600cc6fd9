"""A district from GIS files to a GeoPackage of roofs: time and memory of each step.

    ./dev python bench/district.py [buildings] [grid]

Makes the footprints with heights and the terrain raster (examples/district/make_district.py; 5,000 and cells of 1 m by
default), which does not count, and then reads them, computes a year on all roofs and writes their cadastre, in a
process of its own. Prints the seconds of the steps, those of all processors, and the peak of memory.
"""

from __future__ import annotations

import resource
import subprocess
import sys
import tempfile
import time
from pathlib import Path

root = Path(__file__).resolve().parents[1]


def study(folder: Path, grid: float) -> None:
    begin = time.perf_counter()
    import insolate as ins
    from insolate import geo

    marks = [("import", time.perf_counter())]

    def mark(name: str) -> None:
        marks.append((name, time.perf_counter()))

    district = geo.read_district(
        folder / "buildings.gpkg",
        terrain=folder / "terrain.tif",
        id="building_id",
        height="height_m",
        storeys="storeys",
        missing_height=6.0,
    )
    mark("read")
    sensors = district.sensors("roof", grid=grid)
    mark("cut")
    result = ins.radiation(district.models, sensors, root / "examples/courtyard/weather.epw", progress=False)
    mark("radiation")
    made = geo.cadastre(result)
    mark("tables")
    file = folder / "roofs.gpkg"
    made.save(file)
    mark("write")
    whole = time.perf_counter() - begin
    used = resource.getrusage(resource.RUSAGE_SELF)
    processors = used.ru_utime + used.ru_stime  # what other work on the machine changes less
    triangles = result.summary["scene"]["triangles"]
    before = begin
    steps = []
    for name, at in marks:
        steps.append(f"{name} {at - before:.1f}")
        before = at
    print(
        f"{len(made.buildings):,} buildings, {triangles:,} triangles, {len(sensors):,} sensors of {grid:g} m: "
        f"{whole:.1f} s ({', '.join(steps)}), "
        f"processors {processors:.1f} s, {used.ru_maxrss / 1024:,.0f} MB; {file.stat().st_size / 1e6:.1f} MB written, "
        f"mean {made.roofs['energy_kwh'].sum() / made.roofs['area_m2'].sum():.1f} kWh/m2"
    )


def main() -> None:
    buildings = int(sys.argv[1]) if len(sys.argv) > 1 else 5000
    grid = float(sys.argv[2]) if len(sys.argv) > 2 else 1.0
    sys.path.insert(0, str(root / "examples" / "district"))
    from make_district import make_district

    with tempfile.TemporaryDirectory() as folder:
        make_district(folder, buildings)
        subprocess.run([sys.executable, "-W", "ignore", __file__, "--study", folder, str(grid)], check=True)


if __name__ == "__main__":
    if sys.argv[1:2] == ["--study"]:
        study(Path(sys.argv[2]), float(sys.argv[3]))
    else:
        main()
