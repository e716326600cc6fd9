from __future__ import annotations

import importlib
import json
import re
import resource
import shutil
import subprocess
import sys
from pathlib import Path

import numpy as np
import pytest
from conftest import root

import insolate as ins

missing = "the extra insolate[geo] is not installed"
gpd = pytest.importorskip("geopandas", reason=missing)
pyogrio = pytest.importorskip("pyogrio", reason=missing)
pyproj = pytest.importorskip("pyproj", reason=missing)
rasterio = pytest.importorskip("rasterio", reason=missing)
shapely = pytest.importorskip("shapely", reason=missing)
geo = importlib.import_module("insolate.geo")
roof, wall, floor = range(3)  # kinds of faces

utm = "EPSG:25832"
east, north = (round(value) for value in pyproj.Transformer.from_crs(4326, utm, always_xy=True).transform(8.0, 47.0))


def box(x, y, width=10.0, depth=10.0):
    return shapely.box(east + x, north + y, east + x + width, north + y + depth)


def outlines(shapes, crs=utm, **columns):
    columns.setdefault("height", [10.0] * len(shapes))
    return gpd.GeoDataFrame({"name": [f"B{i}" for i in range(len(shapes))], **columns}, geometry=shapes, crs=crs)


def raster(
    path,
    heights,
    *,
    west=east - 100.0,
    top=north + 100.0,
    step=2.0,
    crs=utm,
    nodata=-9999.0,
    unit="",
    scale=1.0,
    offset=0.0,
):
    with rasterio.open(
        path, "w", driver="GTiff", width=heights.shape[1], height=heights.shape[0], count=1, dtype="float32", crs=crs,
        nodata=nodata, transform=rasterio.Affine(step, 0.0, west, 0.0, -step, top),
    ) as file:  # fmt: skip
        file.write(heights.astype(np.float32), 1)
        file.set_band_unit(1, unit)
        file.scales, file.offsets = (scale,), (offset,)
    return path


def slope(rise=0.1, rows=100):
    """Heights of 400 m at `east`, rising to the east."""
    return np.tile(400.0 + rise * ((np.arange(rows) + 0.5) * 2.0 - 100.0), (rows, 1))


@pytest.fixture(scope="module")
def street(weather):
    """Two houses in each other's shadow, a block around a court, and the year on roofs and walls."""
    block = shapely.difference(box(40, 0, 30, 30), box(50, 10))
    table = outlines([box(0, 0), box(0, 14), block], height=[20.0, 5.0, 8.0], use=["a", "b", "c"])
    district = geo.read_district(table, id="name", height="height", keep="use")
    result = ins.radiation(district.models, district.sensors(["roof", "wall"], grid=2.5), weather, unshaded=True)
    return district, result


@pytest.mark.parametrize(
    ("crs", "longitude", "latitude", "meridian"),
    [
        (25832, 8.0, 47.0, 9.0),
        (25831, 8.0, 47.0, 3.0),
        (32733, 17.5, -33.0, 15.0),
        (2056, 9.5, 46.8, 7.43958),
        (27572, 3.5, 46.8, 2.33723),  # grads from Paris
    ],
)
def test_true_north_is_where_meridians_run(crs, longitude, latitude, meridian):
    x, y = pyproj.Transformer.from_crs(4326, crs, always_xy=True).transform(longitude, latitude)
    table = outlines([shapely.box(x, y, x + 10, y + 10)], crs=crs)
    district = geo.read_district(table, height="height")
    away = np.radians(longitude - meridian)
    # Snyder (1987), Map Projections, eq. 8-13 on the sphere: within hundredths of a degree on the ellipsoid.
    wanted = -np.degrees(np.arctan(np.tan(away) * np.sin(np.radians(latitude))))
    assert district.north == pytest.approx(wanted, abs=0.02)
    assert district.models[0].north == district.north
    assert float(re.search("lies ([0-9.]+) degrees", district.notes[0])[1]) == pytest.approx(abs(wanted), abs=0.02)
    assert ("east" if wanted > 0.0 else "west") in district.notes[0]


def test_a_map_in_another_projection_gives_the_same_radiation(weather):
    table = outlines([box(0, 0, 12, 9), box(4, -20, 10, 8)], height=[8.0, 15.0])
    means = []
    for crs in (25832, 25831):  # their norths are 4.4 degrees apart
        district = geo.read_district(table, id="name", height="height", crs=crs)
        result = ins.radiation(district.models, district.sensors("wall", grid=1.0), weather, period="12/1-12/31")
        means.append(geo.cadastre(result).walls.sort_values(["building", "azimuth_deg"]))
        stand = shapely.union_all(means[-1].geometry.array)
        assert stand.hausdorff_distance(shapely.boundary(shapely.union_all(district.buildings.geometry.array))) < 1e-3
    np.testing.assert_allclose(means[0]["azimuth_deg"], means[1]["azimuth_deg"], atol=0.1)
    np.testing.assert_allclose(means[0]["total_kwh_m2"], means[1]["total_kwh_m2"], rtol=0.02)


