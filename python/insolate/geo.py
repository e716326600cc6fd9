"""From maps to radiation and back: districts from GIS files, results as GIS files.

Needs the extra ``insolate[geo]``: geopandas, pyogrio, pyproj, rasterio and shapely.

>>> from insolate import geo                                                            # doctest: +SKIP
>>> district = geo.read_district("buildings.gpkg", terrain="terrain.tif", height="height_m")  # doctest: +SKIP
>>> result = ins.radiation(district.models, district.sensors("roof"), "weather.epw")    # doctest: +SKIP
>>> geo.cadastre(result).save("roofs.gpkg")                                             # doctest: +SKIP

Coordinates of models and sensors are metres from ``district.frame.origin``, which the frame takes
back to the coordinate reference system (CRS) of the map; z is the height as the files have it.
"""

from __future__ import annotations

try:
    import geopandas as _geopandas  # noqa: F401
    import pyogrio as _pyogrio  # noqa: F401
    import pyproj as _pyproj  # noqa: F401
    import rasterio as _rasterio  # noqa: F401
    import shapely as _shapely  # noqa: F401
except ImportError as _error:
    raise ImportError(f"insolate.geo needs {_error.name}: pip install 'insolate[geo]'", name=_error.name) from _error

from ._geo_cadastre import Cadastre, cadastre, cells
from ._geo_district import District, MapSensors, read_district
from ._geo_frame import Frame
from ._geo_raster import GridSensors, Heights, write_raster

__all__ = [
    "Cadastre",
    "District",
    "Frame",
    "GridSensors",
    "Heights",
    "MapSensors",
    "cadastre",
    "cells",
    "read_district",
    "write_raster",
]
