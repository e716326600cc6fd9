"""Makes a district as GIS files: buildings.gpkg with heights, and terrain.tif, a raster of the ground.

    python examples/district/make_district.py FOLDER [BUILDINGS]

Streets turned by 17 degrees on a slope with a hill, in ETRS89 / UTM zone 32N at 47 N, 8 E, the place of the demo's
weather. Houses, houses with a wing, blocks around a court and pairs of halves, some without a height: as cadastres have
them. The same at each run.
"""

from __future__ import annotations

import math
import sys
from pathlib import Path

import geopandas as gpd
import numpy as np
import pyproj
import rasterio
import shapely
import shapely.affinity

crs = "EPSG:25832"
latitude, longitude = 47.0, 8.0
missing_share = 0.01


def ground(x: np.ndarray, y: np.ndarray) -> np.ndarray:
    """Height of the ground [m], x and y from the middle."""
    return 430.0 + 0.02 * y + 40.0 * np.exp(-((x - 400.0) ** 2 + (y - 700.0) ** 2) / 300.0**2)


def _outline(kind: int, width: float, depth: float) -> shapely.Geometry:
    box = shapely.box(-width / 2, -depth / 2, width / 2, depth / 2)
    if kind == 0:  # a house
        return box
    if kind == 1:  # with a wing
        return shapely.union(box, shapely.box(width / 2, -depth / 2, width, 0.0))
    if kind == 2:  # around a court
        return shapely.difference(shapely.box(-width, -depth, width, depth), box)
    return shapely.multipolygons(  # a house with its garage
        [box, shapely.box(width / 2 + 2.0, -depth / 2, width / 2 + 5.0, -depth / 2 + 6.0)]
    )


def make_district(folder: str | Path, buildings: int = 300, cell: float = 1.0) -> tuple[Path, Path]:
    """Writes both files and gives their names."""
    random = np.random.default_rng(5)
    east, north = pyproj.Transformer.from_crs(4326, crs, always_xy=True).transform(longitude, latitude)
    across = math.ceil(math.sqrt(buildings))
    pitch = 32.0  # one building for each so many metres
    places = [(i % across, i // across) for i in range(buildings)]
    shapes, rows = [], []
    for number, (column, row) in enumerate(places):
        kind = int(random.choice(4, p=[0.6, 0.2, 0.05, 0.15]))
        width, depth = random.uniform(9.0, 14.0), random.uniform(8.0, 12.0)
        storeys = int(random.integers(1, 7)) if kind != 2 else int(random.integers(4, 8))
        shape = shapely.affinity.translate(
            _outline(kind, width, depth), pitch * (column - across / 2), pitch * (row - across / 2)
        )
        shapes.append(shapely.affinity.rotate(shape, 17.0, origin=(0.0, 0.0)))
        height = round(3.0 * storeys + random.uniform(0.5, 1.5), 1)
        known = random.uniform() >= missing_share
        rows.append((f"B{number:05d}", height if known else math.nan, storeys if known or number % 2 else None))
    table = gpd.GeoDataFrame(
        {
            "building_id": [row[0] for row in rows],
            "height_m": [row[1] for row in rows],
            "storeys": np.array([math.nan if row[2] is None else row[2] for row in rows]),
        },
        geometry=[shapely.affinity.translate(shape, east, north) for shape in shapes],
        crs=crs,
    )
    folder = Path(folder)
    folder.mkdir(parents=True, exist_ok=True)
    footprints, terrain = folder / "buildings.gpkg", folder / "terrain.tif"
    footprints.unlink(missing_ok=True)
    table.to_file(footprints, layer="buildings", driver="GPKG")
    west, south, right, top = table.total_bounds
    margin = 520.0
    west, top = math.floor(west - margin), math.ceil(top + margin)
    width, rows_down = math.ceil((right + margin - west) / cell), math.ceil((top - south + margin) / cell)
    x = west + (np.arange(width) + 0.5) * cell - east
    y = top - (np.arange(rows_down) + 0.5) * cell - north
    heights = ground(x[None, :], y[:, None]).astype(np.float32)
    heights[:3, :3] = -9999.0  # a corner without data
    with rasterio.open(
        terrain, "w", driver="GTiff", width=width, height=rows_down, count=1, dtype="float32", crs=crs, nodata=-9999.0,
        transform=rasterio.Affine(cell, 0.0, west, 0.0, -cell, top), compress="deflate", tiled=True,
    ) as raster:  # fmt: skip
        raster.write(heights, 1)
    return footprints, terrain


if __name__ == "__main__":
    print(*make_district(sys.argv[1], int(sys.argv[2]) if len(sys.argv) > 2 else 300))
