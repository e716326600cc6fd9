"""Heights from rasters, sensors on their cells, and results as rasters."""

from __future__ import annotations

import math
import os
from collections.abc import Iterable
from dataclasses import dataclass
from typing import Any, Optional, Union

import numpy as np
import rasterio
import rasterio.enums
import rasterio.errors
import rasterio.vrt
import rasterio.windows

from . import _core
from ._geo_files import complete_or_absent, origin_of
from ._geo_frame import Bounds, Frame, crs_of, name_of, same
from ._model import Array, Model, Path, Sensors
from ._radiation import Columns

#: No ground of the Earth lies outside of these [m]; what does is an undeclared "no data", -9999 or 3.4e38.
_lowest, _highest = -500.0, 9000.0

#: What rasters call their units of height, and their metres.
_unit_names = {"m": 1.0, "metre": 1.0, "meter": 1.0, "metres": 1.0, "meters": 1.0}
_unit_names |= dict.fromkeys(("ft", "foot", "feet"), 0.3048)
_unit_names |= dict.fromkeys(("us-ft", "ftus", "us survey foot", "us survey feet", "foot_us"), 1200.0 / 3937.0)


def metres_of(name: str, what: str) -> float:
    """Metres in a unit of height.

    Raises
    ------
    UsageError
    """
    try:
        return _unit_names[name.lower()]
    except KeyError:
        raise _core.UsageError(f"{what} {name!r}: there is no such unit; choose from m, ft, us-ft") from None


@dataclass(frozen=True)
class Heights:
    """Heights of ground or city on a grid; made by `read_district`."""

    values: Array  #: float32 [m], rows from north to south, columns from west to east; NaN for no data
    west: float  #: outer edge of the first column, in the frame [m]
    north: float  #: outer edge of the first row, in the frame [m]
    step: tuple[float, float]  #: width and height of a cell [m]

    @property
    def centres(self) -> tuple[Array, Array]:
        """x of the columns and y of the rows [m]."""
        rows, columns = self.values.shape
        return (
            self.west + (np.arange(columns) + 0.5) * self.step[0],
            self.north - (np.arange(rows) + 0.5) * self.step[1],
        )

    def at(self, x: Any, y: Any) -> Array:
        """Heights on the triangles of `model`.

        Parameters
        ----------
        x, y : array_like of float, shape (n,)
            In the frame [m].

        Returns
        -------
        numpy.ndarray of float, shape (n,)
            Corners without data have no weight; NaN where none of the triangle has data, and
            outside of the grid.
        """
        rows, columns = self.values.shape
        column = (np.asarray(x, dtype=np.float64) - self.west) / self.step[0] - 0.5
        row = (self.north - np.asarray(y, dtype=np.float64)) / self.step[1] - 0.5
        inside = (column >= -0.5) & (column <= columns - 0.5) & (row >= -0.5) & (row <= rows - 0.5)
        column = np.clip(np.where(inside, column, 0.0), 0.0, columns - 1.0)
        row = np.clip(np.where(inside, row, 0.0), 0.0, rows - 1.0)
        left, upper = np.floor(column).astype(np.int64), np.floor(row).astype(np.int64)
        total = np.zeros(column.shape)
        weights = np.zeros(column.shape)
        for down in (0, 1):
            for along in (0, 1):
                values = self.values[np.minimum(upper + down, rows - 1), np.minimum(left + along, columns - 1)]
                # Of the corners of the triangle: the other two of the four have none.
                near_x = column - left if along else 1.0 - (column - left)
                near_y = row - upper if down else 1.0 - (row - upper)
                weight = np.minimum(near_x, near_y) if down != along else np.maximum(near_x + near_y - 1.0, 0.0)
                weight = np.where(np.isfinite(values), weight, 0.0)
                total += np.where(weight > 0.0, values, 0.0) * weight
                weights += weight
        return np.where(inside & (weights > 1e-9), total / np.maximum(weights, 1e-9), np.nan)

    def slopes(self) -> tuple[Array, Array]:
        """Rise to the east and to the north [m/m], by central differences; one-sided at edges."""
        to_south, to_east = (_rise(self.values, axis) for axis in (0, 1))
        return to_east / self.step[0], -to_south / self.step[1]

    def model(self, frame: Frame, name: str) -> Optional[Model]:
        """Two triangles between the centres of each four neighbouring cells that all have data, parted
        from the south-west to the north-east; None where there are none."""
        valid = np.isfinite(self.values)
        whole = valid[:-1, :-1] & valid[1:, :-1] & valid[:-1, 1:] & valid[1:, 1:]
        if not whole.any():
            return None
        x, y = self.centres
        vertices = np.column_stack([np.tile(x, len(y)), np.repeat(y, len(x)), np.nan_to_num(self.values.ravel())])
        upper, left = np.nonzero(whole)
        north_west = upper * len(x) + left
        south_west, south_east, north_east = north_west + len(x), north_west + len(x) + 1, north_west + 1
        faces = np.concatenate(
            [
                np.column_stack([south_west, south_east, north_east]),
                np.column_stack([south_west, north_east, north_west]),
            ]
        )
        return Model(vertices, faces, objects=name, materials=name, orient="keep", north=frame.north, name=name)