shapes = {
    "square": (shapely.box(0, 0, 10, 10), 100.0, 40.0),
    "clockwise": (shapely.Polygon([(0, 0), (0, 10), (10, 10), (10, 0)]), 100.0, 40.0),
    "court": (shapely.box(0, 0, 10, 10) - shapely.box(4, 4, 6, 6), 96.0, 48.0),
    "two courts": (shapely.box(0, 0, 10, 10) - shapely.box(1, 1, 2, 2) - shapely.box(4, 4, 6, 6), 95.0, 52.0),
    "ell": (shapely.Polygon([(0, 0), (10, 0), (10, 4), (3, 4), (3, 9), (0, 9)]), 55.0, 38.0),
    "parts": (shapely.MultiPolygon([shapely.box(0, 0, 1, 1), shapely.box(3, 0, 5, 1)]), 3.0, 10.0),
    "bow tie": (shapely.Polygon([(0, 0), (4, 4), (4, 0), (0, 4)]), 8.0, 8.0 + 4 * 8**0.5),
    "points twice": (shapely.Polygon([(0, 0), (5, 0), (5, 0), (5, 2), (0, 2), (0, 0.0001)]), 10.0, 14.0),
    # A hole and a part of half a millimetre are nothing; a part of 150 cm2 as narrow stays.
    "specks": (
        shapely.MultiPolygon(
            [
                shapely.box(0, 0, 10, 10) - shapely.box(5, 5, 5.0005, 5.0005),
                shapely.box(20, 0, 20.0005, 0.0005),
                shapely.box(30, 0, 30.0005, 30),
            ]
        ),
        100.015,
        40.0 + 60.001,
    ),
    "collection": (shapely.GeometryCollection([shapely.box(0, 0, 2, 2), shapely.Point(9, 9)]), 4.0, 8.0),
}


@pytest.mark.parametrize("name", shapes)
def test_outlines_become_closed_bodies(name):
    shape, area, around = shapes[name]
    table = outlines(
        [shapely.transform(shape, lambda places: places + np.array([east, north]))], height=[5.0], base=[2.0]
    )
    district = geo.read_district(table, height="height", base="base")
    shell = district._buildings.shell
    made = [[shell.vertices[shell.faces[i]] for i in np.nonzero(shell.kind == kind)[0]] for kind in range(3)]
    newell = [sum(0.5 * np.cross(f, np.roll(f, -1, axis=0)).sum(axis=0) for f in faces) for faces in made]
    np.testing.assert_allclose(newell[roof], [0, 0, area], atol=1e-3)
    np.testing.assert_allclose(newell[floor], [0, 0, -area], atol=1e-3)
    np.testing.assert_allclose(newell[wall], 0.0, atol=1e-3)
    walls = sum(np.linalg.norm(0.5 * np.cross(f, np.roll(f, -1, axis=0)).sum(axis=0)) for f in made[wall])
    assert walls == pytest.approx(5.0 * around, abs=0.01)
    # The divergence of (x, y, 0) is 2: walls that look outwards give twice the volume.
    out = sum(f.mean(axis=0)[:2] @ (0.5 * np.cross(f, np.roll(f, -1, axis=0)).sum(axis=0))[:2] for f in made[wall])
    assert out == pytest.approx(2 * 5.0 * area, rel=1e-3)
    assert {z for f in made[roof] for z in f[:, 2]} == {7.0}
    assert {z for f in made[floor] for z in f[:, 2]} == {2.0}
    assert district.sensors("roof", grid=1.0).areas.sum() == pytest.approx(area, rel=1e-3)


def test_every_height_has_its_answer():
    table = outlines(
        [box(20 * i, 0) for i in range(8)],
        height=["12.5 m", "abc", "0", None, "9", "-3", "4000", "7"],
        storeys=[1, 2, None, None, 9, 4, None, 1],
        roof_m=[None, None, None, None, 437.0, None, None, 399.0],
        ground=[400.0] * 8,
    )
    options = {"id": "name", "height": "height", "storeys": "storeys", "top": "roof_m", "base": "ground"}
    with pytest.warns(ins.InsolateWarning, match="3 of 8 buildings: height missing"):
        district = geo.read_district(table, **options)
    heights = dict(zip(district.buildings["building"], district.buildings["height_m"], strict=True))
    assert heights == pytest.approx(
        {"B0": 12.5, "B1": 6.0, "B2": np.nan, "B3": np.nan, "B4": 37.0, "B5": 12.0, "B6": np.nan, "B7": 7.0},
        nan_ok=True,
    )
    assert any("'abc'" in text for text in district.notes)
    with pytest.warns(ins.InsolateWarning, match="height assumed"):
        assumed = geo.read_district(table, **options, missing_height=4.0).buildings
    assert list(assumed["status"]).count("height assumed") == 3
    assert assumed["height_m"].min() == 4.0
    feet = geo.read_district(outlines([box(0, 0)], height=[100.0]), height="height", height_unit="ft").buildings
    assert feet["height_m"].tolist() == pytest.approx([30.48])
    # Features with one id are parts of one building.
    twice = outlines([box(0, 0), box(10, 0)], height=[5.0, 9.0], key=["x", "x"])
    parts = geo.read_district(twice, id="key", height="height")
    assert parts.buildings[["building", "height_m"]].values.tolist() == [["x", 9.0]]
    assert parts.buildings.geometry.area.tolist() == pytest.approx([200.0])
    # Those without an id are buildings of their own, and whole numbers stay what they are.
    for keys, wanted in (
        ([12, None, None], ["12", "feature 1", "feature 2"]),
        (["x", None, " "], ["x", "feature 1", "feature 2"]),
    ):
        holed = geo.read_district(
            outlines([box(20 * i, 0) for i in range(3)], height=[5.0] * 3, key=keys), id="key", height="height"
        )
        assert holed.buildings["building"].tolist() == wanted
        assert any("2 feature(s) without 'key'" in text for text in holed.notes)


