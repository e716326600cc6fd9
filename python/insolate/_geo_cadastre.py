"""Results by cell, roof, wall and building, as maps of solar potential have them."""

from __future__ import annotations

import json
import os
from collections.abc import Iterable, Mapping, Sequence
from typing import Any, Optional, Union

import geopandas as gpd
import numpy as np
import pyogrio
import pyproj
import shapely

from . import _core
from ._geo_buildings import areas_of, roof, wall
from ._geo_district import District, MapSensors
from ._geo_files import complete_or_absent, origin_of
from ._geo_frame import crs_of, same
from ._geo_raster import map_unit, without_data
from ._model import Array, Path
from ._radiation import Columns, Radiation

#: Lower bounds of a year's radiation [kWh/m2], as the roof cadastre of Vienna has them.
usual_classes = {"unsuitable": 0.0, "good": 900.0, "very good": 1200.0}


def _slug(name: str) -> str:
    return "".join(c if c.isalnum() else "_" for c in name.strip().lower()).strip("_")


def _map_sensors(result: Columns) -> MapSensors:
    if not isinstance(result.sensors, MapSensors):
        raise _core.UsageError("these sensors stand on no building of a map; make them by District.sensors")
    return result.sensors


def _columns(result: Columns, names: Union[str, Iterable[str], None], usual: Sequence[str]) -> list[str]:
    listed = list(usual) if names is None else [names] if isinstance(names, str) else list(names)
    for name in listed:
        if name not in result:
            raise _core.UsageError(f"columns: there is no {name!r}; choose from {', '.join(result)}")
    return listed


def _in_map_units(result: Columns, name: str) -> tuple[str, Array]:
    """A column's name with its unit, and its values in it."""
    _, text, factor = map_unit(result.units[name])
    return f"{name}_{text}", np.asarray(result[name], dtype=np.float64) * factor


def _class_list(classes: Mapping[str, float]) -> tuple[list[str], Array]:
    names, bounds = list(classes), np.array([float(value) for value in classes.values()])
    if not names or not np.isfinite(bounds).all() or (np.diff(bounds) <= 0.0).any():
        raise _core.UsageError(f"classes {dict(classes)}: give names with ascending lower bounds [kWh/m2]")
    return names, bounds


def _threshold_column(bound: float) -> str:
    return f"from_{bound:g}_kwh_m2_m2".replace(".", "_")


def _check_columns(names: Iterable[str], thresholds: Iterable[float], results: Iterable[str]) -> None:
    """That every class and threshold has columns of its own, so that none takes the place of another's.

    Parameters
    ----------
    names : of the classes
    thresholds : [kWh/m2]
    results : columns of means

    Raises
    ------
    UsageError
    """
    owners = {column: f"the tables' own {column}" for column in ("area_m2", "no_data_m2", *results)}
    wanted = []
    for name in names:
        # The lowest class has no largest area, but another class's area would be read as that.
        wanted += [(f"{kind}{_slug(name)}_m2", f"class {name!r}") for kind in ("", "largest_")]
    wanted += [(_threshold_column(bound), f"threshold {bound!r}") for bound in dict.fromkeys(thresholds)]
    for column, owner in wanted:
        other = owners.setdefault(column, owner)
        if other != owner:
            raise _core.UsageError(f"{owner} and {other} would have one column, {column!r}; change the former")


def cells(result: Columns, *, columns: Union[str, Iterable[str], None] = None) -> gpd.GeoDataFrame:
    """The cells of `District.sensors` with their results.

    Parameters
    ----------
    result : Radiation or SunHours
    columns : str or several, optional
        By default the energies, of the parts of the period too; of hours of sun all columns.

    Returns
    -------
    geopandas.GeoDataFrame
        A row for each sensor: its cell as a polygon with heights, ``building``, ``surface``,
        ``area_m2``, ``tilt_deg``, ``azimuth_deg`` (clockwise from true north; none where level),
        ``has_data``, and the columns with their units, energies in kWh/m2. Cells of walls are
        upright: in plan they are lines.

    Raises
    ------
    UsageError
        When the sensors are of no district, or there is no such column.
    """
    sensors = _map_sensors(result)
    district = sensors.district
    names = _columns(result, columns, [name for name in result if result.units[name] == "Wh/m2"] or list(result))
    start = np.asarray(sensors._core.cell_start, dtype=np.int64)
    places = district.frame.to_map(sensors._core.corners)
    rings = shapely.linearrings(places, indices=np.repeat(np.arange(len(sensors)), np.diff(start)))
    ids = district._buildings.table["building"].to_numpy()
    without = without_data(result)
    azimuth = sensors.azimuths(district.north)
    data: dict[str, Any] = {
        "building": ids[sensors.buildings],
        "surface": sensors.surfaces,
        "area_m2": np.asarray(sensors.areas, dtype=np.float64),
        "tilt_deg": np.round(sensors.tilts, 2),
        "azimuth_deg": np.where(sensors.tilts < 0.5, np.nan, np.round(azimuth, 2)),
        "has_data": ~without,
    }
    for name in names:
        column, values = _in_map_units(result, name)
        data[column] = np.where(without, np.nan, values)
    return gpd.GeoDataFrame(data, geometry=shapely.polygons(rings), crs=district.frame.crs)


