"""What can shade a tile: the geometry near it, the terrain beyond, and what is left out.

Within a radius of its box all geometry is taken as it is; farther away what rises above a line from
the tile's lowest sensor at the lowest altitude that counts. Where the tiles end stands the horizon of a
height raster: walls at the places where terrain rises highest, by direction and distance. What is left
out can hide light from below an angle alone, and the light from there bounds the error.
"""

from __future__ import annotations

import math
import os
from collections.abc import Sequence
from typing import Any, NamedTuple

import numpy as np

from . import _core
from ._model import Array
from ._options import OptionTexts
from ._weather import Weather

#: Within which all geometry stands [m]. Cutting at 50 m costs facades several percent of their yield.
usual_radius = 500.0
#: Of the line above which geometry counts at any distance [degrees]. The sun's lowest rays stand in the
#: middle of its hours below 2.5 degrees: by `bench/cluster.py tiles` lines of 1 degree leave some sensors
#: 1.5 % off, those of half a degree none.
usual_min_altitude = 0.5
#: Beyond these distances tiles are read without what is lower than the line there [m].
far = (1000.0, 2000.0, 4000.0)
#: Of the earth, enlarged by the refraction that bends lines of sight (a coefficient of 0.13) [m].
_earth_radius = 6_371_000.0 / (1.0 - 0.13)
#: Farther terrain stands below the lowest rays [m].
_reach = 120_000.0


class Grid(NamedTuple):
    """A height raster, with what `insolate.geo.Heights` has: see there."""

    values: Array
    west: float
    north: float
    step: tuple[float, float]


def grid_of(horizon: Any) -> Grid:
    """The raster itself, from a file where it is one (rasterio reads it)."""
    if not isinstance(horizon, (str, os.PathLike)):
        values = np.asarray(horizon.values, dtype=np.float32)
        if values.ndim != 2 or not min(horizon.step) > 0.0:
            raise _core.DataError("horizon: heights must have rows and columns, and cells edges above 0 m")
        west, north = float(horizon.west), float(horizon.north)
        return Grid(values, west, north, (float(horizon.step[0]), float(horizon.step[1])))
    name = os.fspath(horizon)
    try:
        import rasterio
    except ImportError:
        raise ImportError(f"{name}: rasters need rasterio: pip install 'insolate[geo]'") from None
    try:
        with rasterio.open(name) as file:
            transform = file.transform
            if transform.b or transform.d or not (transform.a > 0.0 > transform.e):
                raise _core.DataError(f"{name}: rows must run from north to south; warp the raster")
            if file.crs is not None and file.crs.is_geographic:
                raise _core.DataError(f"{name}: is in degrees; warp it to the tiles' metres")
            values = file.read(1, masked=True).astype(np.float32).filled(np.nan)
    except rasterio.errors.RasterioIOError as problem:
        raise _core.DataError(f"{name}: {problem}; give a height raster") from None
    return Grid(values, transform.c, transform.f, (transform.a, -transform.e))


def horizon_walls(
    grid: Grid, centre: Sequence[float], low: float, start: float, directions: int
) -> tuple[Array, Array]:
    """Walls that hide what the terrain hides beyond a distance.

    Each direction is walked outwards in steps of a cell, or of a hundredth of the distance. In bands
    whose ends are a factor of 1.4 apart the sample that stands highest over the centre gives the
    wall's top and its place, so that sensors off the centre see it where it is. The earth's curvature
    lowers far terrain.

    Parameters
    ----------
    centre : x and y of the tile [m]
    low : height from which it is seen, the tile's lowest sensor [m]
    start : distance at which the walls may begin [m]

    Returns
    -------
    vertices, shape (n, 3), and faces, shape (m, 4)
    """
    values, west, north, (width, height) = grid
    rows, columns = values.shape
    cell = min(width, height)
    across = [abs(x - centre[0]) for x in (west, west + columns * width)]
    along = [abs(y - centre[1]) for y in (north, north - rows * height)]
    reach = min(math.hypot(max(across), max(along)), _reach)
    angles = np.arange(directions) * (2.0 * math.pi / directions)
    vertices: list[Array] = []
    faces: list[Array] = []
    inner = start
    while inner < reach:
        outer = min(inner * math.sqrt(2.0), reach)
        steps = max(2, math.ceil((outer - inner) / max(cell, 0.01 * inner)) + 1)
        distances = np.linspace(inner, outer, steps)
        x = centre[0] + distances[:, None] * np.sin(angles)
        y = centre[1] + distances[:, None] * np.cos(angles)
        column = np.floor((x - west) / width).astype(np.int64)
        row = np.floor((north - y) / height).astype(np.int64)
        known = (column >= 0) & (column < columns) & (row >= 0) & (row < rows)
        rise = np.full(x.shape, -np.inf)
        rise[known] = values[row[known], column[known]] - low
        rise = np.where(np.isnan(rise), -np.inf, rise) - distances[:, None] ** 2 / (2.0 * _earth_radius)
        best = np.argmax(rise / distances[:, None], axis=0)
        places = distances[best]
        tops = np.maximum(rise[best, np.arange(directions)], 0.0)
        following = np.roll(np.arange(directions), -1)
        rises = (tops > 0.0) | (tops[following] > 0.0)
        if rises.any():
            first = sum(map(len, vertices))
            plan = np.stack([centre[0] + places * np.sin(angles), centre[1] + places * np.cos(angles)], axis=1)
            vertices.append(np.column_stack([plan, np.full(directions, low)]))
            vertices.append(np.column_stack([plan, low + tops]))
            this = np.flatnonzero(rises) + first
            then = following[rises] + first
            faces.append(np.stack([this, then, then + directions, this + directions], axis=1))
        inner = outer
    if not faces:
        return np.empty((0, 3)), np.empty((0, 4), dtype=np.uint32)
    return np.concatenate(vertices), np.concatenate(faces).astype(np.uint32)