def _rise(values: Array, axis: int) -> Array:
    """From one cell to the next along an axis, of whatever neighbours there are; 0 without any."""
    ahead = np.full(values.shape, np.nan, dtype=np.float64)
    behind = ahead.copy()
    to = [slice(None)] * 2
    by = [slice(None)] * 2
    to[axis], by[axis] = slice(None, -1), slice(1, None)
    difference = values[tuple(by)].astype(np.float64) - values[tuple(to)]
    ahead[tuple(to)] = difference
    behind[tuple(by)] = difference
    known = np.isfinite(ahead).astype(float) + np.isfinite(behind)
    return np.where(known > 0, (np.nan_to_num(ahead) + np.nan_to_num(behind)) / np.maximum(known, 1.0), 0.0)


@dataclass(frozen=True)
class HeightSource:
    """A raster file that was looked into."""

    path: str
    crs: Any  #: horizontal; None where the file names none
    bounds: Bounds  #: in its CRS


def look_into(path: Path) -> HeightSource:
    """CRS and extent of a raster.

    Raises
    ------
    DataError
        When it is none.
    """
    name = os.fspath(path)
    try:
        with rasterio.open(name) as raster:
            if raster.crs is None and raster.gcps[1] is not None:
                raise _core.DataError(f"{name}: is placed by control points alone; warp it first, with gdalwarp")
            crs = None if raster.crs is None else crs_of(raster.crs, name)
            left, bottom, right, top = raster.bounds
            return HeightSource(name, crs, (min(left, right), min(bottom, top), max(left, right), max(bottom, top)))
    except rasterio.errors.RasterioError as error:
        raise _core.DataError(f"{name}: cannot be read as a raster; {error}") from None


def read_heights(
    source: HeightSource,
    frame: Frame,
    bounds: Bounds,
    *,
    resolution: Optional[float],
    most_cells: int,
    may_coarsen: bool,
    height_unit: str,
    band: int,
    notes: list[str],
) -> Heights:
    """The part of a raster within bounds, in the frame.

    Parameters
    ----------
    bounds : in the frame's CRS
    resolution : edge of the cells that are wanted [m]; the raster's own by default
    most_cells, may_coarsen : beyond so many cells the grid is made coarser, or refused
    height_unit : of a raster that names none
    notes : gets what a person should know

    Raises
    ------
    DataError, UsageError
        When the raster cannot be used, and the fix.
    """
    name = source.path
    try:
        with rasterio.open(name) as raster:
            if not 1 <= band <= raster.count:
                raise _core.UsageError(f"{name}: there is no band {band}; it has {raster.count}")
            declared = str(raster.units[band - 1] or "").strip().lower()
            if declared and declared not in _unit_names:
                raise _core.DataError(f"{name}: heights in {declared!r} are not understood; convert them to metres")
            metres = metres_of(declared or height_unit, "height_unit")
            if min(raster.width, raster.height) < 2:
                raise _core.DataError(
                    f"{name}: has {raster.width} x {raster.height} cells; the ground is spanned between their centres, "
                    "so give a raster of at least 2 x 2"
                )
            grid = raster.transform
            is_level = grid.b == 0.0 and grid.d == 0.0 and grid.a > 0.0 and grid.e < 0.0
            source_crs = frame.crs if source.crs is None else source.crs
            if is_level and same(source_crs, frame.crs):
                values, window = _window(raster, name, frame, bounds, resolution, most_cells, may_coarsen, band, notes)
            else:
                options = {
                    "crs": frame.crs.to_wkt(),
                    "src_crs": source_crs.to_wkt(),
                    "resampling": rasterio.enums.Resampling.bilinear,
                    "src_nodata": raster.nodata,
                    "nodata": -9999.0,
                    "dtype": "float64",
                    "init_dest_nodata": True,
                }
                notes.append(f"{name}: heights brought from {name_of(source_crs)} to {name_of(frame.crs)}")
                with rasterio.vrt.WarpedVRT(raster, **options) as warped:
                    values, window = _window(
                        warped, name, frame, bounds, resolution, most_cells, may_coarsen, band, notes
                    )
            scale, offset = raster.scales[band - 1], raster.offsets[band - 1]
    except rasterio.errors.RasterioError as error:
        raise _core.DataError(f"{name}: cannot be read; {error}") from None
    values = (values * scale + offset) * metres
    known = np.isfinite(values)
    odd = known & ~((values > _lowest) & (values < _highest))
    if odd.any():
        notes.append(f"{name}: {odd.sum():,} heights like {values[odd][0]:g} m are taken as no data")
        values[odd] = np.nan
        known &= ~odd
    if not known.any():
        raise _core.DataError(f"{name}: holds no height within the window")
    if not known.all():
        notes.append(f"{name}: {100.0 * (1.0 - known.mean()):.1f} % of its cells within window and margin have no data")
    west, south, east, north = window
    corner = frame.to_local([[west, north], [east, south]])
    rows, columns = values.shape
    step = ((corner[1, 0] - corner[0, 0]) / columns, (corner[0, 1] - corner[1, 1]) / rows)
    wanted = (bounds[2] - bounds[0]) * (bounds[3] - bounds[1])
    covered = (east - west) * (north - south)
    if covered < 0.98 * wanted:
        notes.append(f"{name}: covers {100.0 * covered / wanted:.0f} % of window and margin; beyond it is nothing")
    return Heights(
        values.astype(np.float32), float(corner[0, 0]), float(corner[0, 1]), (float(step[0]), float(step[1]))
    )


