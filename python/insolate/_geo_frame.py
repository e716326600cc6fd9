"""Where the metres of a model lie on the map, and where true north is."""

from __future__ import annotations

from collections.abc import Sequence
from dataclasses import dataclass
from typing import Any, Optional

import numpy as np
import pyproj
from pyproj.aoi import AreaOfInterest
from pyproj.database import query_utm_crs_info

from . import _core
from ._model import Array

Bounds = tuple[float, float, float, float]  #: west, south, east, north in the units of a CRS

#: A map may stretch lengths by no more than this; a projection made for the region stays below a
#: thousandth, and the Mercator of web maps reaches 1.3 at 40 degrees of latitude.
_most_stretch = 0.01


@dataclass(frozen=True)
class Frame:
    """The metres of a district's models: x and y from an origin on the map, z as in the files."""

    crs: pyproj.CRS  #: horizontal and projected
    origin: tuple[float, float]  #: easting and northing of x = y = 0 [units of the CRS]
    unit: float  #: metres in a unit of the CRS
    latitude: float  #: of the window's middle [degrees]
    longitude: float  #: of the window's middle [degrees, east positive]
    north: float  #: from grid north clockwise to true north there [degrees]

    def to_map(self, points: Any) -> Array:
        """Eastings and northings of x and y; further columns stay as they are.

        Parameters
        ----------
        points : array_like of float, shape (n, 2) or (n, 3)
        """
        places = np.array(points, dtype=np.float64)
        places[:, :2] = places[:, :2] / self.unit + self.origin
        return places

    def to_local(self, points: Any) -> Array:
        """The reverse of `to_map`."""
        places = np.array(points, dtype=np.float64)
        places[:, :2] = (places[:, :2] - self.origin) * self.unit
        return places

    @property
    def note(self) -> str:
        """CRS and true north, for people."""
        side = "east" if self.north > 0.0 else "west"
        side_of = "NS"[self.latitude < 0.0], "EW"[self.longitude < 0.0]
        place = f"{abs(self.latitude):.4f} {side_of[0]}, {abs(self.longitude):.4f} {side_of[1]}"
        return (
            f"computed in {name_of(self.crs)} at {place}; there true north lies "
            f"{abs(self.north):.2f} degrees {side} of grid north"
        )


def name_of(crs: pyproj.CRS) -> str:
    """Its short code where it has one, else its name."""
    code = crs.to_authority(min_confidence=100)
    return f"{code[0]}:{code[1]} ({crs.name})" if code else str(crs.name)


def crs_of(value: Any, what: str) -> pyproj.CRS:
    """The horizontal part of whatever names a CRS.

    Raises
    ------
    UsageError, DataError
        When it names none: the argument "crs", or a file.
    """
    try:
        crs = pyproj.CRS.from_user_input(value)
    except pyproj.exceptions.CRSError as error:
        kind = _core.UsageError if what == "crs" else _core.DataError
        raise kind(f"{what}: {value!r} is no coordinate reference system ({error})") from None
    if crs.is_compound:
        crs = crs.sub_crs_list[0]
    return crs.to_2d() if len(crs.axis_info) > 2 else crs


def same(a: pyproj.CRS, b: pyproj.CRS) -> bool:
    return bool(a.equals(b, ignore_axis_order=True))


def moved_bounds(bounds: Bounds, source: pyproj.CRS, target: pyproj.CRS) -> Bounds:
    """A box that holds the bounds in another CRS."""
    if same(source, target):
        return bounds
    change = pyproj.Transformer.from_crs(source, target, always_xy=True)
    west, south, east, north = change.transform_bounds(*bounds)
    return (west, south, east, north)


#: Degrees from Greenwich, which a CRS's own geographic system need not have: France's older one
#: counts grads from Paris.
_degrees = pyproj.CRS.from_epsg(4326)


def _degrees_of(crs: pyproj.CRS, x: float, y: float) -> tuple[float, float]:
    try:
        longitude, latitude = pyproj.Transformer.from_crs(crs, _degrees, always_xy=True).transform(x, y)
    except pyproj.exceptions.ProjError:
        raise _core.DataError(f"{name_of(crs)} is not tied to the Earth; give crs=, one that is") from None
    return float(longitude), float(latitude)


def _around(crs: pyproj.CRS, longitude: float, latitude: float) -> tuple[Array, Array]:
    """What a step of some hundred metres to true north, and one to the east, is on the map, in
    units of the CRS for a metre on the ground."""
    change = pyproj.Transformer.from_crs(_degrees, crs, always_xy=True)
    ellipsoid = crs.get_geod() or pyproj.Geod(ellps="WGS84")
    steps = []
    for east, north in ((0.0, 0.0005), (0.0005, 0.0)):
        ends = np.array(
            change.transform([longitude - east, longitude + east], [latitude - north, latitude + north]), dtype=float
        )
        length = ellipsoid.inv(longitude - east, latitude - north, longitude + east, latitude + north)[2]
        steps.append((ends[:, 1] - ends[:, 0]) / length)
    return steps[0], steps[1]