class Surroundings(NamedTuple):
    """What a tile is calculated with."""

    others: list[tuple[int, int]]  #: tiles of which faces count: all, or by the place in `far`, from 1
    cut: float  #: the highest angle at which geometry stands that was left out [degrees]


class Neighbourhood:
    """Finds what may shade each tile, in the time of the tiles that may.

    Tiles lie in square buckets by their middles, about as many as a bucket has tiles. A bucket of which
    not even the box of all its tiles can reach a tile is not looked into.

    Parameters
    ----------
    boxes : shape (n, 2, 3)
        Lowest and highest corners of the tiles' geometry [m].
    radius, min_altitude : as for `insolate.city`
    """

    def __init__(self, boxes: Array, radius: float, min_altitude: float) -> None:
        self._boxes = boxes
        self._radius = radius
        self._slope = math.tan(math.radians(min_altitude))
        middles = 0.5 * (boxes[:, 0, :2] + boxes[:, 1, :2])
        side = math.ceil(len(boxes) ** 0.25)
        low, extent = middles.min(axis=0), np.maximum(np.ptp(middles, axis=0), 1e-3)
        places = np.minimum((middles - low) / extent * side, side - 1).astype(np.int64)
        buckets = places[:, 0] * side + places[:, 1]
        self._order = np.argsort(buckets, kind="stable")
        self._starts = np.flatnonzero(np.diff(buckets[self._order], prepend=-1))
        self._ends = np.append(self._starts[1:], len(boxes))
        self._bucket_boxes = np.stack(
            [
                np.minimum.reduceat(boxes[self._order, 0], self._starts),
                np.maximum.reduceat(boxes[self._order, 1], self._starts),
            ],
            axis=1,
        )

    def of(self, place: int, low: float) -> Surroundings:
        """Of a tile.

        Parameters
        ----------
        place : the tile's, in `boxes`
        low : height of its lowest sensor [m]; infinite without sensors
        """
        if not math.isfinite(low):
            return Surroundings([], 0.0)
        box = self._boxes[place]
        distances = _distances(self._bucket_boxes, box)
        tops = self._bucket_boxes[:, 1, 2] - low
        reach = (distances <= self._radius) | (tops > self._slope * distances)
        near = np.sort(np.concatenate([self._tiles(bucket) for bucket in np.flatnonzero(reach).tolist()]))
        others, steepest = self._among(near[near != place], box, low)
        # What the other buckets hold is left out; only those are looked into that may rise higher.
        left_out = np.flatnonzero(~reach)
        most = tops[left_out] / np.maximum(np.maximum(distances[left_out], self._radius), 1e-3)
        for at in np.argsort(-most).tolist():
            if most[at] <= steepest:
                break
            steepest = max(steepest, self._among(self._tiles(int(left_out[at])), box, low)[1])
        return Surroundings(others, math.degrees(math.atan(min(steepest, self._slope))))

    def _tiles(self, bucket: int) -> Array:
        return self._order[self._starts[bucket] : self._ends[bucket]]

    def _among(self, tiles: Array, box: Array, low: float) -> tuple[list[tuple[int, int]], float]:
        """Which of some tiles count, and how steeply the others rise at most."""
        boxes = self._boxes[tiles]
        distances = _distances(boxes, box)
        counts = (distances <= self._radius) | (boxes[:, 1, 2] - low > self._slope * distances)
        # By how much less of a tile all is known that can rise above the line.
        levels = np.zeros(len(tiles), dtype=int)
        for distance in far:
            levels += (distances > self._radius) & (
                boxes[:, 0, 2] + self._slope * distance <= low + self._slope * distances
            )
        # Of tiles that reach beyond the radius; the line holds back what rises above it.
        farthest = np.maximum(boxes[:, 1, :2] - box[1, :2], box[0, :2] - boxes[:, 0, :2]).max(axis=1)
        beyond = farthest > self._radius
        rises = (boxes[beyond, 1, 2] - low) / np.maximum(np.maximum(distances[beyond], self._radius), 1e-3)
        listed = [(int(tile), int(level)) for tile, level in zip(tiles[counts], levels[counts], strict=True)]
        return listed, float(rises.max(initial=0.0))