def _window(
    raster: Any,
    name: str,
    frame: Frame,
    bounds: Bounds,
    resolution: Optional[float],
    most_cells: int,
    may_coarsen: bool,
    band: int,
    notes: list[str],
) -> tuple[Array, Bounds]:
    """Values with NaN for no data, and the bounds that they fill, of a level raster in the frame's CRS."""
    grid = raster.transform
    # Half a cell more on each side: heights hold from centre to centre.
    first_column = max(0, math.floor((bounds[0] - grid.c) / grid.a - 0.5))
    last_column = min(raster.width, math.ceil((bounds[2] - grid.c) / grid.a + 0.5))
    first_row = max(0, math.floor((bounds[3] - grid.f) / grid.e - 0.5))
    last_row = min(raster.height, math.ceil((bounds[1] - grid.f) / grid.e + 0.5))
    columns, rows = last_column - first_column, last_row - first_row
    if columns < 2 or rows < 2:
        held = ", ".join(f"{value:.0f}" for value in raster.bounds)
        asked = ", ".join(f"{value:.0f}" for value in bounds)
        reached = "does not reach the window" if min(columns, rows) < 1 else "has less than 2 x 2 cells for the window"
        raise _core.DataError(f"{name}: {reached}; it holds {held}, window and margin are {asked}")
    own = math.sqrt(grid.a * -grid.e) * frame.unit
    factor = 1.0 if resolution is None else max(1.0, resolution / own)
    fewer = math.sqrt(columns * rows / (factor * factor) / most_cells)
    if fewer > 1.0:
        if resolution is not None or not may_coarsen:
            raise _core.UsageError(
                f"{name}: {columns * rows / factor**2:,.0f} heights are more than {most_cells:,}; "
                f"give a smaller window, or resolution={math.ceil(10.0 * own * factor * fewer) / 10.0:g}"
            )
        factor *= fewer
        notes.append(
            f"{name}: heights of {own:g} m are averaged over {own * factor:.1f} m, to stay below {most_cells:,}; "
            "resolution= asks for another"
        )
    window = rasterio.windows.Window(first_column, first_row, columns, rows)
    shape = (max(2, math.ceil(rows / factor)), max(2, math.ceil(columns / factor)))
    resampling = rasterio.enums.Resampling
    method = resampling.average if factor > 1.0 else resampling.nearest
    masked = raster.read(band, window=window, out_shape=shape, resampling=method, masked=True)
    values = np.ma.filled(masked.astype(np.float64), np.nan)
    west, north = grid.c + first_column * grid.a, grid.f + first_row * grid.e
    return values, (west, north + rows * grid.e, west + columns * grid.a, north)