def test_buildings_stand_on_the_lowest_ground(tmp_path):
    heights = slope()
    heights[40:60, 70:] = -9999.0  # from 40 m east on
    terrain = raster(tmp_path / "terrain.tif", heights)
    table = outlines([box(-20, -5), box(10, -5), box(60, -5)])
    with pytest.warns(ins.InsolateWarning, match="1 of 3 buildings: ground missing"):
        district = geo.read_district(table, terrain=terrain, height="height", margin=20.0)
    assert district.buildings["ground_m"].tolist() == pytest.approx([398.0, 401.0, np.nan], nan_ok=True)
    assert district.models[0].vertices[:, 2].max() == pytest.approx(411.0)
    around = district.heights
    x = np.array([-31.3, 0.0, 17.7])
    local = x + district.frame.to_local([[east, north]])[0, 0]
    np.testing.assert_allclose(around.at(local, [3.0, -4.0, 0.1]), 400 + 0.1 * x, atol=1e-3)
    assert any("no data" in text for text in district.notes)
    assert np.isnan(around.at(1e4, 0.0))
    # Between unlike corners, heights are those of the triangles that rays meet.
    peak = geo.Heights(np.array([[0.0, 0.0], [0.0, 8.0]], dtype=np.float32), 0.0, 4.0, (2.0, 2.0))
    np.testing.assert_allclose(peak.at([1.5, 2.5, 2.9], [2.5, 1.5, 2.0]), [0.0, 4.0, 3.6], atol=1e-9)
    mixed = geo.read_district(table.iloc[:2].to_crs(4326), terrain=terrain, height="height", margin=20.0)
    assert mixed.buildings["ground_m"].tolist() == pytest.approx([398.0, 401.0], abs=0.02)


def test_rasters_of_other_kinds(tmp_path):
    wanted = geo.read_district(terrain=raster(tmp_path / "a.tif", slope()), margin=0.0)
    undeclared = slope()
    undeclared[:10, :10] = -9999.0
    odd = geo.read_district(terrain=raster(tmp_path / "b.tif", undeclared, nodata=None), margin=0.0)
    assert np.isnan(odd.heights.values).sum() == 100
    assert any("taken as no data" in text for text in odd.notes)
    scaled = raster(tmp_path / "f.tif", slope() / 0.3048 / 2.0 - 50.0, unit="ft", scale=2.0, offset=100.0)
    np.testing.assert_allclose(geo.read_district(terrain=scaled, margin=0.0).heights.values, slope(), rtol=1e-5)
    with pytest.raises(ins.DataError, match="'fathom' are not understood"):
        geo.read_district(terrain=raster(tmp_path / "g.tif", slope(), unit="fathom"))
    coarse = geo.read_district(terrain=tmp_path / "a.tif", margin=0.0, resolution=10.0)
    np.testing.assert_allclose(coarse.heights.values[3], 400 + 0.1 * (np.arange(20) * 10.0 - 95.0), atol=1e-3)
    # Degrees are warped to a UTM zone, and heights stand where they stood.
    step = 2e-5
    there = pyproj.Transformer.from_crs(4326, utm, always_xy=True)
    longitudes, latitudes = 8.0 + (np.arange(120) - 59.5) * step, 47.0 - (np.arange(120) - 59.5) * step
    x, y = there.transform(*np.meshgrid(longitudes, latitudes))
    tilted = 400 + 0.1 * (x - east) + 0.02 * (y - north)
    place = {"west": 8.0 - 60 * step, "top": 47.0 + 60 * step, "step": step}
    degrees = raster(tmp_path / "c.tif", tilted, crs=4326, **place)
    window = (east - 40, north - 40, east + 40, north + 40)
    warped = geo.read_district(terrain=degrees, crs=utm, window=window, margin=0.0)
    places = np.array([[east - 30.0, north + 20.0], [east + 11.0, north - 7.0]])
    local = warped.frame.to_local(places)
    np.testing.assert_allclose(warped.heights.at(*local.T), [397.4, 400.96], atol=0.03)
    assert "UTM" in geo.read_district(terrain=degrees).frame.crs.name
    with pytest.raises(ins.DataError, match="does not reach the window"):
        geo.read_district(terrain=tmp_path / "a.tif", window=(0, 0, 100, 100), crs=utm)
    with pytest.raises(ins.DataError, match=r"one.tif: has 1 x 1 cells; .* at least 2 x 2"):
        geo.read_district(terrain=raster(tmp_path / "one.tif", np.full((1, 1), 400.0), step=200.0))
    beside = (east - 110, north, east - 99.5, north + 10)  # the last half metre is the raster's
    with pytest.raises(ins.DataError, match="has less than 2 x 2 cells for the window"):
        geo.read_district(terrain=tmp_path / "a.tif", window=beside, margin=0.0)
    # Beside outlines too, whose own CRS is right.
    for place, text in (
        ({"crs": 4326}, "h.tif: .* outside of its CRS"),
        ({"west": 8, "top": 47, "step": 1e-5}, "degrees"),
    ):
        with pytest.raises(ins.DataError, match=text):
            geo.read_district(
                outlines([box(0, 0)]), terrain=raster(tmp_path / "h.tif", slope(), **place), height="height"
            )
    assert len(wanted.models) == 1


