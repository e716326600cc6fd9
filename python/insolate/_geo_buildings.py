"""Buildings from footprints with heights, or from city models, as faces that know whose they are."""

from __future__ import annotations

import difflib
import json
import mmap
import os
import re
from collections.abc import Sequence
from dataclasses import dataclass, field
from typing import Any, Optional, Union

import geopandas as gpd
import numpy as np
import pandas as pd
import pyogrio
import pyogrio.errors
import shapely

from . import _core
from ._geo_frame import Bounds, Frame, crs_of, moved_bounds, name_of, same
from ._geo_raster import Heights
from ._model import Array, Model, Path, read_model

#: What a face is: kinds of `Shell`.
kinds = ("roof", "wall", "floor", "other")
roof, wall, floor, other = range(4)

#: A part of a footprint below this is a splinter of digitising [m2].
_least_part = 0.01
#: No building is higher [m]; a height beyond is an error of the table.
_highest_building = 1000.0

#: Types of city objects that cast shadows and are no buildings.
_no_buildings = {
    "TINRelief",
    "WaterBody",
    "LandUse",
    "PlantCover",
    "SolitaryVegetationObject",
    "Road",
    "Railway",
    "Waterway",
    "TransportSquare",
    "CityFurniture",
    "OtherConstruction",
}


@dataclass
class Shell:
    """Faces of buildings, in the frame [m]."""

    vertices: Array  #: shape (n, 3)
    faces: list[Array]
    building: Array  #: by face; -1 for what is no building
    kind: Array  #: by face: roof, wall, floor, other
    surface: Array  #: by face: which roof, or which wall

    def part(self, chosen: Array) -> tuple[list[Array], Array]:
        """Faces of a choice, and their numbers."""
        numbers = np.nonzero(chosen)[0]
        return [self.faces[number] for number in numbers], numbers

    def model(self, chosen: Array, names: Array, frame: Frame, name: str) -> Optional[Model]:
        """The chosen faces, named by building and kind; None where nothing is chosen.

        Parameters
        ----------
        chosen : array of bool, by face
        names : of the buildings
        """
        faces, numbers = self.part(chosen)
        if not faces:
            return None
        objects = np.append(names, "")[self.building[numbers]].tolist()
        materials = np.array(kinds)[self.kind[numbers]].tolist()
        return Model(
            self.vertices, faces, objects=objects, materials=materials, orient="keep", north=frame.north, name=name
        )


@dataclass
class Buildings:
    """Buildings and their faces."""

    table: gpd.GeoDataFrame  #: a row for each: id, status, ground_m, height_m, outline, in the frame's CRS
    shell: Shell
    roofs: Optional[Array] = None  #: outlines of the roofs by surface, in the frame's CRS; None where cells make them
    notes: list[str] = field(default_factory=list)
    warnings: list[str] = field(default_factory=list)

    @classmethod
    def none(cls, frame: Frame) -> Buildings:
        """Of a map without buildings."""
        nobody = np.empty(0, dtype=np.int64)
        columns: dict[str, Any] = {"building": [], "status": [], "ground_m": [], "height_m": []}
        return cls(
            gpd.GeoDataFrame(columns, geometry=[], crs=frame.crs), Shell(np.empty((0, 3)), [], nobody, nobody, nobody)
        )


