"""Districts: buildings and ground of a window of a map, ready for radiation."""

from __future__ import annotations

import warnings as _warnings
from collections.abc import Sequence
from typing import Any, Optional, Union

import geopandas as gpd
import numpy as np
import pyproj
import rasterio
import rasterio.features
import shapely

from . import _core
from ._geo_buildings import (
    Buildings,
    CitySource,
    FootprintOptions,
    FootprintSource,
    is_city,
    kinds,
    look_into_city,
    look_into_footprints,
    read_city,
    read_footprints,
)
from ._geo_frame import Bounds, Frame, checked_place, checked_window, crs_of, frame_at, moved_bounds, working_crs
from ._geo_raster import GridSensors, Heights, HeightSource, look_into, metres_of, read_heights
from ._model import Array, Model, Path, Sensors
from ._reports import InsolateWarning

#: Heights of terrain beyond which it is averaged: a million are two million triangles, 0.5 GB in all.
_most_terrain = 1_000_000
#: And those of a city surface, which averaging would spoil: 8 million triangles.
_most_surface = 4_000_000


class MapSensors(Sensors):
    """Sensors on roofs and walls that know their building; made by `District.sensors`."""

    district: District
    shell_faces: Array  #: by sensor: which face of the district's buildings it stands on

    @property
    def buildings(self) -> Array:
        """By sensor: its building's row in `District.buildings`."""
        return self.district._buildings.shell.building[self.shell_faces]

    @property
    def surfaces(self) -> Array:
        """By sensor: "roof" or "wall"."""
        return np.array(kinds)[self.district._buildings.shell.kind[self.shell_faces]]


