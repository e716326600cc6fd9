"""Where the sun stands."""

from __future__ import annotations

from dataclasses import dataclass
from typing import TYPE_CHECKING, Any, Optional

import numpy as np

from . import _core

if TYPE_CHECKING:
    import pandas as pd

Array = np.ndarray[Any, np.dtype[np.float64]]


@dataclass(frozen=True)
class SunPositions:
    """Apparent positions of the sun; arrays of the times' length."""

    times: Any  #: as they were given
    azimuth: Array  #: degrees clockwise from north
    apparent_elevation: Array  #: of the sun's centre with refraction, degrees
    elevation: Array  #: without refraction, degrees
    declination: Array  #: degrees
    equation_of_time: Array  #: apparent minus mean solar time, minutes
    distance: Array  #: from the earth, astronomical units

    @property
    def zenith(self) -> Array:
        return 90.0 - self.elevation

    @property
    def apparent_zenith(self) -> Array:
        return 90.0 - self.apparent_elevation

    def to_dataframe(self) -> pd.DataFrame:
        """A data frame with the columns of pvlib's ``get_solarposition``, indexed by the times."""
        import pandas as pd

        names = ("apparent_zenith", "zenith", "apparent_elevation", "elevation", "azimuth", "equation_of_time")
        return pd.DataFrame({name: getattr(self, name) for name in names}, index=pd.Index(self.times))


def _nanoseconds(times: Any) -> np.ndarray[Any, np.dtype[np.int64]]:
    """Instants in nanoseconds since 1970, UTC."""
    if getattr(times, "dt", None) is not None:  # a pandas Series
        times = times.array
    if getattr(times, "tz", None) is not None:
        times = times.tz_convert("UTC").tz_localize(None)
    array = np.asarray(times)
    if array.dtype.kind not in "Mi":
        texts = [t if getattr(t, "tzinfo", None) is None else _naive(t) for t in np.atleast_1d(array).tolist()]
        array = np.array(texts, dtype="datetime64[us]").reshape(array.shape)
    if array.dtype.kind == "i":
        raise TypeError("times must be instants (datetime64, datetime or a DatetimeIndex), not numbers")
    if np.isnat(array).any():
        raise ValueError("times must not hold NaT")
    outside = (array < np.datetime64("1950-01-01")) | (array >= np.datetime64("2051-01-01"))
    if outside.any():
        raise _core.UsageError(
            f"{np.atleast_1d(array)[np.atleast_1d(outside)][0]}: the sun's place is known from 1950 to 2050; give "
            "times of these years"
        )
    return np.ascontiguousarray(np.atleast_1d(array).ravel().astype("datetime64[ns]").astype(np.int64))


def _naive(time: Any) -> Any:
    from datetime import timezone

    return time.astimezone(timezone.utc).replace(tzinfo=None)


def sun_position(
    times: Any,
    latitude: float,
    longitude: float,
    *,
    elevation: float = 0.0,
    pressure: Optional[float] = None,
    temperature: float = 10.0,
) -> SunPositions:
    """Apparent position of the sun, to 0.01 degrees from 1950 to 2050.

    Parameters
    ----------
    times : array_like of datetime64, DatetimeIndex or datetimes, shape (n,)
        Instants; naive ones are UTC.
    latitude, longitude : float
        Degrees, north and east positive.
    elevation : float
        Metres above the sea.
    pressure : float, optional
        Of the air [Pa], for refraction; 0 for none; by default that of the standard atmosphere at
        the elevation.
    temperature : float
        Of the air [degrees C], for refraction.

    Returns
    -------
    SunPositions

    References
    ----------
    Meeus (1998), Astronomical Algorithms, chapter 25; refraction: Reda and Andreas (2004), Solar
    Energy 76(5).

    Examples
    --------
    >>> import numpy as np, insolate as ins
    >>> sun = ins.sun_position(np.array(["2026-06-21T12:00"], "datetime64[m]"), 48.86, 2.35)
    >>> print(f"{sun.apparent_elevation[0]:.1f} {sun.azimuth[0]:.1f}")
    64.5 184.0
    """
    if not (abs(latitude) <= 90.0 and abs(longitude) <= 180.0):
        raise _core.UsageError(
            f"{latitude}, {longitude} is not on earth; latitude runs from -90 to 90, longitude from -180 to 180 "
            "degrees, east positive"
        )
    for name, value, lowest, highest, unit in (
        ("elevation", elevation, -1000.0, 10000.0, "metres"),
        ("pressure", 0.0 if pressure is None else pressure, 0.0, 150000.0, "Pa"),
        ("temperature", temperature, -100.0, 100.0, "degrees C"),
    ):
        if not lowest <= value <= highest:
            raise _core.UsageError(f"{name} {value!r} is none of the air; give {lowest:g} to {highest:g} {unit}")
    if pressure is None:
        pressure = _core.standard_pressure(elevation)
    values = _core.sun_positions(_nanoseconds(times), latitude, longitude, elevation, pressure, temperature)
    return SunPositions(times, *values)