@pytest.mark.parametrize(
    ("table", "options", "error", "text"),
    [
        (outlines([box(0, 0)], crs=None), {}, ins.DataError, "give crs="),
        (outlines([box(0, 0)]), {"crs": 3857}, ins.UsageError, "stretches lengths there by 1.4"),
        (outlines([box(0, 0)]), {"crs": 4326}, ins.UsageError, "is not projected"),
        (outlines([shapely.box(80e3, 3.4e6, 80.1e3, 3.41e6)], crs=2048), {}, ins.DataError, "run west and south"),
        (outlines([shapely.box(8.0, 47.0, 8.1, 47.1)]), {}, ins.DataError, "look like degrees"),
        (outlines([box(0, 0)]), {"height": "heigth"}, ins.UsageError, "did you mean 'height'"),
        (outlines([box(0, 0)]), {"height": None}, ins.UsageError, "give height="),
        (outlines([box(0, 0)], status=["new"]), {"keep": "status"}, ins.UsageError, "'status' .* rename"),
        ("a.city.json", {"keep": "use", "id": "key"}, ins.UsageError, "height, id, keep: .* outlines"),
        (outlines([box(0, 0)]), {"window": (0, 0, 1, 1)}, ins.DataError, "no building lies in the window"),
        (outlines([box(0, 0)]), {"window": (0, 0, 0, 1)}, ins.UsageError, "west, south, east, north"),
        (outlines([box(0, 0)]), {"surface": "a.tif"}, ins.UsageError, "leave terrain and buildings out"),
        (outlines([box(0, 0)]), {"terrain": "none.tif"}, ins.DataError, "none.tif"),
        ("none.gpkg", {}, ins.DataError, "none.gpkg"),
    ],
)
def test_what_cannot_be_read_is_said(table, options, error, text):
    with pytest.raises(error, match=text):
        geo.read_district(table, **{"height": "height", **options})


def test_a_map_of_empty_geometries_has_no_outline(tmp_path):
    table = outlines([shapely.Polygon(), None])
    for name in (None, "a.gpkg", "a.geojson", "a.shp"):  # their formats each have other bounds for nothing
        if name is not None:
            table.to_file(tmp_path / name)
        with pytest.raises(ins.DataError, match="has an outline; all geometries are empty"):
            geo.read_district(table if name is None else tmp_path / name, height="height")


def test_degrees_and_web_maps_go_to_utm(tmp_path):
    table = outlines([box(0, 0, 20, 10)])
    for crs, name in ((4326, "a.geojson"), (3857, "b.gpkg")):
        table.to_crs(crs).to_file(tmp_path / name)
        district = geo.read_district(tmp_path / name, height="height")
        assert "UTM zone 32N" in district.notes[1]
        assert district.buildings.crs.to_epsg() == 32632
        assert district.sensors().areas.sum() == pytest.approx(200.0, rel=1e-4)
    feet = outlines([shapely.box(980000, 190000, 980100, 190100)], crs=2263)
    district = geo.read_district(feet, height="height")
    assert district.sensors().areas.sum() == pytest.approx((1200 / 3937 * 100) ** 2)
    corners = district.frame.to_map(district.sensors(grid=50.0)._core.corners)
    assert corners[:, :2].min(axis=0).tolist() == pytest.approx([980000, 190000])
    assert corners[:, :2].max(axis=0).tolist() == pytest.approx([980100, 190100])


def test_windows_side_by_side_share_no_building_but_shadows(weather):
    # One lies across the line between the windows, the tall one south of both.
    houses = [*(box(30 * i, 0) for i in range(4)), box(55, 12, 20, 5), box(30, -25)]
    table = outlines(houses, height=[5.0] * 5 + [30.0])
    west, middle, end = east - 5.0, east + 60.0, east + 150.0
    windows = [(west, north - 5.0, middle, north + 20.0), (middle, north - 5.0, end, north + 20.0)]
    near = [geo.read_district(table, id="name", height="height", window=one, margin=50.0) for one in windows]
    assert sorted(name for one in near for name in one.buildings["building"]) == [f"B{i}" for i in range(5)]
    alone = geo.read_district(table, id="name", height="height", window=shapely.box(*windows[0]), margin=0.0)
    assert list(alone.buildings["building"]) == list(near[0].buildings["building"])
    results = [ins.radiation(one.models, one.sensors(), weather, period="12/1-12/31") for one in (alone, near[0])]
    means = [geo.cadastre(one, classes={"all": 0}).buildings["roof_total_kwh_m2"] for one in results]
    assert (means[1] / means[0]).tolist() == pytest.approx([1.0, 0.75], abs=0.2)
    assert means[1][1] < 0.9 * means[0][1]


def test_windows_are_tiles_of_a_city(tmp_path, weather):
    pytest.importorskip("zarr", reason="the extra insolate[dask] is not installed")
    table = outlines([box(30 * i, 0) for i in range(4)], height=[20.0, 5.0, 25.0, 5.0])
    options = {"id": "name", "height": "height", "origin": (0, 0)}
    whole = geo.read_district(table, **options)
    asked = {"period": "3/21", "reflectance": 0}  # reflected light depends on the tiles
    total = ins.radiation(whole.models, whole.sensors(["roof", "wall"], grid=5.0), weather, **asked).total

    def tile(west):
        window = (east + west, north - 5, east + west + 60, north + 20)
        district = geo.read_district(table, window=window, margin=0.0, **options)
        return district.models[0], district.sensors(["roof", "wall"], grid=5.0)

    tiles = {"a": lambda: tile(-5.0), "b": lambda: tile(55.0)}
    city = ins.city(tiles, weather, store=tmp_path / "city", north=whole.north, **asked)
    order = np.argsort(whole.sensors(["roof", "wall"], grid=5.0).points[:, 0] >= east + 55.0, kind="stable")
    np.testing.assert_array_equal(np.concatenate([city["a"]["total"], city["b"]["total"]]), total[order])
    assert whole.models[0].vertices[:, :2].min(axis=0).tolist() == pytest.approx([east, north])