def _unsuited(crs: pyproj.CRS, longitude: float, latitude: float) -> Optional[str]:
    """Why no model of a town can stand in a CRS; None where it can."""
    if not crs.is_projected:
        return "is not projected"
    for step in _around(crs, longitude, latitude):
        stretch = float(np.hypot(*step)) * _metres(crs)
        if not abs(stretch - 1.0) <= _most_stretch:
            return f"stretches lengths there by {stretch:.3f}"
    return None


def _metres(crs: pyproj.CRS) -> float:
    return float(crs.axis_info[0].unit_conversion_factor)


def checked_place(crs: pyproj.CRS, bounds: Bounds, name: str) -> tuple[float, float]:
    """Longitude and latitude of the middle of a file's bounds.

    Raises
    ------
    DataError
        When places like these cannot be in the CRS that the file names.
    """
    longitude, latitude = _degrees_of(crs, 0.5 * (bounds[0] + bounds[2]), 0.5 * (bounds[1] + bounds[3]))
    if not (np.isfinite(longitude) and abs(latitude) <= 90.0 and abs(longitude) <= 360.0):
        raise _core.DataError(
            f"{name}: its places lie outside of its CRS, which is {name_of(crs)}; give it the one that it was made in"
        )
    if crs.is_projected and max(map(abs, bounds)) <= 360.0 and max(bounds[2] - bounds[0], bounds[3] - bounds[1]) < 1.0:
        raise _core.DataError(f"{name}: its places look like degrees, but its CRS is {name_of(crs)}; give it its own")
    return longitude, latitude


def working_crs(given: Optional[pyproj.CRS], crs: pyproj.CRS, bounds: Bounds, name: str) -> tuple[pyproj.CRS, str]:
    """The CRS to compute in, and why it is not the file's, or "".

    Parameters
    ----------
    given : CRS that was asked for
    crs, bounds, name : of the file

    Raises
    ------
    UsageError, DataError
        When the CRS that was asked for does not suit, or none does.
    """
    if not np.isfinite(bounds).all():
        raise _core.DataError(f"{name}: a place has a coordinate that is no number; repair or remove its outline")
    longitude, latitude = checked_place(crs, bounds, name)
    wanted = crs if given is None else given
    if any(axis.direction.lower() in ("west", "south") for axis in wanted.axis_info) and wanted.is_projected:
        directions = " and ".join(axis.direction for axis in wanted.axis_info)
        raise _core.DataError(
            f"{name}: the axes of {name_of(wanted)} run {directions}; give crs=, one of east and north"
        )
    why = _unsuited(wanted, longitude, latitude)
    if why is None:
        return wanted, ""
    if given is not None:
        raise _core.UsageError(
            f"crs {name_of(given)} {why}; give one that is made for the region, a UTM zone for instance"
        )
    zones = query_utm_crs_info("WGS 84", AreaOfInterest(longitude, latitude, longitude, latitude))
    if not zones:
        raise _core.DataError(f"{name}: {name_of(crs)} {why}, and no UTM zone holds the place; give crs=")
    utm = pyproj.CRS.from_epsg(int(zones[0].code))
    return utm, f"{name}: {name_of(crs)} {why}; computed and written in {name_of(utm)}, unless crs= names another"


def frame_at(crs: pyproj.CRS, bounds: Bounds, origin: Optional[Sequence[float]]) -> Frame:
    """The frame for bounds, from an origin or from their middle, at whole units of the CRS.

    Raises
    ------
    UsageError
    """
    x, y = (float(np.round(0.5 * (bounds[i] + bounds[i + 2]))) for i in (0, 1))
    longitude, latitude = _degrees_of(crs, x, y)
    to_north = _around(crs, longitude, latitude)[0]
    north = float(np.degrees(np.arctan2(to_north[0], to_north[1])))
    if origin is not None:
        if len(origin) != 2 or not np.isfinite(origin).all():
            raise _core.UsageError(f"origin {tuple(origin)}: give an easting and a northing")
        x, y = float(origin[0]), float(origin[1])
    return Frame(crs, (x, y), _metres(crs), latitude, longitude, north)


def checked_window(window: Sequence[float]) -> Bounds:
    """Four numbers as bounds.

    Raises
    ------
    UsageError
    """
    numbers = [float(value) for value in window]
    if len(numbers) != 4 or not np.isfinite(numbers).all() or numbers[0] >= numbers[2] or numbers[1] >= numbers[3]:
        raise _core.UsageError(f"window {tuple(window)}: give west, south, east, north in units of the CRS")
    return (numbers[0], numbers[1], numbers[2], numbers[3])
