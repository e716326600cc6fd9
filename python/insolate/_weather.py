"""Weather of a year."""

from __future__ import annotations

import os
from typing import TYPE_CHECKING, Any, Literal, NamedTuple, Optional, Union, cast

import numpy as np

from . import _core
from ._reports import Report

if TYPE_CHECKING:
    import pandas as pd

Label = Literal["left", "right", "center"]


class Site(NamedTuple):
    """A place on the ground: degrees (north and east positive), hours from UTC, metres."""

    latitude: float
    longitude: float
    time_zone: float
    elevation: float
    name: str


#: Columns of data frames, by pvlib's names, and whether a frame must have them.
_columns = {
    "dni": True,
    "dhi": True,
    "ghi": False,
    "temp_air": False,
    "temp_dew": False,
    "pressure": False,
    "albedo": False,
}


class Weather:
    """A year of weather, hour by hour, as the engine takes it.

    Made by `read_weather` or `Weather.from_dataframe`. A year has 365 days; 29 February is left
    out. ``dni``, ``dhi``, ``ghi`` are means over the hours [W/m2], ``temp_air`` and ``temp_dew``
    degrees C, ``pressure`` Pa: arrays of 8,760 values that cannot be written to, with NaN for what
    is missing; None where the source has no such values.
    """

    def __init__(self, core: _core.Weather, samples: Optional[tuple[Any, ...]] = None) -> None:
        self._core = core
        self._samples = samples  # what it was made from, where that is no file

    @property
    def name(self) -> str:
        """The file's name, as it was given."""
        return self._core.name

    @property
    def site(self) -> Site:
        return Site(*self._core.site)

    @property
    def findings(self) -> list[str]:
        """What is odd about the weather and how it was understood; a sentence each."""
        return self._core.findings

    @property
    def gaps(self) -> int:
        """Hours without radiation data; a study takes them with ``allow_gaps=True`` alone."""
        return self._core.gap_count

    @property
    def dni(self) -> np.ndarray[Any, np.dtype[np.float32]]:
        return cast("np.ndarray[Any, np.dtype[np.float32]]", self._core.dni)

    @property
    def dhi(self) -> np.ndarray[Any, np.dtype[np.float32]]:
        return cast("np.ndarray[Any, np.dtype[np.float32]]", self._core.dhi)

    @property
    def ghi(self) -> Optional[np.ndarray[Any, np.dtype[np.float32]]]:
        return self._core.ghi

    @property
    def temp_air(self) -> Optional[np.ndarray[Any, np.dtype[np.float32]]]:
        return self._core.temp_air

    @property
    def temp_dew(self) -> Optional[np.ndarray[Any, np.dtype[np.float32]]]:
        return self._core.temp_dew

    @property
    def pressure(self) -> Optional[np.ndarray[Any, np.dtype[np.float32]]]:
        return self._core.pressure

    def __repr__(self) -> str:
        site = self.site
        return (
            f"<insolate.Weather {site.name}, {site.latitude:.2f}, {site.longitude:.2f}, "
            f"UTC{site.time_zone:+g}, {self.gaps} gaps>"
        )

    def to_dataframe(self, *, year: int = 2001, label: Label = "left") -> pd.DataFrame:
        """The hours as a data frame with pvlib's names.

        Parameters
        ----------
        year : int
            Of the index; one of 365 days.
        label : {"left", "right", "center"}
            Which end of its hour a row's time is.

        Returns
        -------
        pandas.DataFrame
            8,760 rows; the index is in the site's standard time. Where the records were taken at
            instants, ``attrs["sample_offset"]`` says how many hours after the middle of the hour.
        """
        import pandas as pd

        start = pd.Timestamp(year=year, month=1, day=1)
        if start.is_leap_year:
            raise _core.UsageError(f"year {year} has 366 days; give one of 365")
        index = pd.date_range(start, periods=8760, freq="h") + pd.Timedelta(hours=_shift(label, 1.0))
        index = index.tz_localize(_fixed_zone(self.site.time_zone))
        data = {name: getattr(self, name, None) for name in _columns}
        frame = pd.DataFrame({n: v for n, v in data.items() if v is not None}, index=index)
        frame.attrs = {"label": label, "sample_offset": self._core.sample_offset}
        return frame

    @classmethod
    def from_dataframe(
        cls,
        frame: pd.DataFrame,
        *,
        latitude: float,
        longitude: float,
        label: Label,
        elevation: float = 0.0,
        time_zone: Optional[float] = None,
        name: str = "data frame",
    ) -> Weather:
        """Weather from a data frame with pvlib's names.

        Parameters
        ----------
        frame : pandas.DataFrame
            A year of equal steps of an hour or an even part of it. Columns ``dni`` and ``dhi``
            [W/m2], and where there are such ``ghi`` [W/m2], ``temp_air``, ``temp_dew``
            [degrees C], ``pressure`` [Pa], ``albedo``. The index must have a time zone.
        latitude, longitude : float
            Degrees, north and east positive.
        label : {"left", "right", "center"}
            What a row's time is: begin, end or middle of what the row is the mean of, "center" for
            values taken at an instant. There is no default: half an hour of error is the commonest
            one with weather.
        elevation : float
            Metres above the sea.
        time_zone : float, optional
            Standard time of the site's clock, hours from UTC, which decides where a day begins; by
            default that of the index outside of daylight saving time.
        name : str
            What messages call the frame.

        Raises
        ------
        UsageError, DataError
            With what is wrong and the fix.
        """
        for column, needed in _columns.items():
            if needed and column not in frame:
                raise _core.DataError(
                    f"{name}: there is no column {column!r}; give dni and dhi in W/m2 (pvlib.irradiance computes "
                    "them from ghi)"
                )
        if label not in ("left", "right", "center"):
            raise _core.UsageError(f"label {label!r}: there is no such label; choose from left, right, center")
        index: Any = frame.index
        if getattr(index, "tz", None) is None:
            raise _core.DataError(f"{name}: the index has no time zone; give it one with tz_localize")
        utc = index.tz_convert("UTC").tz_localize(None).to_numpy().astype("datetime64[ns]").astype(np.int64)
        if time_zone is None:
            local = index.tz_localize(None).to_numpy().astype("datetime64[ns]").astype(np.int64)
            time_zone = float((local - utc).min() / _hour) if len(utc) else 0.0
        step = float(np.median(np.diff(utc))) / _hour if len(utc) > 1 else 1.0
        middles = utc + np.int64(round((time_zone - _shift(label, step) + 0.5 * step) * _hour))
        values = np.full((len(utc), len(_columns)), np.nan, dtype=np.float32)
        for place, column in enumerate(_columns):
            if column in frame:
                values[:, place] = frame[column].to_numpy(dtype=np.float32)
        values[np.isinf(values)] = np.nan  # no measurement, in either direction
        _refuse_repeated(middles, index, name)
        samples = (name, latitude, longitude, time_zone, elevation, middles, values)
        return cls(_core.weather_of(*samples), samples)