def test_tables_are_sums_over_cells(street, weather):
    district, result = street
    made = geo.cadastre(result, thresholds=[500, 1000.5], classes={"low": 0, "good": 900, "best": 1150})
    cells = geo.cells(result, columns=["total", "sky_view"])
    cells["energy"] = cells["total_kwh_m2"] * cells["area_m2"]
    assert len(cells) == len(result.sensors)
    assert made.buildings["use"].tolist() == ["a", "b", "c"]
    for surface, layer in (("roof", made.roofs), ("wall", made.walls)):
        part = cells[cells["surface"] == surface]
        for name, group in part.groupby("building"):
            row = made.buildings.set_index("building").loc[name]
            assert row[f"{surface}_energy_kwh"] == pytest.approx(group["energy"].sum())
            assert row[f"{surface}_area_m2"] == pytest.approx(group["area_m2"].sum())
            assert row[f"{surface}_total_kwh_m2"] == pytest.approx(group["energy"].sum() / group["area_m2"].sum())
            for bound, text in ((500.0, "500"), (1000.5, "1000_5")):
                over = group["area_m2"][group["total_kwh_m2"] >= bound].sum()
                assert row[f"{surface}_from_{text}_kwh_m2_m2"] == pytest.approx(over)
            classes = [row[f"{surface}_{one}_m2"] for one in ("low", "good", "best")]
            bins = np.histogram(group["total_kwh_m2"], [0, 900, 1150, 1e9], weights=group["area_m2"])[0]
            np.testing.assert_allclose(classes, bins, atol=1e-6)
        assert layer["energy_kwh"].sum() == pytest.approx(part["energy"].sum())
    # The tall house has the sky's sums; the low one behind it less.
    roofs = made.roofs.set_index("building")
    open_roof = weather.ghi.astype(float).sum() / 1000
    assert roofs.loc["B0", "total_kwh_m2"] == pytest.approx(open_roof, rel=0.01)
    assert roofs.loc["B1", "total_kwh_m2"] < 0.9 * open_roof
    share = 100 * roofs.loc["B1", "total_kwh_m2"] / open_roof
    assert roofs.loc["B1", "unshaded_share_pct"] == pytest.approx(share, rel=0.01)
    assert roofs.loc["B0", "class"] == "best"
    np.testing.assert_allclose(roofs.geometry.area, [100.0, 100.0, 800.0])
    # Walls are lines where they stand, with the court's among them.
    walls = made.walls[made.walls["building"] == "B0"].sort_values("azimuth_deg")
    facing = np.sort((np.array([0, 90, 180, 270]) - district.north) % 360)
    np.testing.assert_allclose(walls["azimuth_deg"], facing, atol=0.01)
    outline = shapely.boundary(box(0, 0))
    assert shapely.union_all(walls.geometry.array).hausdorff_distance(outline) < 1e-6
    south = walls.iloc[(walls["azimuth_deg"] - 180).abs().argmin()]
    assert south.geometry.centroid.y == pytest.approx(north)
    assert len(made.walls[made.walls["building"] == "B2"]) == 8


def test_classes_say_when_data_do_not_suffice(weather):
    # A low house stands in a tall one but for a strip; one has no height.
    table = outlines([box(0, 0, 20, 20), box(12, 0, 10, 10), box(60, 0)], height=[20.0, 5.0, np.nan])
    with pytest.warns(ins.InsolateWarning, match="height missing"):
        district = geo.read_district(table, id="name", height="height")
    with pytest.warns(ins.InsolateWarning, match="left out of means"):
        result = ins.radiation(district.models, district.sensors(grid=1.0), weather)
    made = geo.cadastre(result)
    assert made.buildings["roof_class"].tolist()[0] == "very good"
    assert made.buildings["roof_class"].tolist()[1:] == ["insufficient data"] * 2
    assert made.buildings["roof_no_data_m2"].tolist() == pytest.approx([0.0, 80.0, 0.0])
    # Of the low roof's strip of 2 m the shade leaves less than 25 m2, and nothing else hangs together with it.
    strip = geo.cadastre(result, least_data=0.15, min_area=25.0).roofs
    assert strip["class"].tolist() == ["very good", "unsuitable"]
    assert geo.cadastre(result, least_data=0.15, min_area=5.0).roofs["class"].tolist()[1] != "insufficient data"
    assert np.isnan(geo.cells(result)["total_kwh_m2"]).sum() == 80
    with pytest.raises(ins.UsageError, match="ascending"):
        geo.cadastre(result, classes={"b": 900, "a": 100})


@pytest.mark.parametrize(
    ("classes", "options", "text"),
    [
        ({"low": 0, "area": 1000}, {}, "class 'area' and the tables' own area_m2 .* 'area_m2'"),
        ({"no data": 0}, {}, "class 'no data' and the tables' own no_data_m2"),
        ({"low": 0, "total kWh": 900}, {}, "class 'total kWh' and the tables' own total_kwh_m2"),
        ({"good": 0, "largest_good": 5}, {}, "class 'largest_good' and class 'good'"),
        ({"good": 0, "Good ": 900}, {}, "class 'Good ' and class 'good'"),
        ({"from 900 kWh m2": 0}, {"thresholds": [900]}, "threshold 900.0 and class 'from 900 kWh m2'"),
        ({"low": 0}, {"thresholds": [1000.001, 1000.002]}, "threshold 1000.002 and threshold 1000.001"),
    ],
)
def test_no_column_takes_the_place_of_another(street, classes, options, text):
    with pytest.raises(ins.UsageError, match=text):
        geo.cadastre(street[1], classes=classes, **options)