def extrude(parts: Array, building: Array, base: Array, top: Array) -> Shell:
    """Footprints as bodies with level roofs and floors.

    Parameters
    ----------
    parts : array of shapely.Polygon
        Valid, with or without holes, in the frame [m].
    building : array of int, by part
    base, top : array of float, by part
        Heights of floor and roof [m].
    """
    parts = shapely.orient_polygons(parts)  # outer rings counterclockwise, so that walls look outwards
    rings, ring_part = shapely.get_rings(parts, return_index=True)
    places, ring = shapely.get_coordinates(rings, return_index=True)
    closes = np.append(ring[1:] != ring[:-1], True)[: len(ring)]
    places, ring = places[~closes], ring[~closes]  # the last place of a ring is its first again
    count = len(places)
    part = ring_part[ring]
    start = np.searchsorted(ring, np.arange(len(rings) + 1))
    following = np.arange(1, count + 1)
    following[start[1:] - 1] = start[:-1]
    lower = np.column_stack([places, base[part]])
    upper = np.column_stack([places, top[part]])
    walls = np.column_stack([np.arange(count), following, following + count, np.arange(count) + count])

    has_holes = shapely.get_num_interior_rings(parts) > 0
    outer = np.append(ring_part[1:] != ring_part[:-1], True)[: len(ring_part)]  # the only ring of a part without holes
    simple = np.nonzero(~has_holes[ring_part] & outer)[0]
    caps = [np.arange(start[one], start[one + 1]) for one in simple]
    cap_part = [*ring_part[simple]]
    extra = np.empty((0, 3))
    extra_part = np.empty(0, dtype=np.int64)
    if has_holes.any():
        holed = np.nonzero(has_holes)[0]
        triangles, of = shapely.get_parts(shapely.constrained_delaunay_triangles(parts[holed]), return_index=True)
        triangles = shapely.orient_polygons(triangles)
        corners = shapely.get_coordinates(triangles).reshape(-1, 4, 2)[:, :3]
        numbered = np.column_stack([np.repeat(holed[of], 3), corners.reshape(-1, 2)])
        extra, numbers = np.unique(numbered, axis=0, return_inverse=True)
        extra_part = extra[:, 0].astype(np.int64)
        caps += list(numbers.reshape(-1, 3) + 2 * count)
        cap_part += [*holed[of]]
    more = len(extra)
    vertices = np.concatenate(
        [
            lower,
            upper,
            np.column_stack([extra[:, 1:], top[extra_part]]) if more else np.empty((0, 3)),
            np.column_stack([extra[:, 1:], base[extra_part]]) if more else np.empty((0, 3)),
        ]
    )
    roofs = [cap + count if cap[0] < 2 * count else cap for cap in caps]
    floors = [cap[::-1] if cap[0] < 2 * count else cap[::-1] + more for cap in caps]
    of_caps = np.array(cap_part, dtype=np.int64)
    face_part = np.concatenate([of_caps, part, of_caps])
    kind = np.repeat([roof, wall, floor], [len(caps), count, len(caps)])
    surface = np.concatenate([of_caps, len(parts) + np.arange(count), of_caps])
    return Shell(vertices, [*roofs, *walls, *floors], building[face_part], kind, surface)


def _column(frame: pd.DataFrame, name: str, keyword: str, source: str) -> Any:
    if name not in frame:
        close = difflib.get_close_matches(name, [str(column) for column in frame.columns], 1)
        meant = f"did you mean {close[0]!r}?" if close else "it has " + (", ".join(map(str, frame.columns)) or "none")
        raise _core.UsageError(f"{source}: there is no attribute {name!r} for {keyword}; {meant}")
    return frame[name]


def _numbers(column: Any, keyword: str, source: str, notes: list[str]) -> Array:
    """An attribute as numbers; texts like "12.5 m" too."""
    if pd.api.types.is_numeric_dtype(column):
        return np.asarray(column.to_numpy(dtype=np.float64, na_value=np.nan))
    texts = column.astype("string").str.strip()
    numbers = pd.to_numeric(texts.str.replace(r"\s*m$", "", regex=True), errors="coerce")
    odd = texts.notna() & (texts != "") & numbers.isna()
    if odd.any():
        notes.append(
            f"{source}: {int(odd.sum()):,} values for {keyword} are no numbers, {texts[odd].iloc[0]!r} for one"
        )
    return np.asarray(numbers.to_numpy(dtype=np.float64, na_value=np.nan))


def _ids(column: Any, numbers: Any, attribute: str, source: str, notes: list[str]) -> Array:
    """An attribute as names of buildings; features without one are called by their numbers.

    Whole numbers with gaps come as floats: 12.0 is 12.
    """
    values = column.to_numpy(dtype=object)
    texts = [str(int(one)) if isinstance(one, float) and one.is_integer() else str(one) for one in values]
    found = np.array(texts, dtype=object)
    without = pd.isna(values) | np.array([not text.strip() for text in texts], dtype=bool)
    if without.any():
        found[without] = [f"feature {number}" for number in np.asarray(numbers)[without]]
        notes.append(
            f"{source}: {int(without.sum()):,} feature(s) without {attribute!r}; each is a building of its own, called "
            "by its number"
        )
    return found


