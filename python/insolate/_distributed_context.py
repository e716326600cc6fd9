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


def surroundings(boxes: Array, lows: Array, radius: float, min_altitude: float) -> list[Surroundings]:
    """Of each tile.

    Parameters
    ----------
    boxes : shape (n, 2, 3)
        Lowest and highest corners of the tiles' geometry [m].
    lows : shape (n,)
        Heights of their lowest sensors [m]; infinite for tiles without sensors.
    """
    slope = math.tan(math.radians(min_altitude))
    found = []
    for place, (box, low) in enumerate(zip(boxes, lows, strict=True)):
        if not np.isfinite(low):
            found.append(Surroundings([], 0.0))
            continue
        between = np.maximum(np.maximum(boxes[:, 0, :2] - box[1, :2], box[0, :2] - boxes[:, 1, :2]), 0.0)
        distances = np.hypot(between[:, 0], between[:, 1])
        others = np.arange(len(boxes)) != place
        counts = others & ((distances <= radius) | (boxes[:, 1, 2] - low > slope * distances))
        # By how much less of a tile all is known that can rise above the line.
        levels = np.zeros(len(boxes), dtype=int)
        for distance in far:
            levels += (distances > radius) & (boxes[:, 0, 2] + slope * distance <= low + slope * distances)
        # Of the others, what reaches beyond the radius; the line holds back what rises above it.
        farthest = np.maximum(boxes[:, 1, :2] - box[1, :2], box[0, :2] - boxes[:, 0, :2]).max(axis=1)
        beyond = others & (farthest > radius)
        rises = (boxes[beyond, 1, 2] - low) / np.maximum(np.maximum(distances[beyond], radius), 1e-3)
        cut = math.degrees(math.atan(min(max(rises.max(initial=0.0), 0.0), slope)))
        found.append(Surroundings([(int(other), int(levels[other])) for other in np.flatnonzero(counts)], cut))
    return found


def light_below(angle: float, weather: Weather, texts: OptionTexts) -> float:
    """The most that everything below an angle can take from a sensor [percent of its open total].

    A level sensor and walls to eight sides are calculated in the open and within a ring that hides
    all sky below the angle.
    """
    around = np.arange(144) * (2.0 * math.pi / 144)
    plan = 1000.0 * np.stack([np.sin(around), np.cos(around)], axis=1)
    sides = np.arange(8) * (2.0 * math.pi / 8)
    normals = np.array([[0.0, 0.0, 1.0], *([math.sin(a), math.cos(a), 0.0] for a in sides)])
    totals = []
    for height in (0.0, 1000.0 * math.tan(math.radians(angle))):
        low = np.column_stack([plan, np.full(144, -1.0)])
        high = np.column_stack([plan, np.full(144, height - (0.5 if height == 0.0 else 0.0))])
        this = np.arange(144)
        then = np.roll(this, -1)
        faces = np.stack([this, then, then + 144, this + 144], axis=1).astype(np.uint32)
        totals.append(columns_of_scene([(np.concatenate([low, high]), faces)], normals, weather._core, texts))
    return float(100.0 * (1.0 - totals[1] / totals[0]).max())


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
        [],
        [("orient", ["keep"])],
        None,
    )


def columns_of_scene(
    parts: Sequence[tuple[Array, Array]], normals: Array, weather: _core.Weather, texts: OptionTexts
) -> Any:
    """Totals of sensors at the origin [Wh/m2]."""
    meshes = [mesh_of(*part, "surroundings") for part in parts]
    study = _core.prepare_study(meshes, None, weather, texts, None, None)
    points = np.zeros((len(normals), 3))
    return np.asarray(study.columns_of(points, normals, None)[0][3], dtype=np.float64)