def test_areas_must_hang_together(weather):
    parts = shapely.MultiPolygon([box(0, 0, 3, 4), box(6, 0, 3, 4), box(12, 0, 3, 5)])
    district = geo.read_district(outlines([parts]), height="height")
    result = ins.radiation(district.models, district.sensors(grid=1.0), weather)
    made = geo.cadastre(result, min_area=16.0)
    first = made.buildings.iloc[0]
    assert first["roof_class"] == "unsuitable"
    assert first["roof_very_good_m2"] == pytest.approx(39.0)
    assert first["roof_largest_good_m2"] == pytest.approx(15.0)
    assert sorted(made.roofs["largest_very_good_m2"]) == pytest.approx([12.0, 12.0, 15.0])
    assert geo.cadastre(result, min_area=15.0).buildings["roof_class"].tolist() == ["very good"]
    taken = geo.read_district(outlines([parts], roof_class=["flat"]), height="height", keep="roof_class")
    with pytest.raises(ins.UsageError, match=r"'roof_class' .* rename"):
        geo.cadastre(ins.radiation(taken.models, taken.sensors(grid=1.0), weather))
    # As found by walking from cell to cell.
    random = np.random.default_rng(7)
    pairs, chosen = np.sort(random.integers(0, 300, (260, 2)), axis=1), random.uniform(size=300) < 0.8
    label = importlib.import_module("insolate._geo_cadastre")._pieces(pairs, chosen)
    near = {i: [] for i in range(300)}
    for a, b in pairs[chosen[pairs].all(axis=1)]:
        near[a].append(b)
        near[b].append(a)
    for start in range(300):
        reached, ahead = {start}, [start]
        while ahead:
            ahead = [new for one in ahead for new in near[one] if new not in reached and not reached.add(new)]
        assert set(np.nonzero(label == label[start])[0]) == reached


def test_files_are_what_others_read(street, tmp_path):
    _, result = street
    made = geo.cadastre(result)
    file = tmp_path / "out" / "roofs.gpkg"
    made.save(file, layers=["buildings", "roofs", "walls", "cells"])
    assert [path.name for path in file.parent.iterdir()] == ["roofs.gpkg"]
    assert {name for name, _ in pyogrio.list_layers(file)} == {"buildings", "roofs", "walls", "cells"}
    read = pyogrio.read_dataframe(file, layer="roofs")
    assert read.crs.to_epsg() == 25832
    np.testing.assert_allclose(read["total_kwh_m2"], made.roofs["total_kwh_m2"])
    cells = pyogrio.read_dataframe(file, layer="cells")
    assert {"class", "tilt_deg", "area_m2"} <= set(cells)
    assert len(cells) == len(result.sensors)
    assert shapely.get_coordinates(cells.geometry.array, include_z=True)[:, 2].max() == pytest.approx(20.0)
    said = pyogrio.read_info(file, layer="roofs")["layer_metadata"]
    assert "Courtyard Demo" in said["insolate_weather"]
    with pytest.raises(ins.OutputError, match="exists already"):
        made.save(file)
    for name in ("none.gpkg", "none.geojson"):
        with pytest.raises(ins.UsageError, match="none is named; choose from buildings, roofs, walls, cells"):
            made.save(tmp_path / name, layers=[])
    degrees = tmp_path / "roofs.geojson"
    made.save(degrees)
    first = json.loads(degrees.read_text())["features"][0]
    assert first["geometry"]["coordinates"][0][0][0] == pytest.approx([8.0, 47.0], abs=0.002)
    with pytest.raises(ins.UsageError, match=r"\.gpkg"):
        made.save(tmp_path / "roofs.shp")


@pytest.mark.skipif(shutil.which("ogrinfo") is None, reason="there is no ogrinfo; install gdal-bin")
def test_programs_of_gdal_accept_them(street, tmp_path, weather):
    district, result = street
    made = geo.cadastre(result)
    level = ins.radiation(district.models, district.raster_sensors(2.0), weather, period="6/21")
    for name, write, words in (
        ("a.gpkg", lambda file: made.save(file, layers=["roofs", "walls", "cells"]), "total_kwh_m2: Real"),
        ("a.geojson", made.save, "total_kwh_m2: Real"),
        ("a.tif", lambda file: geo.write_raster(level, file), "Unit Type: kWh/m2"),
    ):
        write(tmp_path / name)
        program = ["gdalinfo", "-stats"] if name == "a.tif" else ["ogrinfo", "-so", "-al"]
        done = subprocess.run([*program, tmp_path / name], capture_output=True, text=True, check=True)
        assert words in done.stdout
        assert "UTM zone 32N" in done.stdout or name == "a.geojson"
        assert "Warning" not in done.stderr
        assert "ERROR" not in done.stderr