#: Columns of districts; attributes that are kept need other names.
_own_columns = ("building", "status", "ground_m", "height_m", "geometry")


def _check_kept(names: Sequence[str]) -> None:
    for name in names:
        if name in _own_columns:
            raise _core.UsageError(
                f"keep {name!r} is what a column of the results is called; rename the attribute, or leave it out"
            )


def _listed(names: Union[str, Sequence[str], None]) -> list[str]:
    return [] if names is None else [names] if isinstance(names, str) else list(names)


@dataclass(frozen=True)
class FootprintOptions:
    """How outlines become buildings; see `read_district`."""

    layer: Optional[str]
    id: Optional[str]
    height: Union[str, Sequence[str], None]
    top: Optional[str]
    storeys: Optional[str]
    storey_height: float
    base: Optional[str]
    missing_height: Optional[float]
    metres: float  #: in the unit of the attributes
    keep: tuple[str, ...]


@dataclass(frozen=True)
class FootprintSource:
    """A layer of outlines that was looked into."""

    name: str
    crs: Any  #: None where it names none
    bounds: Bounds
    data: Any  #: the data frame that was given, or None


def look_into_footprints(source: Any, layer: Optional[str]) -> FootprintSource:
    """CRS and extent of a layer.

    Raises
    ------
    DataError, UsageError
        When it cannot be read, has no outlines, or is not the only one and none was named.
    """
    if isinstance(source, gpd.GeoDataFrame):
        if not len(source):
            raise _core.DataError("the data frame has no outlines")
        shapes = np.asarray(source.geometry.array, dtype=object)
        if (shapely.is_missing(shapes) | shapely.is_empty(shapes)).all():
            raise _core.DataError("no feature of the data frame has an outline; all geometries are empty")
        west, south, east, north = source.total_bounds
        crs = None if source.crs is None else crs_of(source.crs, "the data frame")
        return FootprintSource("data frame", crs, (west, south, east, north), source)
    name = os.fspath(source)
    try:
        layers = pyogrio.list_layers(name)
        names = [str(one) for one in layers[:, 0]]
        if layer is None:
            areas = [str(one) for one, kind in layers if kind is not None and ("Polygon" in kind or kind == "Unknown")]
            if len(areas) != 1 and len(names) > 1:
                raise _core.UsageError(f"{name}: has several layers; give layer=, one of {', '.join(names)}")
            layer = areas[0] if areas else names[0]
        elif layer not in names:
            raise _core.UsageError(f"{name}: there is no layer {layer!r}; it has {', '.join(names)}")
        info = pyogrio.read_info(name, layer=layer, force_total_bounds=True, force_feature_count=True)
    except (pyogrio.errors.DataSourceError, pyogrio.errors.DataLayerError) as error:
        raise _core.DataError(f"{name}: cannot be read as a map; {error}") from None
    if not info["features"]:
        raise _core.DataError(f"{name}: layer {layer!r} has no outlines")
    # Of nothing but empty geometries some formats have no bounds, some have them from inf to -inf, and some all 0.
    held = info["total_bounds"]
    if held is None or held[0] > held[2] or not any(held):
        raise _core.DataError(f"{name}: no feature of layer {layer!r} has an outline; all geometries are empty")
    crs = None if info["crs"] is None else crs_of(info["crs"], name)
    return FootprintSource(name, crs, tuple(float(value) for value in held), None)  # type: ignore[arg-type]