class District:
    """Buildings, ground and their surroundings; made by `read_district`."""

    def __init__(
        self,
        frame: Frame,
        window: Bounds,
        inside: Array,
        buildings: Buildings,
        heights: Optional[Heights],
        is_surface: bool,
        notes: list[str],
        area: Any = None,
    ) -> None:
        self.frame = frame  #: from metres to the map and back
        self.window = window  #: west, south, east, north of what results are for [units of the CRS]
        self.area = area  #: the polygon of the window, where it is one
        self.heights = heights  #: of the raster; None without one
        self.notes = notes  #: what was read, repaired, left out and assumed; a sentence each
        self._buildings = buildings
        self._inside = inside
        self._is_surface = is_surface
        shell = buildings.shell
        owned = shell.building >= 0
        names = buildings.table["building"].to_numpy(dtype=str)
        within = np.zeros(len(shell.building), dtype=bool)
        within[owned] = inside[shell.building[owned]]
        self._within = within
        ground = "surface" if is_surface else "terrain"
        listed = [
            shell.model(within, names, frame, "buildings"),
            shell.model(~within, names, frame, "surroundings"),
            None if heights is None else heights.model(frame, ground),
        ]
        self.models: list[Model] = [model for model in listed if model is not None]  #: what casts shadows
        if not self.models:
            raise _core.DataError("nothing that casts shadows is left: no building has a height; see height=, storeys=")

    @property
    def buildings(self) -> gpd.GeoDataFrame:
        """Buildings of the window: id, status, ground and height above it [m], outline. The status is
        "ok", "height missing", "height assumed" or "ground missing"."""
        return self._buildings.table[self._inside]

    @property
    def north(self) -> float:
        """From grid north, which is the models' +Y, clockwise to true north [degrees]."""
        return self.frame.north

    def sensors(
        self, surfaces: Union[str, Sequence[str]] = "roof", *, grid: float = 1.0, offset: Optional[float] = None
    ) -> MapSensors:
        """Cells on roofs or walls of the window's buildings, with a sensor each.

        Parameters
        ----------
        surfaces : "roof", "wall" or both
        grid : float
            Largest edge of a square cell [m].
        offset : float, optional
            Distance of a sensor from its face [m]; 0.05 by default.

        Raises
        ------
        UsageError, DataError
            When there are no such surfaces.
        """
        wanted = [surfaces] if isinstance(surfaces, str) else list(surfaces)
        for name in wanted:
            if name not in kinds[:2]:
                raise _core.UsageError(f"surfaces {name!r}: there is no such surface; choose from roof, wall")
        shell = self._buildings.shell
        chosen = self._within & np.isin(np.array(kinds)[shell.kind], wanted)
        names = self._buildings.table["building"].to_numpy(dtype=str)
        model = shell.model(chosen, names, self.frame, "buildings")
        if model is None:
            raise _core.DataError(f"no building of the window has a {' or '.join(wanted)}")
        cut = model.sensors(grid=grid, offset=offset)
        made = MapSensors.__new__(MapSensors)
        made._core, made.notes, made.district = cut._core, cut.notes, self
        made.shell_faces = np.nonzero(chosen)[0][cut.faces]
        return made

    def raster_sensors(
        self, resolution: Optional[float] = None, *, height: float = 1.5, sloped: bool = False
    ) -> GridSensors:
        """Sensors above the ground or city surface, at the centres of cells in line with the map.

        Parameters
        ----------
        resolution : float, optional
            Edge of square cells [m], which begin at multiples of it; by default the cells of the
            raster that was read, and 1 m without one.
        height : float
            Above the raster's height there [m], or above 0 without a raster.
        sloped : bool
            Whether sensors face as the surface slopes there, and not straight up.

        Returns
        -------
        GridSensors
            Without cells whose centre lies in an outline or outside of the window's polygon, or has no
            height.

        Raises
        ------
        UsageError, DataError
            When there is no such cell.
        """
        if not np.isfinite(height) or not (resolution is None or (np.isfinite(resolution) and resolution > 0.0)):
            raise _core.UsageError(f"resolution {resolution}, height {height}: give metres, the first above 0")
        frame = self.frame
        begin, steps = np.zeros(2), np.full(2, (resolution or 1.0) / frame.unit)
        if resolution is None and self.heights is not None:
            begin = frame.to_map([[self.heights.west, self.heights.north]])[0]
            steps = np.array(self.heights.step) / frame.unit
        west, south, east, north = self.window
        slack = 1e-6  # of a cell: bounds that are edges of cells bring no others in
        first_column, first_row = (int(np.floor(v + slack)) for v in ([west, south] - begin) / steps)
        last_column, last_row = (int(np.ceil(v - slack)) for v in ([east, north] - begin) / steps)
        columns, rows = last_column - first_column, last_row - first_row
        if columns * rows > 1_000_000_000:
            raise _core.UsageError(f"resolution {resolution} gives {columns * rows:,} cells; give a coarser one")
        left, upper = begin + steps * [first_column, last_row]
        transform = rasterio.Affine(steps[0], 0.0, left, 0.0, -steps[1], upper)
        x = left + (np.arange(columns) + 0.5) * steps[0]
        y = upper - (np.arange(rows) + 0.5) * steps[1]
        places = frame.to_local(np.column_stack([np.tile(x, rows), np.repeat(y, columns)]))
        ground = np.zeros(len(places)) if self.heights is None else self.heights.at(places[:, 0], places[:, 1])
        used = np.isfinite(ground)
        outlines = [one for one in self._buildings.table.geometry.array if one is not None and not one.is_empty]
        if outlines:
            used &= rasterio.features.geometry_mask(outlines, (rows, columns), transform).ravel()
        if self.area is not None:
            used &= rasterio.features.geometry_mask([self.area], (rows, columns), transform, invert=True).ravel()
        if not used.any():
            raise _core.DataError("no cell of the window has a height and lies outside of buildings")
        normals = np.tile([0.0, 0.0, 1.0], (int(used.sum()), 1))
        if sloped and self.heights is not None:
            to_east, to_north = (
                Heights(rise, self.heights.west, self.heights.north, self.heights.step).at(*places[used].T)
                for rise in self.heights.slopes()
            )
            normals[:, 0], normals[:, 1] = -to_east, -to_north
        normals /= np.linalg.norm(normals, axis=1)[:, None]
        points = np.column_stack([places[used], ground[used] + height])
        made = GridSensors(points, normals, steps.prod() * frame.unit**2 / normals[:, 2], name="raster")
        made.notes = list(self.notes)
        made.frame, made.shape, made.places = frame, (rows, columns), np.nonzero(used)[0]
        made.transform = tuple(transform)[:6]
        return made

    def __repr__(self) -> str:
        return f"<insolate.geo.District: {int(self._inside.sum()):,} buildings; {self.frame.note}>"