def _refuse_repeated(middles: np.ndarray[Any, np.dtype[np.int64]], index: Any, name: str) -> None:
    """Of rows for one time of the year the last would count: those of other years, or given twice."""
    times = middles.astype("datetime64[ns]")
    days = times.astype("datetime64[D]")
    months = times.astype("datetime64[M]")
    key = months.astype(np.int64) % 12 * 31 + (days - months.astype("datetime64[D]")).astype(np.int64)
    key = key * (24 * _hour) + (times - days.astype("datetime64[ns]")).astype(np.int64)
    first = np.full(len(key), True)
    first[np.unique(key, return_index=True)[1]] = False
    if first.any():
        raise _core.DataError(
            f"{name}: {int(first.sum())} rows are of times of the year that others have as well, the first at "
            f"{index[int(np.argmax(first))]}; give one year, each time once"
        )


_hour = 3_600_000_000_000  # nanoseconds


def _shift(label: Label, step: float) -> float:
    """From the begin of a step to its label [h]."""
    return {"left": 0.0, "center": 0.5 * step, "right": step}[label]


def _fixed_zone(hours: float) -> Any:
    from datetime import timedelta, timezone

    return timezone(timedelta(hours=hours))


def read_weather(file: Union[str, os.PathLike[str]]) -> Weather:
    """Reads a weather file: EPW, TMY3, PSM3, PSM4, PVGIS or a text or binary ``.wea``.

    Parameters
    ----------
    file : path

    Raises
    ------
    DataError
        When it is no weather file; files with gaps are read, and `Weather.findings` names them.
    """
    with Report(False) as report:
        return Weather(_core.read_weather(os.fspath(file), report))