def _polygons(shapes: Array) -> tuple[Array, Array, Array]:
    """Polygons of whatever areas there are, the row that each comes from, and rows that were repaired."""
    shapes = shapely.force_2d(shapes)
    places, row = shapely.get_coordinates(shapes, return_index=True)
    is_area = np.isin(shapely.get_type_id(shapes), (3, 6, 7))
    is_area[row[~np.isfinite(places).all(axis=1)]] = False
    wrong = is_area & ~shapely.is_valid(shapes)
    shapes[~is_area] = None
    if wrong.any():
        shapes[wrong] = shapely.make_valid(shapes[wrong], method="structure", keep_collapsed=False)
    parts, row = shapely.get_parts(shapes, return_index=True)
    while (nested := np.isin(shapely.get_type_id(parts), (6, 7))).any():
        deeper, of = shapely.get_parts(parts[nested], return_index=True)
        row = np.concatenate([row[~nested], row[nested][of]])
        parts = np.concatenate([parts[~nested], deeper])
    order = np.argsort(row, kind="stable")
    parts, row = parts[order], row[order]
    whole = (shapely.get_type_id(parts) == 3) & ~shapely.is_empty(parts)
    return parts[whole], row[whole], wrong


def _without_repeats(parts: Array) -> Array:
    """Polygons without places within a millimetre of the one before, and without holes of which no triangle
    is left then; a polygon whose outer ring would be lost stays as it is.

    Parameters
    ----------
    parts : array of shapely.Polygon, none of them empty
    """
    rings, part = shapely.get_rings(parts, return_index=True)
    places, ring = shapely.get_coordinates(rings, return_index=True)
    # As lines: a ring of too few places would be an error for the whole array.
    lines = shapely.remove_repeated_points(shapely.linestrings(places, indices=ring), 1e-3)
    is_ring = shapely.get_num_points(lines) >= 4
    is_outer = np.append(True, part[1:] != part[:-1])[: len(part)]
    is_whole = is_ring[is_outer]
    used = is_ring & is_whole[part]
    made: Array = parts.copy()
    places, ring = shapely.get_coordinates(lines[used], return_index=True)
    made[is_whole] = shapely.polygons(
        shapely.linearrings(places, indices=ring), indices=np.unique(part[used], return_inverse=True)[1]
    )
    return made