def _distances(boxes: Array, box: Array) -> Array:
    """Of boxes from a box, in plan [m]."""
    between = np.maximum(np.maximum(boxes[:, 0, :2] - box[1, :2], box[0, :2] - boxes[:, 1, :2]), 0.0)
    return np.asarray(np.hypot(between[:, 0], between[:, 1]))


#: Slopes of the sensors for which `light_below` is calculated, and between which it is taken [degrees].
_slopes = np.arange(0.0, 181.0, 15.0)
#: Options of light between surfaces: what hides the sky gives none back.
_of_reflection = ("reflectance", "bounces", "materials")


def slope_classes(tilts: Array) -> list[int]:
    """Places in the answer of `light_below` that stand for sensors of these slopes.

    Parameters
    ----------
    tilts : array of float
        In degrees; NaN for points without a surface.
    """
    known = tilts[np.isfinite(tilts)] / 15.0
    found = {*np.floor(known).astype(int).tolist(), *np.ceil(known).astype(int).tolist()}
    return sorted(found | ({len(_slopes)} if len(known) < len(tilts) else set()))


def light_below(angle: float, weather: Weather, texts: OptionTexts) -> Array:
    """The most that everything below an angle can take from sensors [percent of their open total].

    Sensors to 16 sides are calculated in the open and within a black ring that hides all sky below the
    angle.

    Returns
    -------
    numpy.ndarray of float
        The highest of all sides for slopes of 0, 15, ... 180 degrees, and for points without a surface.
    """
    around = np.arange(144) * (2.0 * math.pi / 144)
    plan = 1000.0 * np.stack([np.sin(around), np.cos(around)], axis=1)
    slopes, sides = (
        grid.ravel() for grid in np.meshgrid(np.radians(_slopes), np.arange(16) * (math.pi / 8), indexing="ij")
    )
    normals = np.stack([np.sin(slopes) * np.sin(sides), np.sin(slopes) * np.cos(sides), np.cos(slopes)], axis=1)
    normals = np.concatenate([normals, np.zeros((16, 3))])
    black: OptionTexts = [*(one for one in texts if one[0] not in _of_reflection), ("reflectance", ["0"])]
    totals = []
    for height in (0.0, 1000.0 * math.tan(math.radians(angle))):
        low = np.column_stack([plan, np.full(144, -1.0)])
        high = np.column_stack([plan, np.full(144, height - (0.5 if height == 0.0 else 0.0))])
        this = np.arange(144)
        then = np.roll(this, -1)
        faces = np.stack([this, then, then + 144, this + 144], axis=1).astype(np.uint32)
        totals.append(columns_of_scene([(np.concatenate([low, high]), faces)], normals, weather._core, black))
    open_totals = np.maximum(totals[0], 1e-9)
    return np.asarray((100.0 * (open_totals - totals[1]) / open_totals).reshape(-1, 16).max(axis=1))


def mesh_of(vertices: Array, faces: Array, name: str) -> _core.Mesh:
    """Quadrilaterals as the engine takes them."""
    count = len(faces)
    none = np.empty(0, dtype=np.int32)
    return _core.model_of(
        name,
        np.ascontiguousarray(vertices, dtype=np.float64),
        np.ascontiguousarray(faces.ravel(), dtype=np.uint32),
        np.full(count, faces.shape[1], dtype=np.uint32),
        none,
        none,
        none,
        [],
        [("orient", ["keep"])],
        None,
    )


def columns_of_scene(
    parts: Sequence[tuple[Array, Array]], normals: Array, weather: _core.Weather, texts: OptionTexts
) -> Any:
    """Totals of sensors at the origin [Wh/m2]."""
    meshes = [mesh_of(*part, "surroundings") for part in parts]
    study = _core.prepare_study(meshes, None, weather, texts, "", None, None, None)
    others = study.others(np.zeros((len(normals), 3)), np.ascontiguousarray(normals), None)
    return np.asarray(others.columns[0][3], dtype=np.float64)