def test_a_failed_write_leaves_what_there_was(street, tmp_path, monkeypatch):
    made = geo.cadastre(street[1])
    file = tmp_path / "roofs.gpkg"
    made.save(file)
    before = file.read_bytes()
    write = pyogrio.write_dataframe

    def fails(table, path, layer, **options):
        if layer == "walls":
            raise pyogrio.errors.DataSourceError("no space left on device")
        write(table, path, layer=layer, **options)

    monkeypatch.setattr(pyogrio, "write_dataframe", fails)
    with pytest.raises(ins.OutputError, match=r"roofs\.gpkg: cannot be written; no space left"):
        made.save(file, overwrite=True)
    assert file.read_bytes() == before
    assert [path.name for path in tmp_path.iterdir()] == ["roofs.gpkg"]


def test_a_full_disk_leaves_nothing(street, tmp_path, weather):
    made = geo.cadastre(street[1])
    sensors = street[0].raster_sensors(0.25)
    level = ins.radiation(street[0].models, sensors, weather, period="6/21")
    before = resource.getrlimit(resource.RLIMIT_FSIZE)
    resource.setrlimit(resource.RLIMIT_FSIZE, (32_000, before[1]))  # files end there, as on a full disk
    try:
        for write, name in (
            (lambda file: made.save(file, layers="cells"), "a.gpkg"),
            (lambda file: made.save(file, layers="cells"), "a.geojson"),
            (lambda file: geo.write_raster(level, file), "a.tif"),
        ):
            with pytest.raises(ins.OutputError, match=f"{name}: cannot be written"):
                write(tmp_path / name)
    finally:
        resource.setrlimit(resource.RLIMIT_FSIZE, before)
    assert not list(tmp_path.iterdir())


def test_level_results_lie_where_the_map_has_them(tmp_path, weather):
    terrain = raster(tmp_path / "terrain.tif", slope())
    window = (east - 21, north - 9, east + 31, north + 30)
    district = geo.read_district(outlines([box(0, 0)]), terrain=terrain, height="height", window=window)
    sensors = district.raster_sensors(4.0, height=1.5)
    file = tmp_path / "ground.tif"
    result = ins.radiation(district.models, sensors, weather, period="6/21")
    geo.write_raster(result, file, columns=["total", "sky_view"])
    with rasterio.open(file) as made:
        assert (made.crs.to_epsg(), made.nodata, made.units) == (25832, -9999.0, ("kWh/m2", "%"))
        assert made.transform.c % 4.0 == 0.0
        assert made.res == (4.0, 4.0)
        places = district.frame.to_map(sensors.points)
        values = np.array(list(made.sample(places[:, :2], 1))).ravel()
        np.testing.assert_allclose(values, result.total / 1000, rtol=1e-5)
        band = made.read(1, masked=True)
        (row, column) = made.index(east + 5.0, north + 5.0)
        assert band.mask[row, column]
        assert made.tags()["INSOLATE_PERIOD"] == "21 June"
        # North of the house it is darker than south of it.
        rows, columns = zip(made.index(east + 5.0, north + 13.0), made.index(east + 5.0, north - 5.0), strict=True)
        north_of, south_of = band[list(rows), list(columns)]
        assert north_of < 0.95 * south_of
    np.testing.assert_allclose(sensors.points[:, 2], 401.5 + 0.1 * (places[:, 0] - east), atol=0.01)
    with pytest.raises(ins.UsageError, match=r"needs a band; choose from .*total"):
        geo.write_raster(result, tmp_path / "b.tif", columns=[])
    with pytest.raises(ins.UsageError, match="stand on no raster"):
        geo.write_raster(ins.radiation(district.models, district.sensors(), weather, period="6/21"), tmp_path / "b.tif")


def test_a_city_surface_faces_as_it_slopes(tmp_path, weather):
    to_north = 3**0.5 * 2.0 * np.arange(40)[::-1, None]
    file = raster(tmp_path / "surface.tif", slope(rise=-1.0)[:40, :40] + to_north)
    district = geo.read_district(surface=file, margin=0.0)
    sensors = district.raster_sensors(height=0.1, sloped=True)
    inner = np.isin(sensors.places % 40, range(1, 39))
    np.testing.assert_allclose(sensors.tilts[inner], 63.435, atol=0.01)  # rises by 2
    np.testing.assert_allclose(sensors.azimuths()[inner], 150.0, atol=0.01)  # falls to the south and east
    np.testing.assert_allclose(sensors.areas[inner], 4.0 * 5**0.5, rtol=1e-4)
    result = ins.radiation(district.models, sensors, weather, period="6/21")
    filled = sensors.raster(result.total)
    assert filled.shape == (40, 40)
    assert filled[20, 20] > 1000.0