def read_footprints(
    source: FootprintSource,
    path: Any,
    frame: Frame,
    bounds: Bounds,
    ground: Optional[Heights],
    options: FootprintOptions,
) -> Buildings:
    """Buildings whose outlines reach into bounds.

    Parameters
    ----------
    bounds : in the frame's CRS
    ground : heights under the buildings; without it they stand at 0

    Raises
    ------
    DataError, UsageError
    """
    name = source.name
    notes: list[str] = []
    warnings: list[str] = []
    source_crs = frame.crs if source.crs is None else source.crs
    if source.data is not None:
        data = source.data.copy()
    else:
        data = pyogrio.read_dataframe(
            path, layer=options.layer, bbox=moved_bounds(bounds, frame.crs, source_crs), fid_as_index=True
        )
    data = gpd.GeoDataFrame(data) if not isinstance(data, gpd.GeoDataFrame) else data
    if not same(source_crs, frame.crs):
        notes.append(f"{name}: outlines brought from {name_of(source_crs)} to {name_of(frame.crs)}")
        data = data.set_crs(source_crs, allow_override=True).to_crs(frame.crs)
    if source.data is not None:
        data = data[shapely.intersects(np.asarray(data.geometry.array), shapely.box(*bounds))]
    rows = len(data)
    if options.id is None:
        ids = data.index.astype(str).to_numpy(dtype=object)
    else:
        numbers = data.index if data.index.is_unique else np.arange(rows)
        ids = _ids(_column(data, options.id, "id", name), numbers, options.id, name, notes)

    height = np.full(rows, np.nan)
    for attribute in _listed(options.height):
        given = _numbers(_column(data, attribute, "height", name), "height", name, notes) * options.metres
        height = np.where(np.isfinite(height) & (height > 0.0), height, given)
    if options.storeys is not None:
        storeys = _numbers(_column(data, options.storeys, "storeys", name), "storeys", name, notes)
        height = np.where(np.isfinite(height) & (height > 0.0), height, storeys * options.storey_height)
    top = np.full(rows, np.nan)
    if options.top is not None:
        top = _numbers(_column(data, options.top, "top", name), "top", name, notes) * options.metres
    base = np.full(rows, np.nan)
    if options.base is not None:
        base = _numbers(_column(data, options.base, "base", name), "base", name, notes) * options.metres
    _check_kept(options.keep)
    kept = {one: _column(data, one, "keep", name).to_numpy() for one in options.keep}

    shapes = np.asarray(data.geometry.array, dtype=object)
    parts, row, wrong = _polygons(shapes)
    local = shapely.transform(parts, frame.to_local)
    smooth = _without_repeats(local)
    smooth = np.where(shapely.is_valid(smooth) & ~shapely.is_empty(smooth), smooth, local)
    large = shapely.area(smooth) >= _least_part
    parts, row, smooth = parts[large], row[large], smooth[large]
    has_outline = np.zeros(rows, dtype=bool)
    has_outline[row] = True
    if wrong.any():
        notes.append(f"{name}: {int(wrong.sum()):,} outline(s) that cross or touch themselves repaired")
    lost = int((~has_outline).sum())
    if lost:
        notes.append(f"{name}: {lost:,} feature(s) without an area left out")

    # The ground of a building is the lowest around its outline: walls then reach it everywhere, and so
    # long ones are looked along, by the cells of the raster.
    if ground is not None:
        places, of = shapely.get_coordinates(shapely.segmentize(smooth, min(ground.step)), return_index=True)
        around = ground.at(places[:, 0], places[:, 1])
        lowest = np.full(rows, np.inf)
        np.fmin.at(lowest, row[of], around)
        base = np.where(np.isfinite(base), base, np.where(np.isfinite(lowest), lowest, np.nan))
    elif options.base is None:
        base[:] = 0.0
    usable = np.isfinite(height) & (height > 0.0) & (height <= _highest_building)
    has_top = np.isfinite(top) & (top > base) & (top - base <= _highest_building)
    height = np.where(usable, height, np.nan)
    height = np.where(has_top, top - base, height)
    status = np.where(np.isfinite(height), "ok", "height missing").astype(object)
    if options.missing_height is not None:
        assumed = ~np.isfinite(height)
        height[assumed] = options.missing_height
        status[assumed] = "height assumed"
    status[~np.isfinite(base)] = "ground missing"
    standing = np.isfinite(height) & np.isfinite(base)
    height[~standing] = np.nan
    for what, fix in (
        ("height missing", "they cast no shadow and have no result; missing_height= assumes one"),
        ("height assumed", f"{options.missing_height} m"),
        ("ground missing", "they cast no shadow and have no result"),
    ):
        number = int((has_outline & (status == what)).sum())
        if number:
            warnings.append(f"{name}: {number:,} of {int(has_outline.sum()):,} buildings: {what}; {fix}")

    # Features with one id are parts of one building, as cadastres have them.
    ids = ids[has_outline]
    names, first, building_of = np.unique(ids.astype(str), return_index=True, return_inverse=True)
    order = np.argsort(first)
    rank = np.empty(len(order), dtype=np.int64)
    rank[order] = np.arange(len(order))
    building_of = rank[building_of]
    if len(names) < len(ids):
        notes.append(f"{name}: {len(ids) - len(names):,} feature(s) with the id of another are parts of it")
    row_building = np.full(rows, -1, dtype=np.int64)
    row_building[has_outline] = building_of
    leading = np.nonzero(has_outline)[0][first[order]]
    ground_m, height_m, status_of = _of_buildings(row_building, has_outline, base, height, status, len(names))
    outlines = _gathered(parts, row_building[row], len(names))
    table = gpd.GeoDataFrame(
        {
            "building": names[order],
            "status": status_of,
            "ground_m": ground_m,
            "height_m": height_m,
            **{column: values[leading] for column, values in kept.items()},
        },
        geometry=outlines,
        crs=frame.crs,
    )
    stands = standing[row]
    shell = extrude(smooth[stands], row_building[row[stands]], base[row[stands]], (base + height)[row[stands]])
    return Buildings(table, shell, parts[stands], notes, warnings)