class Cadastre:
    """Solar potential of a district: tables for maps; made by `cadastre`."""

    def __init__(
        self,
        result: Columns,
        district: District,
        buildings: gpd.GeoDataFrame,
        roofs: Optional[gpd.GeoDataFrame],
        walls: Optional[gpd.GeoDataFrame],
        notes: list[str],
        classes: Mapping[str, float],
    ) -> None:
        self.result = result
        self.district = district
        self.buildings = buildings  #: a row for each building of the window, with or without results
        self.roofs = roofs  #: a row for each roof; None without sensors on roofs
        self.walls = walls  #: a row for each wall, as the line on which it stands; None without sensors on walls
        self.notes = notes  #: what a person should know
        self.classes = dict(classes)  #: lower bounds [kWh/m2]

    def save(
        self,
        path: Path,
        *,
        layers: Union[str, Sequence[str], None] = None,
        crs: Any = None,
        overwrite: bool = False,
    ) -> None:
        """Writes the tables, joined by the attribute ``building``.

        Parameters
        ----------
        path : path
            .gpkg for a GeoPackage with all layers; .geojson or .json for one layer, in degrees as
            RFC 7946 wants them. Its folder is made when missing.
        layers : of "buildings", "roofs", "walls", "cells"
            By default all but the cells that there are; of GeoJSON "roofs".
        crs : optional
            To write in; by default that of the district.
        overwrite : bool
            Whether a file of this name may be replaced.

        Raises
        ------
        UsageError
            When there is no such layer or format.
        OutputError
            When the file exists or cannot be written. It is complete or absent.
        """
        suffix = os.path.splitext(os.fspath(path))[1].lower()
        is_json = suffix in (".geojson", ".json")
        if not is_json and suffix != ".gpkg":
            raise _core.UsageError(f"{os.fspath(path)}: give a name that ends in .gpkg or .geojson")
        held = {"buildings": self.buildings, "roofs": self.roofs, "walls": self.walls}
        there = [name for name, table in held.items() if table is not None]
        if layers is None:
            wanted = there if not is_json else [there[1]]
        else:
            wanted = [layers] if isinstance(layers, str) else list(layers)
        for name in wanted:
            if name not in (*there, "cells"):
                raise _core.UsageError(f"layers: there is no {name!r}; choose from {', '.join([*there, 'cells'])}")
        if not wanted:
            raise _core.UsageError(f"layers: none is named; choose from {', '.join([*there, 'cells'])}")
        if is_json and len(wanted) != 1:
            raise _core.UsageError(f"{os.fspath(path)}: GeoJSON holds one layer; choose one of {', '.join(wanted)}")
        target = None if crs is None else crs_of(crs, "crs")
        if is_json:
            if target is not None and not same(target, pyproj.CRS.from_epsg(4326)):
                raise _core.UsageError("crs: GeoJSON is in degrees (EPSG:4326); write .gpkg for another")
            target = pyproj.CRS.from_epsg(4326)
        origin = origin_of(self.result, self.notes) | {"classes_kwh_m2": json.dumps(self.classes)}
        with complete_or_absent(path, overwrite) as partial:
            rows = {}
            for name in wanted:
                table = held[name] if name != "cells" else self._cells()
                assert table is not None
                if target is not None:
                    table = table.to_crs(target)
                options: dict[str, Any] = {"layer": name, "driver": "GeoJSON" if is_json else "GPKG"}
                if is_json:
                    options["layer_options"] = {"RFC7946": "YES", "DESCRIPTION": json.dumps(origin)}
                else:
                    options["layer_metadata"] = {f"insolate_{key}": text for key, text in origin.items()}
                    options["promote_to_multi"] = name in ("buildings", "roofs")
                    if name == wanted[0]:
                        options["dataset_options"] = {"VERSION": "1.3"}  # GDAL before 3.7 warns of 1.4
                pyogrio.write_dataframe(table, partial, **options)
                rows[name] = len(table)
            # What fails while a file is closed, as on a full disk, raises nothing.
            for name, count in rows.items():
                layer = None if is_json else name
                if pyogrio.read_info(partial, layer=layer, force_feature_count=True)["features"] != count:
                    raise OSError("it does not hold what was written; is the disk full?")

    def _cells(self) -> gpd.GeoDataFrame:
        table = cells(self.result)
        names, bounds = _class_list(self.classes) if self.classes else ([], np.empty(0))
        if names:
            table.insert(2, "class", _class_of(table["total_kwh_m2"].to_numpy(), names, bounds, self._insufficient))
        return table

    _insufficient = "insufficient data"

    def __repr__(self) -> str:
        counts = [f"{len(self.buildings):,} buildings"]
        for name, table in (("roofs", self.roofs), ("walls", self.walls)):
            if table is not None:
                counts.append(f"{len(table):,} {name}")
        return f"<insolate.geo.Cadastre: {', '.join(counts)}>"