class GridSensors(Sensors):
    """Sensors at the centres of a map's cells; made by `District.raster_sensors`."""

    frame: Frame
    shape: tuple[int, int]  #: rows and columns of the raster
    transform: tuple[float, ...]  #: six numbers from columns and rows to the map, in the order of rasterio's Affine
    places: Array  #: by sensor: its row times the columns, plus its column

    def raster(self, values: Any) -> Array:
        """Values by sensor as rows and columns, from north to south; NaN where there is no sensor."""
        filled = np.full(self.shape[0] * self.shape[1], np.nan)
        filled[self.places] = values
        return filled.reshape(self.shape)


def without_data(result: Columns) -> Array:
    """Sensors that stand in something, as on a wall between two houses or below the ground: they
    see no sky. And those that have no value."""
    # Open ground would be seen through walls: the sky alone decides.
    least_sky = 0.001  # %; sums of views that were taken out again are not quite 0
    without = np.zeros(len(result.sensors), dtype=bool)
    if "sky_view" in result:
        without |= np.asarray(result["sky_view"]) < least_sky
    if "total" in result:
        without |= ~np.isfinite(result["total"])
    return without


#: Of results: the unit in maps, what it is called in names, and the factor to it.
_map_units = {"Wh/m2": ("kWh/m2", "kwh_m2", 1e-3), "W/m2": ("W/m2", "w_m2", 1.0), "%": ("%", "pct", 1.0)}


def map_unit(unit: str) -> tuple[str, str, float]:
    """The unit of a result in maps, its part of a column's name, and the factor to it."""
    return _map_units.get(unit, (unit, "".join(c if c.isalnum() else "_" for c in unit.lower()), 1.0))


def write_raster(
    result: Columns,
    path: Path,
    *,
    columns: Union[str, Iterable[str]] = "total",
    overwrite: bool = False,
) -> None:
    """Writes results of `District.raster_sensors` as a GeoTIFF.

    Parameters
    ----------
    result : Radiation or SunHours
    path : path
        Its folder is made when missing.
    columns : str or several
        A band each, with name and unit; energies in kWh/m2.
    overwrite : bool
        Whether a file of this name may be replaced.

    Raises
    ------
    UsageError
        When the sensors stand on no raster, no column is named, or there is no such column.
    OutputError
        When the file exists or cannot be written. It is complete or absent.

    Notes
    -----
    float32, -9999 for no data: cells without a height, under buildings, or within something.
    Tags say which weather, period and options made it.
    """
    sensors = result.sensors
    if not isinstance(sensors, GridSensors):
        raise _core.UsageError("these sensors stand on no raster; make them by District.raster_sensors")
    names = [columns] if isinstance(columns, str) else list(columns)
    if not names:
        raise _core.UsageError(f"columns: a raster needs a band; choose from {', '.join(result)}")
    for name in names:
        if name not in result:
            raise _core.UsageError(f"columns: there is no {name!r}; choose from {', '.join(result)}")
    without = without_data(result)
    rows, width = sensors.shape
    options: dict[str, Any] = {"compress": "deflate", "predictor": 3}
    if rows > 256 and width > 256:
        options |= {"tiled": True, "blockxsize": 256, "blockysize": 256}

    def values_of(name: str) -> Array:
        values = np.asarray(result[name], dtype=np.float64) * map_unit(result.units[name])[2]
        filled = sensors.raster(np.where(without, np.nan, values))
        return np.asarray(np.nan_to_num(filled, nan=-9999.0).astype(np.float32))

    options |= {"driver": "GTiff", "height": rows, "width": width, "count": len(names), "dtype": "float32"}
    options |= {"crs": sensors.frame.crs.to_wkt(), "transform": rasterio.Affine(*sensors.transform), "nodata": -9999.0}
    with complete_or_absent(path, overwrite) as partial:
        with rasterio.open(partial, "w", bigtiff="if_safer", **options) as raster:
            for band, name in enumerate(names, 1):
                unit = map_unit(result.units[name])[0]
                raster.write(values_of(name), band)
                raster.set_band_description(band, f"{name} [{unit}]")
                raster.set_band_unit(band, unit)
            origin = origin_of(result, sensors.notes)
            raster.update_tags(**{f"INSOLATE_{key.upper()}": text for key, text in origin.items()})
        # What fails while the file is closed, as on a full disk, raises nothing.
        try:
            with rasterio.open(partial) as raster:
                is_whole = all(np.array_equal(raster.read(i), values_of(name)) for i, name in enumerate(names, 1))
        except rasterio.errors.RasterioError:
            is_whole = False
        if not is_whole:
            raise OSError("it does not hold what was written; is the disk full?")