def _of_buildings(
    building: Array, counts: Array, base: Array, height: Array, status: Array, number: int
) -> tuple[Array, Array, Array]:
    """Ground, height and status of buildings, from those of their features: lowest ground, highest
    roof above it, and the first status that is not "ok"."""
    rows = np.nonzero(counts)[0]
    ground = np.full(number, np.nan)
    tops = np.full(number, np.nan)
    np.fmin.at(ground, building[rows], base[rows])
    np.fmax.at(tops, building[rows], (base + height)[rows])
    found = np.full(number, "ok", dtype=object)
    odd = rows[status[rows] != "ok"][::-1]
    found[building[odd]] = status[odd]
    return ground, tops - ground, found


def _gathered(parts: Array, building: Array, number: int) -> Array:
    """The parts of each building as one multipolygon."""
    order = np.argsort(building, kind="stable")
    gathered = np.full(number, None, dtype=object)
    shapely.multipolygons(parts[order], indices=building[order], out=gathered)
    return gathered


def is_city(path: Any) -> bool:
    """Whether a file is CityJSON."""
    if not isinstance(path, (str, os.PathLike)):
        return False
    name = os.fspath(path).lower()
    if name.endswith((".city.json", ".city.jsonl", ".cityjson", ".cityjsonl")):
        return True
    if not name.endswith((".json", ".jsonl")) or not os.path.isfile(path):
        return False
    with open(path, "rb") as file:
        return re.search(rb'"type"\s*:\s*"CityJSON"', file.read(1 << 20)) is not None


def city_crs(path: Path) -> Any:
    """The CRS that a city model names; None where it names none."""
    try:
        with open(path, "rb") as file, mmap.mmap(file.fileno(), 0, access=mmap.ACCESS_READ) as text:
            found = re.search(rb'"referenceSystem"\s*:\s*("(?:[^"\\]|\\.)*")', text)
            if not found:
                return None
            value = json.loads(found[1])
    except OSError as problem:
        raise _core.DataError(f"{os.fspath(path)}: cannot be read; {problem.strerror}") from None
    except ValueError:  # an empty file is not mapped, and not every text is JSON
        raise _core.DataError(f"{os.fspath(path)}: is no city model; it is empty or broken") from None
    code = re.search(r"EPSG\b.*?(\d+)$", value)
    return crs_of(f"EPSG:{code[1]}" if code else value, os.fspath(path))


@dataclass(frozen=True)
class CitySource:
    """A city model that was read."""

    name: str
    crs: Any
    bounds: Bounds
    model: Model


def look_into_city(path: Path, lod: Union[str, float, None]) -> CitySource:
    """A city model with its CRS and extent."""
    crs = city_crs(path)
    model = read_model(path, lod=lod)
    low, high = model.vertices.min(axis=0), model.vertices.max(axis=0)
    return CitySource(os.fspath(path), crs, (low[0], low[1], high[0], high[1]), model)