def _reach(bounds: Bounds, by: float) -> Bounds:
    return (bounds[0] - by, bounds[1] - by, bounds[2] + by, bounds[3] + by)


def _inside(table: gpd.GeoDataFrame, window: Bounds, area: Any) -> Array:
    """Buildings of the window: by one place of each, so that windows side by side share none."""
    places = shapely.point_on_surface(np.asarray(table.geometry.array, dtype=object))
    x, y = shapely.get_x(places), shapely.get_y(places)
    within = (x >= window[0]) & (x < window[2]) & (y >= window[1]) & (y < window[3])
    return np.asarray(within if area is None else within & shapely.intersects(area, places))


def read_district(
    buildings: Any = None,
    *,
    terrain: Optional[Path] = None,
    surface: Optional[Path] = None,
    window: Any = None,
    margin: float = 500.0,
    crs: Any = None,
    origin: Optional[Sequence[float]] = None,
    layer: Optional[str] = None,
    id: Optional[str] = None,
    height: Union[str, Sequence[str], None] = None,
    top: Optional[str] = None,
    storeys: Optional[str] = None,
    storey_height: float = 3.0,
    base: Optional[str] = None,
    missing_height: Optional[float] = None,
    keep: Union[str, Sequence[str]] = (),
    lod: Union[str, float, None] = None,
    resolution: Optional[float] = None,
    height_unit: str = "m",
    band: int = 1,
) -> District:
    """Reads a window of a map: buildings, and the ground that they stand on.

    Parameters
    ----------
    buildings : path or geopandas.GeoDataFrame, optional
        Outlines with heights in any format of OGR (GeoPackage, GeoJSON, Shapefile, ...), or CityJSON.
    terrain : path, optional
        A raster of the ground's heights, without buildings.
    surface : path, optional
        A raster of the city's heights, with buildings and trees, in the place of both.
    window : (west, south, east, north) or shapely polygon, optional
        What results are for, in units of the CRS to compute in; by default all that the buildings'
        file holds, or the raster. A building belongs to the window that holds its place, so that
        windows side by side share none.
    margin : float
        How far around the window buildings and ground cast shadows [m].
    crs : optional
        The CRS to compute and write in, as an EPSG code for instance; by default that of the
        buildings, or of the raster, or the UTM zone where that is not projected or stretches
        lengths by more than 1 %. Files that name none are taken to be in it.
    origin : (easting, northing), optional
        Where x = y = 0 of the models lies [units of the CRS]; by default in the middle of the
        window. Tiles of a city need one for all of them.
    layer : str, optional
        Of a file with several.
    id : str, optional
        The attribute that names a building; by default the feature's number. Features with one id
        are parts of one building, those without are called "feature" and their number.
    height : str or several, optional
        Attributes with the height above the ground, of eaves or of the roof's middle; the first of
        them that a feature has is taken.
    top : str, optional
        The attribute with the roof's height above the sea; it wins over all others.
    storeys : str, optional
        The attribute with their number, where there is no height.
    storey_height : float
        Of one [m].
    base : str, optional
        The attribute with the ground's height above the sea, in the place of the terrain's.
    missing_height : float, optional
        Taken for buildings without [m]; by default they stay out of the scene and are reported.
    keep : str or several
        Attributes that results have too, under names that are not those of results. CityJSON takes
        none of the arguments from layer to keep.
    lod : str or float, optional
        Level of detail of CityJSON; by default the highest.
    resolution : float, optional
        Edge of the cells to which the raster is averaged [m]; by default its own, and for terrain
        whatever stays below a million.
    height_unit : {"m", "ft", "us-ft"}
        Of attributes, and of rasters that name none.
    band : int
        Of the raster, from 1.

    Returns
    -------
    District

    Raises
    ------
    DataError
        When a file cannot be read, has no CRS, or holds nothing of the window; where there is a raster,
        a window without buildings is ground alone.
    UsageError
        When an argument cannot be used, an attribute is missing, or no CRS suits.

    Warns
    -----
    InsolateWarning
        When buildings have no height or no ground.

    Notes
    -----
    A building stands on the lowest ground around its outline and ends level, its height above
    that. Outlines that cross themselves are repaired, holes become courts, all parts count.
    """
    if buildings is None and terrain is None and surface is None:
        raise _core.UsageError("give buildings, terrain or surface")
    if surface is not None and (terrain is not None or buildings is not None):
        raise _core.UsageError("surface holds ground and buildings already; leave terrain and buildings out")
    if not (np.isfinite(margin) and margin >= 0.0):
        raise _core.UsageError(f"margin {margin}: give metres, 0 or more")
    if not (np.isfinite(storey_height) and storey_height > 0.0):
        raise _core.UsageError(f"storey_height {storey_height}: give metres above 0")
    if missing_height is not None and not (np.isfinite(missing_height) and missing_height > 0.0):
        raise _core.UsageError(f"missing_height {missing_height}: give metres above 0")
    if resolution is not None and not (np.isfinite(resolution) and resolution > 0.0):
        raise _core.UsageError(f"resolution {resolution}: give metres above 0")
    metres = metres_of(height_unit, "height_unit")
    for_city = is_city(buildings)
    says_height = any(one is not None for one in (height, top, storeys, missing_height))
    if buildings is not None and not for_city and not says_height:
        raise _core.UsageError("give height=, top= or storeys=: the attribute that says how high buildings are")
    if for_city:
        of_outlines = {
            "layer": layer,
            "id": id,
            "height": height,
            "top": top,
            "storeys": storeys,
            "base": base,
            "missing_height": missing_height,
            "keep": keep or None,
        }
        useless = ", ".join(sorted(name for name, value in of_outlines.items() if value is not None))
        if useless:
            raise _core.UsageError(
                f"{useless}: of outlines alone, and a city model has heights and names of its own; leave them out"
            )
    given = None if crs is None else crs_of(crs, "crs")
    raster_path = terrain if surface is None else surface
    raster = None if raster_path is None else look_into(raster_path)
    source: Union[FootprintSource, CitySource, HeightSource]
    outlines: Union[FootprintSource, CitySource, None] = None
    if buildings is not None:
        outlines = source = look_into_city(buildings, lod) if for_city else look_into_footprints(buildings, layer)
        name = source.name
    else:
        assert raster is not None
        source, name = raster, raster.path
    for what, looked in ((name, source), ("" if raster is None else raster.path, raster)):
        if looked is not None and looked.crs is None and given is None:
            raise _core.DataError(f"{what}: does not say its coordinate reference system; give crs=")
    own: pyproj.CRS = given if source.crs is None else source.crs  # type: ignore[assignment]
    computed, why = working_crs(given, own, source.bounds, name)
    if raster is not None and raster is not source and raster.crs is not None:
        checked_place(raster.crs, raster.bounds, raster.path)
    area = None
    if window is None:
        bounds = moved_bounds(source.bounds, own, computed)
    elif hasattr(window, "bounds"):
        area, bounds = window, checked_window(window.bounds)
    else:
        bounds = checked_window(window)
    frame = frame_at(computed, bounds, origin)
    notes = [frame.note] + ([why] if why else [])
    reach = _reach(bounds, margin / frame.unit)
    heights = None
    if raster is not None:
        heights = read_heights(
            raster,
            frame,
            reach,
            resolution=resolution,
            most_cells=_most_terrain if surface is None else _most_surface,
            may_coarsen=surface is None,
            height_unit=height_unit,
            band=band,
            notes=notes,
        )
    if isinstance(outlines, CitySource):
        made = read_city(outlines, frame, reach)
    elif outlines is not None:
        options = FootprintOptions(
            layer=layer,
            id=id,
            height=height,
            top=top,
            storeys=storeys,
            storey_height=storey_height,
            base=base,
            missing_height=missing_height,
            metres=metres,
            keep=(keep,) if isinstance(keep, str) else tuple(keep),
        )
        made = read_footprints(outlines, buildings, frame, reach, heights, options)
    else:
        made = Buildings.none(frame)
    notes += made.notes + made.warnings
    inside = _inside(made.table, bounds, area)
    if outlines is not None and not inside.any():
        held = ", ".join(f"{value:.0f}" for value in moved_bounds(source.bounds, own, computed))
        text = f"{name}: no building lies in the window; the file holds {held} in {computed.name}"
        if raster is None:
            raise _core.DataError(text)
        notes.append(text)
    for text in made.warnings:
        _warnings.warn(text, InsolateWarning, stacklevel=2)
    return District(frame, bounds, inside, made, heights, surface is not None, notes, area)