def _class_of(values: Array, names: list[str], bounds: Array, insufficient: str) -> Array:
    """The highest class whose bound each value reaches; the first one below all."""
    places = np.clip(np.searchsorted(bounds, values, side="right") - 1, 0, None)
    return np.where(np.isfinite(values), np.array(names, dtype=object)[places], insufficient)


def _pieces(pairs: Array, chosen: Array) -> Array:
    """By cell: a number that the chosen cells of each connected piece have in common.

    Parameters
    ----------
    pairs : shape (n, 2), of cells that lie side by side
    chosen : array of bool, by cell
    """
    label = np.arange(len(chosen))
    pairs = pairs[chosen[pairs].all(axis=1)]
    # Of two pieces that touch, the one of the greater number is joined to the other; then every cell looks up the
    # piece of its piece, until it has the least number of all that were joined.
    while len(pairs):
        ends = label[pairs]
        apart = ends[:, 0] != ends[:, 1]
        pairs, ends = pairs[apart], ends[apart]
        np.minimum.at(label, ends.max(axis=1), ends.min(axis=1))
        while not np.array_equal(further := label[label], label):
            label = further
    return label


class _Sums:
    """Sums over the cells of each of some things."""

    def __init__(self, of: Array, number: int, area: Array, counts: Array) -> None:
        self.of, self.number, self.area = of, number, np.where(counts, area, 0.0)
        self.whole = self.sum(area, np.ones(len(of), dtype=bool))
        self.valid = self.sum(area, counts)
        self.counts = counts

    def sum(self, values: Array, chosen: Array) -> Array:
        return np.bincount(self.of[chosen], weights=values[chosen], minlength=self.number)

    def mean(self, values: Array) -> Array:
        """By area, of cells with data; NaN without any."""
        total = self.sum(values * self.area, self.counts)
        return np.where(self.valid > 0.0, total / np.where(self.valid > 0.0, self.valid, 1.0), np.nan)