def read_city(source: CitySource, frame: Frame, bounds: Bounds) -> Buildings:
    """Buildings of a city model that reach into bounds, and all else of it as what casts shadows."""
    model = source.model
    notes = list(model.notes)
    places = np.array(model.vertices)
    source_crs = frame.crs if source.crs is None else source.crs
    if not same(source_crs, frame.crs):
        import pyproj

        notes.append(f"{source.name}: brought from {name_of(source_crs)} to {name_of(frame.crs)}")
        change = pyproj.Transformer.from_crs(source_crs, frame.crs, always_xy=True)
        places[:, 0], places[:, 1] = change.transform(places[:, 0], places[:, 1])
    local = frame.to_local(places)
    faces = model.faces
    counts = np.array([len(face) for face in faces])
    start = np.concatenate([[0], np.cumsum(counts)[:-1]])
    corners = local[np.concatenate(faces)]
    objects = np.array(model.objects, dtype=object)
    groups = np.array(model.groups, dtype=object)
    is_building = ~np.isin(groups.astype(str), sorted(_no_buildings)) & (objects != "")
    names, of = np.unique(objects[is_building].astype(str), return_inverse=True)
    if not len(names):
        raise _core.DataError(f"{source.name}: holds no building")
    building = np.full(len(faces), -1, dtype=np.int64)
    building[is_building] = of
    # Newell's sum by face gives its normal, whatever its corners.
    following = np.arange(1, len(corners) + 1)
    following[start + counts - 1] = start
    # It is taken about the first one, since places far from the origin would cost the sum its digits.
    about = corners - np.repeat(corners[start], counts, axis=0)
    normals = np.add.reduceat(np.cross(about, about[following]), start, axis=0)
    length = np.linalg.norm(normals, axis=1)
    tilt = np.degrees(np.arccos(np.clip(normals[:, 2] / np.where(length > 0.0, length, 1.0), -1.0, 1.0)))
    kind = np.select([tilt < 75.0, tilt <= 105.0], [roof, wall], floor)
    for words, what in (
        (("RoofSurface",), roof),
        (("WallSurface", "Window", "Door"), wall),
        (("GroundSurface", "OuterFloorSurface", "OuterCeilingSurface"), floor),
    ):
        kind[np.isin(np.array(model.materials, dtype=str), words)] = what
    kind[~is_building] = other

    lowest = np.full((len(names), 3), np.inf)
    highest = np.full((len(names), 3), -np.inf)
    owner = np.repeat(building, counts)
    owned = owner >= 0
    np.minimum.at(lowest, owner[owned], corners[owned])
    np.maximum.at(highest, owner[owned], corners[owned])
    box = frame.to_local([[bounds[0], bounds[1]], [bounds[2], bounds[3]]])
    near = (lowest[:, :2] <= box[1]).all(axis=1) & (highest[:, :2] >= box[0]).all(axis=1)
    face_low, face_high = np.minimum.reduceat(corners, start, axis=0), np.maximum.reduceat(corners, start, axis=0)
    reaches = (face_low[:, :2] <= box[1]).all(axis=1) & (face_high[:, :2] >= box[0]).all(axis=1)
    chosen = np.where(is_building, near[building], reaches)

    number = np.full(len(names), -1, dtype=np.int64)
    number[near] = np.arange(near.sum())
    wanted = np.nonzero(chosen)[0]
    footprints = _plans(corners, start, counts, wanted, number[building[wanted]], kind[wanted], frame, int(near.sum()))
    table = gpd.GeoDataFrame(
        {
            "building": names[near],
            "status": np.full(int(near.sum()), "ok", dtype=object),
            "ground_m": lowest[near, 2],
            "height_m": (highest - lowest)[near, 2],
        },
        geometry=footprints,
        crs=frame.crs,
    )
    shell = Shell(
        local,
        [faces[one] for one in wanted],
        np.where(is_building[wanted], number[building[wanted]], -1),
        kind[wanted],
        np.arange(len(wanted)),
    )
    return Buildings(table, shell, None, notes, [])


def _plans(
    corners: Array, start: Array, counts: Array, faces: Array, building: Array, kind: Array, frame: Frame, number: int
) -> Array:
    """Outlines of buildings in plan, from their roofs."""
    used = (kind == roof) & (building >= 0)
    chosen = faces[used]
    rings = shapely.linearrings(
        frame.to_map(corners[np.concatenate([np.arange(start[f], start[f] + counts[f]) for f in chosen])][:, :2])
        if len(chosen)
        else np.empty((0, 2)),
        indices=np.repeat(np.arange(len(chosen)), counts[chosen]),
    )
    shapes = shapely.make_valid(shapely.polygons(rings)) if len(chosen) else np.empty(0, dtype=object)
    outlines = np.full(number, None, dtype=object)
    order = np.argsort(building[used], kind="stable")
    owners, begin = np.unique(building[used][order], return_index=True)
    for owner, pieces in zip(owners, np.split(shapes[order], begin[1:]), strict=True):
        outlines[owner] = shapely.union_all(pieces)
    return areas_of(outlines)


def areas_of(shapes: Array) -> Array:
    """Their polygons alone, as multipolygons; lines and points that a repair has left are dropped."""
    parts, row = shapely.get_parts(shapes, return_index=True)
    areas = shapely.get_type_id(parts) == 3
    return _gathered(parts[areas], row[areas], len(shapes))