def test_roofs_of_city_models_know_their_building(tmp_path, weather):
    places = [[x, y, z] for z in (0, 6) for x, y in ((0, 0), (10, 0), (10, 8), (0, 8))] + [[0, 4, 10], [10, 4, 10]]
    surfaces = [
        ([3, 2, 1, 0], "GroundSurface"), ([0, 1, 5, 4], "WallSurface"), ([2, 3, 7, 6], "WallSurface"),
        ([4, 5, 9, 8], "RoofSurface"), ([6, 7, 8, 9], "RoofSurface"), ([1, 2, 6, 9, 5], "WallSurface"),
        ([3, 0, 4, 8, 7], "WallSurface"),
    ]  # fmt: skip
    kinds = sorted({kind for _, kind in surfaces})
    solid = {
        "type": "Solid",
        "lod": "2.2",
        "boundaries": [[[ring] for ring, _ in surfaces]],
        "semantics": {"surfaces": [{"type": one} for one in kinds], "values": [[kinds.index(k) for _, k in surfaces]]},
    }
    city = {
        "type": "CityJSON",
        "version": "2.0",
        "transform": {"scale": [0.001] * 3, "translate": [east, north, 400.0]},
        "metadata": {"referenceSystem": "https://www.opengis.net/def/crs/EPSG/0/25832"},
        "CityObjects": {"house": {"type": "Building", "geometry": [solid]}},
        "vertices": [[1000 * value for value in place] for place in places],
    }
    file = tmp_path / "house.city.json"
    file.write_text(json.dumps(city))
    district = geo.read_district(file)
    assert district.buildings[["building", "ground_m", "height_m"]].values.tolist() == [["house", 400.0, 10.0]]
    assert district.buildings.geometry.area.tolist() == pytest.approx([80.0])
    made = geo.cadastre(ins.radiation(district.models, district.sensors(["roof", "wall"]), weather))
    roofs = made.roofs.sort_values("azimuth_deg")
    assert roofs["building"].tolist() == ["house"] * 2
    assert roofs["tilt_deg"].tolist() == pytest.approx([45.0, 45.0])
    facing = sorted(((roofs["azimuth_deg"] + district.north) % 360).round())
    assert facing == [0.0, 180.0]
    south, north_side = (roofs.iloc[((roofs["azimuth_deg"] - to + 180) % 360 - 180).abs().argmin()] for to in (180, 0))
    assert south["total_kwh_m2"] > 1.3 * north_side["total_kwh_m2"]
    assert south.geometry.area == pytest.approx(40.0)
    assert made.walls["area_m2"].sum() == pytest.approx(2 * 60 + 2 * (48 + 16))
    # Without semantics the slopes say what is a roof; a CRS with heights counts by its plane.
    kinds_of = district._buildings.shell.kind.tolist()
    del solid["semantics"]
    city["metadata"]["referenceSystem"] = "urn:ogc:def:crs:EPSG::5555"
    file.write_text(json.dumps(city))
    plain = geo.read_district(file)
    assert plain._buildings.shell.kind.tolist() == kinds_of
    assert plain.frame.crs.to_epsg() == 25832


def test_what_is_missing_is_named():
    code = "import sys; sys.modules['rasterio'] = None; import insolate.geo"
    said = subprocess.run([sys.executable, "-c", code], capture_output=True, text=True, check=False).stderr
    assert "insolate.geo needs rasterio: pip install 'insolate[geo]'" in said


def test_the_page_on_maps_and_the_notebook_run(tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
    (tmp_path / "examples").symlink_to(root / "examples")
    monkeypatch.syspath_prepend(str(root / "examples" / "district"))
    import make_district

    make_district.make_district(tmp_path, buildings=16, cell=5.0)
    lines = (root / "docs" / "maps.md").read_text().split("```python\n", 1)[1].split("```", 1)[0]
    exec(compile(lines, "maps.md", "exec"), {})
    assert len(pyogrio.read_dataframe("roofs.gpkg", layer="buildings")) == 16
    assert Path("ground.tif").exists()
    nbformat = pytest.importorskip("nbformat")
    nbclient = pytest.importorskip("nbclient")
    book = nbformat.read(root / "examples" / "district_roofs.ipynb", as_version=4)
    nbclient.NotebookClient(book, timeout=200, resources={"metadata": {"path": str(root / "examples")}}).execute()
    assert "very good" in str(book.cells[7].outputs[0].data)


def test_long_walls_reach_the_ground_of_a_hollow(tmp_path):
    # A valley of 8 m runs below the middle of a house of 100 m, whose corners stand at its edges.
    x = np.arange(100) * 2.0 + 1.0 - 100.0
    terrain = raster(tmp_path / "t.tif", np.tile(400.0 - 8.0 * np.maximum(0.0, 1.0 - np.abs(x) / 30.0), (100, 1)))
    district = geo.read_district(outlines([box(-50, 0, 100.0, 10.0)]), terrain=terrain, height="height")
    assert district.buildings["ground_m"].item() == pytest.approx(392.0, abs=0.3)
    assert district.buildings["height_m"].item() == pytest.approx(10.0)


def test_a_polygon_is_a_window_of_raster_cells(tmp_path):
    terrain = raster(tmp_path / "t.tif", slope())
    triangle = shapely.Polygon([(east, north), (east + 40, north), (east, north + 40)])
    sensors = geo.read_district(terrain=terrain, window=triangle, margin=0.0).raster_sensors(2.0)
    assert sensors.areas.sum() == pytest.approx(triangle.area, rel=0.06)
    assert shapely.contains_xy(triangle.buffer(0.01), *sensors.frame.to_map(sensors.points)[:, :2].T).all()
    # A window without buildings is ground alone, as tiles of a city have it.
    empty = {"window": (east + 50, north + 50, east + 90, north + 90), "height": "height"}
    district = geo.read_district(outlines([box(0, 0)]), terrain=terrain, **empty)
    assert len(district.buildings) == 0
    assert "no building lies in the window" in " ".join(district.notes)
    with pytest.raises(ins.DataError, match="no building lies in the window"):
        geo.read_district(outlines([box(0, 0)]), **empty)


def test_a_city_model_that_cannot_be_read_is_named(tmp_path):
    (tmp_path / "empty.city.json").write_bytes(b"")
    for name, text in (("nowhere.city.json", "No such file"), ("empty.city.json", "empty or broken")):
        with pytest.raises(ins.DataError, match=f"{name}: .*{text}"):
            geo.read_district(tmp_path / name)