def cadastre(
    result: Radiation,
    *,
    classes: Optional[Mapping[str, float]] = None,
    thresholds: Iterable[float] = (),
    min_area: float = 10.0,
    least_data: float = 0.5,
    insufficient: str = "insufficient data",
    columns: Union[str, Iterable[str], None] = None,
) -> Cadastre:
    """Solar potential by building, roof and wall.

    Parameters
    ----------
    result : Radiation
        Of sensors of `District.sensors`.
    classes : mapping of name to lower bound, ascending, optional
        Of the period's radiation on the cell's own slope [kWh/m2]; by default, of a whole year,
        "unsuitable", "good" from 900 and "very good" from 1200; of other periods none.
    thresholds : iterable of float
        Further radiations [kWh/m2] for which tables say how much area gets that or more.
    min_area : float
        A roof, wall or building is of a class when so much area that hangs together reaches the
        class's bound [m2]; what has less in all classes is of the lowest.
    least_data : float
        Share of the area that must have data, 0 to 1; the rest is of the class `insufficient`.
    insufficient : str
        The name of that class, which buildings without height or ground have too.
    columns : str or several, optional
        Results whose means by area tables have; by default the totals, of each month too where the
        result is split.

    Returns
    -------
    Cadastre

    Raises
    ------
    UsageError
        When the sensors are of no district, an argument cannot be used, or columns of classes and
        thresholds would have names that others have.
    """
    sensors = _map_sensors(result)
    district = sensors.district
    summary = result.summary
    notes = [*district.notes]
    period = summary["period"]
    is_year = period["days"] == 365 and period["start_hour"] == 0.0 and period["end_hour"] == 24.0
    if classes is None:
        classes = usual_classes if is_year else {}
        if not is_year:
            notes.append(
                f"no classes: theirs is a year's radiation, the period is {period['text']}; classes= gives others"
            )
    names, bounds = _class_list(classes) if classes else ([], np.empty(0))
    wanted = [float(value) for value in thresholds]
    if not np.isfinite(wanted).all():
        raise _core.UsageError(f"thresholds {wanted}: give numbers [kWh/m2]")
    if not (np.isfinite(min_area) and min_area >= 0.0 and 0.0 <= least_data <= 1.0):
        raise _core.UsageError(f"min_area {min_area}, least_data {least_data}: give m2 from 0, and a share of 0 to 1")
    site = result.weather.site
    far = pyproj.Geod(ellps="WGS84").inv(
        site.longitude, site.latitude, district.frame.longitude, district.frame.latitude
    )[2]
    if far > 50e3:
        notes.append(f"the weather is of a place {far / 1e3:,.0f} km away, and the sun stands as it does there")
    usual = [name for name in result if name == "total" or name.startswith("total_")]
    listed = _columns(result, columns, usual)
    if "total" not in listed:
        listed.insert(0, "total")
    values = dict(_in_map_units(result, name) for name in listed)
    if "unshaded" in result:
        values["unshaded_kwh_m2"] = _in_map_units(result, "unshaded")[1]
    _check_columns(names, wanted, values)
    counts = ~without_data(result)
    areas = np.asarray(sensors.areas, dtype=np.float64)
    shell = district._buildings.shell
    kind = shell.kind[sensors.shell_faces]
    neighbours = np.empty((0, 2), dtype=np.int64)
    if len(names) > 1:
        neighbours = sensors.neighbours().astype(np.int64)
    if not counts.all():
        notes.append(
            f"{int((~counts).sum()):,} cells lie within something and have no data, at walls between houses mostly"
        )

    def table_of(of: Array, number: int, chosen: Array, prefix: str) -> dict[str, Any]:
        pairs = neighbours[(of[neighbours[:, 0]] == of[neighbours[:, 1]])]
        sums = _Sums(of[chosen], number, areas[chosen], counts[chosen])
        total = values["total_kwh_m2"][chosen]
        data: dict[str, Any] = {f"{prefix}area_m2": sums.whole}
        if names:
            best = np.zeros(number, dtype=np.int64)
            largest = {}
            for place, bound in enumerate(bounds[1:], 1):
                reaching = chosen & counts & (values["total_kwh_m2"] >= bound)
                piece = np.bincount(_pieces(pairs, reaching), weights=np.where(reaching, areas, 0.0))
                largest[place] = np.zeros(number)
                np.maximum.at(largest[place], of[: len(piece)], piece)
                best = np.where((largest[place] >= min_area) & (largest[place] > 0.0), place, best)
            known = (sums.valid > 0.0) & (sums.valid >= least_data * sums.whole)
            data[f"{prefix}class"] = np.where(known, np.array(names, dtype=object)[best], insufficient)
        for name, one in values.items():
            data[prefix + name] = sums.mean(one[chosen])
        if "unshaded_kwh_m2" in values:
            data[f"{prefix}unshaded_share_pct"] = (
                100.0 * data[f"{prefix}total_kwh_m2"] / data[f"{prefix}unshaded_kwh_m2"]
            )
        data[f"{prefix}energy_kwh"] = sums.sum(total * areas[chosen], counts[chosen])
        data[f"{prefix}no_data_m2"] = np.maximum(sums.whole - sums.valid, 0.0)
        places = np.clip(np.searchsorted(bounds, total, side="right") - 1, 0, None)
        for place, name in enumerate(names):
            data[f"{prefix}{_slug(name)}_m2"] = sums.sum(areas[chosen], counts[chosen] & (places == place))
        for place in range(1, len(names)):
            data[f"{prefix}largest_{_slug(names[place])}_m2"] = largest[place]
        for bound in wanted:
            data[prefix + _threshold_column(bound)] = sums.sum(areas[chosen], counts[chosen] & (total >= bound))
        return data

    own = district._buildings.table
    data: dict[str, Any] = {}
    layers: dict[int, gpd.GeoDataFrame] = {}
    for which, prefix in ((roof, "roof_"), (wall, "wall_")):
        chosen = kind == which
        if not chosen.any():
            continue
        data |= table_of(sensors.buildings, len(own), chosen, prefix)
        surfaces, of = np.unique(shell.surface[sensors.shell_faces[chosen]], return_inverse=True)
        every = np.zeros(len(kind), dtype=np.int64)
        every[chosen] = of
        layers[which] = _surface_layer(
            result, sensors, which, chosen, every, surfaces, table_of(every, len(surfaces), chosen, "")
        )
    buildings = own.drop(columns="geometry").copy()
    twice = [name for name in buildings if name in data]
    if twice:
        raise _core.UsageError(
            f"keep {twice[0]!r} is what a column of the results is called; rename the attribute, or leave it out"
        )
    for name, column in data.items():
        buildings[name] = column
    table = gpd.GeoDataFrame(buildings, geometry=own.geometry, crs=own.crs)[district._inside].reset_index(drop=True)
    made = Cadastre(result, district, table, layers.get(roof), layers.get(wall), notes, classes)
    made._insufficient = insufficient
    return made


