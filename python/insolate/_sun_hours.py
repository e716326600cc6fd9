"""Hours of direct sun on sensors, and rules about them."""

from __future__ import annotations

import os
from collections.abc import Iterable
from datetime import date
from typing import TYPE_CHECKING, Any, Optional, Union

from . import _core
from ._model import Model, Path, Selection, Sensors, as_models, as_sensors, north_of
from ._options import documented, option_texts
from ._radiation import Results
from ._reports import Progress, Report
from ._weather import Weather

if TYPE_CHECKING:
    import pandas as pd

_group_columns = ("group", "sensors", "passing", "area", "passing_area", "least", "greatest", "passes")


class SunHours(Results):
    """Hours of sun by sensor; made by `sun_hours`. The columns are those of ``insolate sunhours``."""

    def __init__(self, core: _core.SunHours, sensors: Sensors, north: float, report: Report) -> None:
        super().__init__(core.columns, sensors, north)
        self._core = core
        self._enclosed = core.enclosed
        self.judgement: Optional[bool] = core.passes  #: of the rule; None where it has no threshold
        self.rule: str = core.rule  #: all that was asked, in words
        self.notes = report.notes
        self.warnings = report.warnings

    def groups(self) -> pd.DataFrame:
        """What of each group satisfies the rule: counts of sensors, areas [m2], range of the first column."""
        import pandas as pd

        return pd.DataFrame(self._core.groups, columns=list(_group_columns)).set_index("group")

    def __repr__(self) -> str:
        return f"<insolate.SunHours: {len(self.sensors)} sensors; {self.rule}>"


def _day(value: Union[str, date]) -> date:
    return value if isinstance(value, date) else date.fromisoformat(value)


_rule_keywords = (
    "rule",
    "days",
    "hours",
    "time",
    "after_sunrise",
    "before_sunset",
    "min_altitude",
    "min_plan_angle",
    "count",
    "min_span",
    "min",
    "min_with_gap",
    "max_shadow",
    "share",
    "min_area",
    "sunshine",
    "year_share",
    "winter_share",
    "groups",
    "enclosed",
    "page",
    "page_limit",
    "refraction",
    "dst",
    "threads",
)


@documented(_core.sun_hours_options, *_rule_keywords)
def sun_hours(
    model: Any,
    sensors: Union[Sensors, Selection, Model],
    *,
    dates: Union[str, date, Iterable[Union[str, date]], None] = None,
    weather: Union[Weather, Path, None] = None,
    latitude: Optional[float] = None,
    longitude: Optional[float] = None,
    time_zone: Optional[float] = None,
    year: Optional[int] = None,
    north: Optional[float] = None,
    passing: Optional[str] = None,
    rule: Optional[str] = None,
    days: Optional[str] = None,
    hours: Any = None,
    time: Optional[str] = None,
    after_sunrise: Optional[float] = None,
    before_sunset: Optional[float] = None,
    min_altitude: Optional[float] = None,
    min_plan_angle: Optional[float] = None,
    count: Optional[str] = None,
    min_span: Optional[float] = None,
    min: Optional[float] = None,
    min_with_gap: Optional[float] = None,
    max_shadow: Optional[float] = None,
    share: Optional[float] = None,
    min_area: Optional[float] = None,
    sunshine: Optional[Iterable[float]] = None,
    year_share: Optional[float] = None,
    winter_share: Optional[float] = None,
    groups: Optional[str] = None,
    enclosed: Optional[str] = None,
    page: bool = False,
    page_limit: Optional[float] = None,
    refraction: bool = False,
    dst: Optional[str] = None,
    threads: Optional[int] = None,
    progress: Progress = None,
) -> SunHours:
    """How long the sun shines on sensors, to a tenth of a minute. Needs no weather.

    Parameters
    ----------
    model, sensors
        As for `radiation`.
    dates : str, date, or several
        Days as "2026-03-21" or `datetime.date`, all of one year; or texts of the command,
        "2/19-10/21". A rule may have its own.
    weather : Weather or path, optional
        Names the site, in the place of latitude and longitude.
    latitude, longitude : float, optional
        Degrees, north and east positive.
    time_zone : float, optional
        Of the site's clock, hours from UTC; by default from a map of time zones.
    year : int, optional
        Of dates that do not say.
    north : float, optional
        From the model's +Y clockwise to true north [degrees]; by default the model's own.
    passing : {"points", "area", "groups"}, optional
        Who must pass; the command's ``--pass``.
    {options}
    progress : bool or function(done, total), optional

    Returns
    -------
    SunHours

    Raises
    ------
    UsageError, DataError
        With the text of the command.
    """
    given = {name: value for name, value in locals().items() if name in _rule_keywords}
    listed = [dates] if isinstance(dates, (str, date)) else list(dates or [])
    texts = []
    for one in listed:
        if isinstance(one, str) and "/" in one:
            texts.append(one)
            continue
        day = _day(one)
        if year is not None and day.year != year:
            raise _core.UsageError(f"dates: {day} does not lie in {year}; give days of one year")
        year = day.year
        texts.append(f"{day.month}/{day.day}")
    given["dates"] = ",".join(texts) or None
    if isinstance(weather, Weather):
        site = weather.site
        latitude = site.latitude if latitude is None else latitude
        longitude = site.longitude if longitude is None else longitude
        time_zone = site.time_zone if time_zone is None else time_zone
    elif weather is not None:
        given["weather"] = os.fspath(weather)
    models = as_models(model)
    cells = as_sensors(sensors)
    turned = north_of(models, north)
    given.update(lat=latitude, lon=longitude, tz=time_zone, year=year, north=turned)
    given["pass"] = passing
    with Report(progress) as report:
        core = _core.sun_hours([one._core for one in models], cells._core, option_texts(given), report)
    return SunHours(core, cells, turned, report)
