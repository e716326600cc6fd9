"""Solar radiation and hours of sun on the surfaces of models.

>>> import insolate as ins                                             # doctest: +SKIP
>>> weather = ins.read_weather("chicago.epw")                          # doctest: +SKIP
>>> model = ins.read_model("city.obj")                                 # doctest: +SKIP
>>> sensors = model.select("house_*", facing="up").sensors(grid=1.0)   # doctest: +SKIP
>>> result = ins.radiation(model, sensors, weather, period="6/1-8/31") # doctest: +SKIP
>>> result.total, result.to_dataframe(), result.save("out")            # doctest: +SKIP

Lengths are metres with z up, x east and y north at ``north=0``; azimuths run clockwise from north,
in degrees. Energies are Wh/m2 over the period, powers W/m2. Names, defaults and results are those
of the command ``insolate``.
"""

from __future__ import annotations

import importlib
from typing import TYPE_CHECKING, Any

# NumPy takes longer to import than all of this package: it is loaded with the first name in use.
_homes = {
    "DataError": "_core",
    "Error": "_core",
    "OutputError": "_core",
    "UsageError": "_core",
    "InsolateWarning": "_reports",
    "Model": "_model",
    "Sensors": "_model",
    "read_model": "_model",
    "read_sensors": "_model",
    "Comparison": "_radiation",
    "Page": "_radiation",
    "Radiation": "_radiation",
    "radiation": "_radiation",
    "sky_view": "_radiation",
    "view": "_radiation",
    "visible": "_radiation",
    "SunPositions": "_sun",
    "sun_position": "_sun",
    "SunHours": "_sun_hours",
    "sun_hours": "_sun_hours",
    "City": "distributed",
    "Incomplete": "distributed",
    "city": "distributed",
    "tiles_of": "distributed",
    "Site": "_weather",
    "Weather": "_weather",
    "read_weather": "_weather",
}

if TYPE_CHECKING:
    from ._core import DataError, Error, OutputError, UsageError
    from ._core import version as __version__
    from ._model import Model, Sensors, read_model, read_sensors
    from ._radiation import Comparison, Page, Radiation, radiation, sky_view, view, visible
    from ._reports import InsolateWarning
    from ._sun import SunPositions, sun_position
    from ._sun_hours import SunHours, sun_hours
    from ._weather import Site, Weather, read_weather
    from .distributed import City, Incomplete, city, tiles_of

__all__ = [
    "City",
    "Comparison",
    "DataError",
    "Error",
    "Incomplete",
    "InsolateWarning",
    "Model",
    "OutputError",
    "Page",
    "Radiation",
    "Sensors",
    "Site",
    "SunHours",
    "SunPositions",
    "UsageError",
    "Weather",
    "__version__",
    "city",
    "radiation",
    "read_model",
    "read_sensors",
    "read_weather",
    "sky_view",
    "sun_hours",
    "sun_position",
    "tiles_of",
    "view",
    "visible",
]


def __getattr__(name: str) -> Any:
    if name == "__version__":
        value = importlib.import_module("._core", __name__).version
    elif name in _homes:
        value = getattr(importlib.import_module("." + _homes[name], __name__), name)
    else:
        raise AttributeError(f"module {__name__!r} has no attribute {name!r}")
    globals()[name] = value
    return value


def __dir__() -> list[str]:
    return sorted({*globals(), *__all__})