def _surface_layer(
    result: Columns, sensors: MapSensors, which: int, chosen: Array, of: Array, surfaces: Array, data: dict[str, Any]
) -> gpd.GeoDataFrame:
    """A row for each roof or wall."""
    district = sensors.district
    buildings = district._buildings
    numbers = np.nonzero(chosen)[0]
    first = np.full(len(surfaces), -1, dtype=np.int64)
    first[of[numbers[::-1]]] = numbers[::-1]
    owner = buildings.table.iloc[sensors.buildings[first]]
    tilts = sensors.tilts[first]
    azimuths = np.where(tilts < 0.5, np.nan, np.round(sensors.azimuths(district.north)[first], 2))
    head: dict[str, Any] = {
        "building": owner["building"].to_numpy(),
        "status": owner["status"].to_numpy(),
        "tilt_deg": np.round(tilts, 2),
        "azimuth_deg": azimuths,
    }
    start = np.asarray(sensors._core.cell_start, dtype=np.int64)
    widths = np.diff(start)
    corner_of = np.repeat(np.arange(len(widths)), widths)
    used = chosen[corner_of]
    corners = np.asarray(sensors._core.corners)[used]
    surface_of = of[corner_of[used]]
    low, high = np.full(len(surfaces), np.inf), np.full(len(surfaces), -np.inf)
    np.minimum.at(low, surface_of, corners[:, 2])
    np.maximum.at(high, surface_of, corners[:, 2])
    if which == wall:
        head["bottom_m"], head["height_m"] = low, high - low
        # Along the wall: level, and across its normal.
        normals = sensors.normals[first]
        along = np.column_stack([-normals[:, 1], normals[:, 0]])
        along /= np.maximum(np.linalg.norm(along, axis=1), 1e-12)[:, None]
        origin = sensors.points[first][:, :2]
        run = ((corners[:, :2] - origin[surface_of]) * along[surface_of]).sum(axis=1)
        begin, end = np.full(len(surfaces), np.inf), np.full(len(surfaces), -np.inf)
        np.minimum.at(begin, surface_of, run)
        np.maximum.at(end, surface_of, run)
        foot = np.zeros((len(surfaces), 2))
        foot[surface_of] = corners[:, :2]  # any of its corners lies in the wall, the sensors before it
        off = ((foot - origin) * normals[:, :2]).sum(axis=1) / np.maximum((normals[:, :2] ** 2).sum(axis=1), 1e-12)
        foot_line = origin + off[:, None] * normals[:, :2]
        ends = np.stack([foot_line + begin[:, None] * along, foot_line + end[:, None] * along], axis=1)
        shapes = shapely.linestrings(district.frame.to_map(ends.reshape(-1, 2)).reshape(-1, 2, 2))
    else:
        head["lowest_m"], head["highest_m"] = low, high
        if buildings.roofs is not None:
            shapes = np.asarray(shapely.multipolygons(buildings.roofs[surfaces], indices=np.arange(len(surfaces))))
        else:
            rings = shapely.linearrings(
                district.frame.to_map(corners[:, :2]),
                indices=np.unique(corner_of[used], return_inverse=True)[1],
            )
            pieces = shapely.polygons(rings)
            order = np.argsort(of[numbers], kind="stable")
            begins = np.searchsorted(of[numbers][order], np.arange(1, len(surfaces)))
            shapes = areas_of(np.array([shapely.union_all(some) for some in np.split(pieces[order], begins)]))
    return gpd.GeoDataFrame({**head, **data}, geometry=shapes, crs=district.frame.crs)
