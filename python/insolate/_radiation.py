"""Radiation on sensors, and what they see."""

from __future__ import annotations

import html
import json
import os
from collections.abc import Iterable, Mapping
from typing import TYPE_CHECKING, Any, Optional, Union

import numpy as np

from . import _core
from ._model import Array, Model, Path, Selection, Sensors, as_models, as_sensors, north_of
from ._options import documented, materials_toml, option_texts
from ._reports import Progress, Report
from ._weather import Weather, _fixed_zone, read_weather

if TYPE_CHECKING:
    import pandas as pd
    import pyvista as pv
    import xarray as xr

#: pvlib's names of what the hours of a sensor hold.
_hour_names = ("poa_direct", "poa_sky_diffuse", "poa_ground_diffuse", "poa_reflected")


class Columns(Mapping[str, Array]):
    """Results by sensor, each by its name: ``result["total"]``; the same as attributes."""

    _enclosed: Optional[Array] = None  #: by sensor, 1 where it looks into closed geometry
    _zone: Optional[float] = None  #: of the clock by which hours are counted

    def __init__(self, columns: Iterable[tuple[str, str, str, Array]], sensors: Sensors, north: float) -> None:
        self._values: dict[str, Array] = {}
        self.units: dict[str, str] = {}
        self.titles: dict[str, str] = {}
        for name, unit, title, values in columns:
            self._values[name] = values
            self.units[name] = unit
            self.titles[name] = title
        self.sensors = sensors
        self.north = north

    def __getitem__(self, name: str) -> Array:
        return self._values[name]

    def __iter__(self) -> Any:
        return iter(self._values)

    def __len__(self) -> int:
        return len(self._values)

    def __getattr__(self, name: str) -> Array:
        try:
            values: dict[str, Array] = self.__dict__["_values"]
            return values[name]
        except KeyError:
            raise AttributeError(f"{type(self).__name__} has no attribute {name!r}") from None

    def __dir__(self) -> list[str]:
        return [*super().__dir__(), *self._values]

    def to_dataframe(self) -> pd.DataFrame:
        """One row for each sensor: place, normal, results; where there are such, when its highest hour begins
        (``peak_start``, in the site's standard time of the year 2001), whether it looks into closed
        geometry (``enclosed``), and area, face and names of its cell."""
        import pandas as pd

        sensors = self.sensors
        data: dict[str, Any] = {}
        for place, name in enumerate("xyz"):
            data[name] = sensors.points[:, place]
        for place, name in enumerate(("nx", "ny", "nz")):
            data[name] = sensors.normals[:, place]
        data.update(self._values)
        if self._zone is not None and "peak_hour" in self:
            ends = np.asarray(self["peak_hour"])  # counted from 1; 0 where nothing shines
            begin = pd.Timestamp("2001-01-01", tz=_fixed_zone(self._zone))
            data["peak_start"] = begin + pd.to_timedelta(np.where(ends > 0, ends - 1.0, np.nan), unit="h")
        if self._enclosed is not None:
            data["enclosed"] = np.asarray(self._enclosed) > 0
        if sensors.areas is not None:
            data["area"] = sensors.areas
        if sensors.objects:
            data["face"] = sensors.faces
            data["object"] = sensors.objects
            data["material"] = sensors.materials
        frame = pd.DataFrame(data)
        frame.index.name = "sensor"
        frame.attrs["units"] = dict(self.units)
        return frame

    def to_xarray(self) -> xr.Dataset:
        """A dataset over the dimension "sensor", with units and long names as attributes."""
        import xarray as xr

        sensors = self.sensors
        coordinates: dict[str, Any] = {"sensor": np.arange(len(sensors))}
        for place, name in enumerate("xyz"):
            coordinates[name] = ("sensor", sensors.points[:, place], {"units": "m"})
        degrees = {"units": "degrees"}
        coordinates["surface_tilt"] = ("sensor", sensors.tilts, degrees)
        coordinates["surface_azimuth"] = (
            "sensor",
            sensors.azimuths(self.north),
            {**degrees, "long_name": "clockwise from true north"},
        )
        if sensors.areas is not None:
            coordinates["area"] = ("sensor", sensors.areas, {"units": "m2"})
        if sensors.objects:
            coordinates["object"] = ("sensor", np.array(sensors.objects))
            coordinates["material"] = ("sensor", np.array(sensors.materials))
        data = {
            name: ("sensor", values, {"units": self.units[name], "long_name": self.titles[name]})
            for name, values in self._values.items()
        }
        return xr.Dataset(data, coordinates)

    def to_pyvista(self) -> pv.PolyData:
        """The cells as a mesh with the results as cell data; points where sensors have no cells.

        Needs pyvista. `insolate` objects of the model are not part of it.
        """
        import pyvista as pv

        core = self.sensors._core
        start = np.asarray(core.cell_start, dtype=np.int64)
        if len(start) > 1:
            mesh = pv.PolyData(np.array(core.corners), _faces(start))
            data = mesh.cell_data
        else:
            mesh = pv.PolyData(np.array(self.sensors.points))
            data = mesh.point_data
        for name, values in self._values.items():
            data[name] = np.array(values)
        if self._values:
            data.active_scalars_name = next(iter(self._values))
        return mesh


def _faces(start: np.ndarray[Any, np.dtype[np.int64]]) -> np.ndarray[Any, np.dtype[np.int64]]:
    """Polygons as VTK lists them, the number of corners before the corners of each.

    Parameters
    ----------
    start : where the corners of each polygon begin, and where the last one's end
    """
    return np.insert(np.arange(start[-1]), start[:-1], np.diff(start))


class Page(os.PathLike[str]):
    """A file with results in 3-D, made by `Radiation.page` or `view`; a notebook shows it in a frame."""

    def __init__(self, path: str) -> None:
        self.path = path

    def __fspath__(self) -> str:
        return self.path

    def __repr__(self) -> str:
        return f"<insolate.Page: {self.path}>"

    def _repr_html_(self) -> str:
        # The whole text: notebooks that lie elsewhere, or travel, find no file.
        with open(self.path, encoding="utf-8") as file:
            text = html.escape(file.read())
        return f'<iframe srcdoc="{text}" style="width: 100%; height: 40rem; border: 0"></iframe>'


def view(folders: Union[Path, Iterable[Path]], path: Optional[Path] = None, *, progress: Progress = None) -> Page:
    """A page of saved results, as ``insolate view`` makes it: side by side and as differences.

    Parameters
    ----------
    folders : path or several
        As the command or `save` has left them.
    path : path, optional
        The page to write; page.html in the first folder by default.

    Returns
    -------
    Page

    Raises
    ------
    UsageError, DataError, OutputError
        With the text of the command.
    """
    listed = [folders] if isinstance(folders, (str, os.PathLike)) else list(folders)
    names = [os.fspath(folder) for folder in listed]
    page = None if path is None else os.fspath(path)
    with Report(progress) as report:
        _core.view(names, page, report)
    return Page(page if page is not None else os.path.join(names[0], "page.html"))


class Results(Columns):
    """Columns of a study that the engine holds: to draw, and to save as the command does."""

    _core: Any
    warnings: list[str]

    def save(self, out: Path, *, progress: Progress = None) -> None:
        """Writes the files of the command, byte by byte the same; a comparison's have no paths of folders.

        Parameters
        ----------
        out : path
            The folder; made when it is missing. All files appear at once, or none.

        Raises
        ------
        OutputError
            When they cannot be written, or would replace somebody else's.
        """
        with Report(progress) as report:
            self._core.save(os.fspath(out), report)

    def page(self, path: Path, *, progress: Progress = None) -> Page:
        """Writes the results in 3-D: one HTML file that every browser opens by itself.

        Parameters
        ----------
        path : path
            The file; its folder is made when it is missing. `page_limit` of `radiation` and
            `sun_hours` bounds its size.

        Returns
        -------
        Page
            The file; as the last value of a notebook's cell it is shown in a frame.

        Raises
        ------
        OutputError
            When it cannot be written, or would replace what is no page of results.
        """
        with Report(progress) as report:
            self._core.page(os.fspath(path), report)
        return Page(os.fspath(path))

    def picture(
        self,
        path: Path,
        *,
        value: Optional[str] = None,
        view: Union[str, tuple[float, float], None] = None,
        only: Union[str, Iterable[str], None] = None,
        hide: Union[str, Iterable[str], None] = None,
        scale: Union[str, tuple[float, float], None] = None,
        title: Optional[str] = None,
        size: Union[str, tuple[int, int], None] = None,
        progress: Progress = None,
    ) -> None:
        """Draws one column in the model, as ``insolate picture`` does.

        Parameters
        ----------
        path : path
            A .png, .svg or .pdf.
        value : str, optional
            The column; by default the first.
        view : str or (azimuth, altitude), optional
            "top", "north", "east", "south", "west", or where the viewer stands [degrees].
        only, hide : str or several, optional
            Objects or materials: those to colour, those to draw nothing of; patterns as "tree_*".
        scale : (lowest, highest), optional
            Ends of the colours in the unit that the picture shows: kWh/m2 for columns in Wh/m2.
        title : str, optional
        size : (width, height), optional
            Pixels; 1600 x 1000 by default.

        Raises
        ------
        UsageError, DataError, OutputError
            With the text of the command.
        """
        given = {"value": value, "only": only, "hide": hide, "title": title}
        pairs = {"view": (view, ","), "scale": (scale, ","), "size": (size, "x")}
        for name, (pair, between) in pairs.items():
            given[name] = pair if pair is None or isinstance(pair, str) else between.join(f"{one:g}" for one in pair)
        with Report(progress) as report:
            self._core.picture(os.fspath(path), option_texts(given), report)


class Comparison(Results):
    """What differs between two results; made by `Radiation.compare`.

    Of each quantity there are four columns: ``total_difference`` (after less before),
    ``total_ratio`` [percent of before, NaN where that is 0], ``total_a`` (before) and ``total_b``
    (after). ``sensors`` are those of the result after that have a partner.
    """

    def __init__(self, core: _core.Comparison, north: float, report: Report) -> None:
        super().__init__(core.columns, Sensors._of(core.sensors), north)
        self._core = core
        self.sensors_a: Array = core.sensors_a  #: numbers of the partners in the result before
        self.sensors_b: Array = core.sensors_b  #: and in the result after, ascending
        self.distances: Array = core.distances  #: between the two [m]
        self.only_a: Array = core.only_a  #: sensors of the result before without a partner
        self.only_b: Array = core.only_b  #: likewise of the result after
        self.tolerance: float = core.tolerance  #: how far apart partners may be [m]
        self.warnings = report.warnings  #: what makes the comparison doubtful

    def __repr__(self) -> str:
        return (
            f"<insolate.Comparison: {len(self.sensors)} pairs, {len(self.only_a)} sensors only before, "
            f"{len(self.only_b)} only after>"
        )


class Radiation(Results):
    """Radiation on sensors over a period; made by `radiation`.

    Columns of the hourly method, as attributes and by name: ``total``, ``beam``, ``sky``,
    ``ground`` [Wh/m2]; ``average_daylight``, ``average_period``, ``peak`` [W/m2]; ``peak_hour``
    (hour of the year, counted by its end); ``sky_view``, ``ground_view`` [%];
    ``direct_sun_hours`` [h]; ``reflected`` [Wh/m2] where surfaces reflect. Arrays are views that cannot be written to.
    """

    def __init__(
        self, core: _core.Study, models: list[Model], sensors: Sensors, weather: Weather, north: float, report: Report
    ) -> None:
        super().__init__(core.columns, sensors, north)
        self._core = core
        self._enclosed = core.enclosed_sensors
        self._zone = weather.site.time_zone
        self.models = models
        self.weather = weather
        self.notes = report.notes  #: what the work said
        self.warnings = report.warnings  #: what should not be overlooked

    @property
    def summary(self) -> dict[str, Any]:
        """What summary.json would hold: versions, weather, period, options, ranges."""
        summary: dict[str, Any] = json.loads(self._core.summary)
        return summary

    def hours(self, sensors: Iterable[int], *, progress: Progress = None) -> xr.Dataset:
        """The hours of some sensors.

        Parameters
        ----------
        sensors : iterable of int
            Numbers of sensors, from 0, or a mask of all of them.

        Returns
        -------
        xarray.Dataset
            ``poa_direct``, ``poa_sky_diffuse``, ``poa_ground_diffuse``, where surfaces reflect
            ``poa_reflected``, and their sum ``poa_global`` [W/m2], means over the hours; dimensions
            "sensor" and "time", 8,760 begins of hours in the site's standard time, of a year
            without 29 February. They are 0 outside of the period.

        Raises
        ------
        UsageError
            When there is no such sensor, or the method is not the hourly one.
        """
        import pandas as pd
        import xarray as xr

        if not isinstance(sensors, Iterable):
            raise _core.UsageError(f"sensors {sensors!r}: give their numbers, as [{sensors!r}]")
        given = np.asarray(sensors if hasattr(sensors, "__len__") else list(sensors))
        if given.dtype == np.bool_ and given.shape == (len(self.sensors),):
            given = np.flatnonzero(given)
        if given.ndim != 1 or (given.size and given.dtype.kind not in "iu"):
            raise _core.UsageError("sensors: give their numbers, counted from 0, or a mask as long as the sensors")
        numbers = [int(sensor) for sensor in given]
        if any(number < 0 for number in numbers):
            raise _core.UsageError(f"there is no sensor {min(numbers)}; sensors are counted from 0")
        with Report(progress) as report:
            parts = self._core.hours(numbers, report)
        zone = _fixed_zone(self.weather.site.time_zone)
        begins = pd.date_range("2001-01-01", periods=8760, freq="h")
        attributes = {"units": "W/m2", "cell_methods": "time: mean"}
        names = _hour_names[: len(parts)]  # the last one only where surfaces reflect
        data = {name: (("sensor", "time"), part, attributes) for name, part in zip(names, parts, strict=True)}
        data["poa_global"] = (("sensor", "time"), sum(parts[1:], parts[0]), attributes)
        time = ("time", begins, {"time_zone": str(zone), "label": "left"})
        return xr.Dataset(data, {"sensor": numbers, "time": time})

    def groups(self, *by: str) -> pd.DataFrame:
        """Results by what sensors have in common.

        Parameters
        ----------
        *by : {"object", "material", "orientation", "tilt"}
            Keys whose values make a group together, one by one or with commas; none, or "all",
            puts all sensors into one group.

        Returns
        -------
        pandas.DataFrame
            Indexed by the keys; ``sensors``, ``area`` [m2], and of each column the ``mean``,
            ``lowest``, ``highest`` and ``sum``. Means are weighted by area, and sums are values
            times area, where sensors have cells.

        Raises
        ------
        UsageError
            When there is no such key.
        """
        import pandas as pd

        keys = ("object", "material", "orientation", "tilt")
        by = tuple(key.strip() for words in by for key in words.split(",") if words != "all")
        listed = self._core.groups(",".join(by) or "all")
        columns: dict[tuple[str, str], list[float]] = {
            (name, what): [] for name in self for what in ("mean", "lowest", "highest", "sum")
        }
        for group in listed:
            for name, (total, mean, lowest, highest) in zip(self, group[6], strict=True):
                for what, value in zip(
                    ("mean", "lowest", "highest", "sum"), (mean, lowest, highest, total), strict=True
                ):
                    columns[name, what].append(value)
        frame = pd.DataFrame(columns)
        frame.insert(0, ("sensors", ""), [group[4] for group in listed])
        frame.insert(1, ("area", ""), [group[5] for group in listed])
        if by:
            names = [[group[keys.index(key)] for group in listed] for key in by]
            frame.index = (
                pd.MultiIndex.from_arrays(names, names=list(by)) if len(by) > 1 else pd.Index(names[0], name=by[0])
            )
        return frame

    def compare(
        self, after: Radiation, *, value: Union[str, Iterable[str], None] = None, tolerance: Optional[float] = None
    ) -> Comparison:
        """What another result, later perhaps, has more or less than this one, sensor by sensor.

        Parameters
        ----------
        after : Radiation
            Of the same period; of other weather or another method with a warning.
        value : str or several, optional
            Columns to compare; all that both have by default.
        tolerance : float, optional
            How far apart sensors may be that stand for the same place [m]; by default three
            quarters of the edge of the coarser grid's cells.

        Raises
        ------
        UsageError, DataError
            When the two cannot be compared.
        """
        values = [value] if isinstance(value, str) else list(value or [])
        with Report(False) as report:
            core = _core.compare(self._core, after._core, values, tolerance, report)
        return Comparison(core, after.north, report)

    def _repr_html_(self) -> str:
        frame = self.groups(*(("object",) if self.sensors.objects else ()))
        means = frame.xs("mean", axis=1, level=1)
        means.columns = [f"{name} [{self.units[name]}]" for name in means.columns]
        means.insert(0, "sensors", frame[("sensors", "")])
        most = 20
        left = f"<p>and {len(means) - most} more</p>" if len(means) > most else ""
        heading = html.escape(repr(self)[1:-1])
        return f"<p>{heading}; means by object</p>{means.head(most).to_html(float_format='{:.4g}'.format)}{left}"

    def __repr__(self) -> str:
        return f"<insolate.Radiation: {len(self.sensors)} sensors; {self._core.subtitle}>"


_run_keywords = (
    "period",
    "hours",
    "step",
    "method",
    "albedo",
    "allow_gaps",
    "tolerance",
    "sky_tolerance",
    "sun_tolerance",
    "open_ground",
    "reflectance",
    "bounces",
    "rays",
    "save_masks",
    "masks",
    "dst",
    "hours_of",
    "split",
    "periods",
    "unshaded",
    "by",
    "tilt_classes",
    "flat",
    "sectors",
    "classes",
    "best",
    "enclosed",
    "page",
    "page_limit",
    "threads",
)


@documented(_core.run_options, *_run_keywords)
def radiation(
    model: Any,
    sensors: Union[Sensors, Selection, Model],
    weather: Union[Weather, Path],
    *,
    period: Any = None,
    hours: Any = None,
    step: Optional[float] = None,
    method: Optional[str] = None,
    albedo: Union[float, str, None] = None,
    allow_gaps: bool = False,
    north: Optional[float] = None,
    tolerance: Optional[float] = None,
    sky_tolerance: Optional[float] = None,
    sun_tolerance: Optional[float] = None,
    open_ground: bool = False,
    reflectance: Optional[float] = None,
    bounces: Optional[int] = None,
    materials: Union[Mapping[str, Mapping[str, Any]], Path, None] = None,
    rays: Optional[str] = None,
    save_masks: bool = False,
    masks: Optional[Path] = None,
    dst: Optional[str] = None,
    hours_of: Union[str, Iterable[int], None] = None,
    split: Optional[str] = None,
    periods: Union[str, Iterable[str], None] = None,
    unshaded: bool = False,
    by: Optional[Iterable[str]] = None,
    tilt_classes: Union[str, Iterable[float], None] = None,
    flat: Optional[float] = None,
    sectors: Optional[int] = None,
    classes: Union[str, Iterable[float], None] = None,
    best: Optional[float] = None,
    enclosed: Optional[str] = None,
    page: bool = False,
    page_limit: Optional[float] = None,
    threads: Optional[int] = None,
    since: Optional[Radiation] = None,
    client: Any = None,
    store: Optional[Path] = None,
    resume: bool = False,
    block: Optional[int] = None,
    progress: Progress = None,
) -> Radiation:
    """Radiation on sensors of a model over a period.

    Parameters
    ----------
    model : Model, a trimesh or pyvista mesh, or a list of such
        What casts shadows.
    sensors : Sensors, or a Selection or Model with the default grid
    weather : Weather or path
    {options}
    materials : path or mapping of names to mappings, optional
        What surfaces reflect and let through: a TOML file, or its tables [material."NAME"] as
        ``{"glass*": {"transmittance": 0.72}, "roof": {"reflectance": 0.3}}``. Others reflect
        what `reflectance` says.
    north : float, optional
        From the model's +Y clockwise to true north [degrees]; by default the model's own.
    since : Radiation, optional
        An earlier result of the same weather, period and options, for a changed model: only
        sensors whose sky or ground the change can touch are calculated, all others keep their sun,
        sky and ground. What surfaces reflect is found anew for all; with ``reflectance=0`` there
        is none. The result is the same bytes as without. Sensors are the same where their places
        and normals are. With tolerances less can be kept, and nothing where the model's middle
        or extent has changed, with materials, or of a result that workers have calculated.
    client : distributed.Client, optional
        Whose workers calculate the sensors, in blocks; the result is the same bytes. Needs
        ``insolate[dask]``; see `insolate.city` for what does not fit into one process.
    store : path, optional
        A folder that all workers share under the same name, for finished blocks; by default one
        that is deleted afterwards, in the machine's own folder of temporary files. Also without a
        client.
    resume : bool
        Go on with the blocks that an earlier run has left in the store.
    block : int, optional
        Sensors of a block, rounded up to whole ones of 2,048, or where surfaces reflect of 16,384;
        by default their number decides alone.
    progress : bool or function(done, total), optional
        True for a bar; by default there is one in a terminal or notebook.

    Returns
    -------
    Radiation

    Raises
    ------
    UsageError, DataError
        With the text of the command, which names options with their dashes.
    KeyboardInterrupt
        Ctrl-C stops the work within a blink.

    Notes
    -----
    The interpreter is free meanwhile: other threads of Python go on. Results are the same bytes
    for every number of threads.
    """
    given = {name: value for name, value in locals().items() if name in _run_keywords}
    models = as_models(model)
    cells = as_sensors(sensors)
    year = weather if isinstance(weather, Weather) else read_weather(weather)
    turned = north_of(models, north)
    if client is not None or store is not None:
        from .distributed import radiation_of

        if since is not None:
            raise _core.UsageError("since: runs in one process; leave client and store out")
        texts = option_texts({**given, "north": turned})
        tables = _materials_text(materials)
        with Report(progress) as report:
            core = radiation_of(
                models,
                cells,
                year,
                texts,
                tables,
                client=client,
                store=store,
                resume=resume,
                block=block,
                report=report,
            )
        return Radiation(core, models, cells, year, turned, report)
    tables = materials_toml(materials) if isinstance(materials, Mapping) else ""
    file = None if isinstance(materials, Mapping) else materials
    with Report(progress) as report:
        core = _core.radiation(
            [one._core for one in models],
            cells._core,
            year._core,
            option_texts({**given, "north": turned, "materials": file}),
            tables,
            None if since is None else since._core,
            report,
        )
    return Radiation(core, models, cells, year, turned, report)


def _materials_text(materials: Union[Mapping[str, Mapping[str, Any]], Path, None]) -> str:
    """What a file of materials holds, for machines that may not have it."""
    if materials is None:
        return ""
    if isinstance(materials, Mapping):
        return materials_toml(materials)
    try:
        with open(materials, encoding="utf-8") as file:
            return file.read()
    except OSError as problem:
        raise _core.DataError(f"{os.fspath(materials)}: cannot be read; {problem.strerror}") from None


def sky_view(
    model: Any,
    sensors: Union[Sensors, Selection, Model],
    *,
    threads: int = 0,
    progress: Progress = None,
) -> Columns:
    """What sensors see of the sky and of the ground: ``sky_view`` and ``ground_view`` [%].

    Parameters
    ----------
    model, sensors, threads, progress
        As for `radiation`.

    Returns
    -------
    Columns
        Cosine-weighted shares of what lies before a surface. They are found with two rays for
        each of 1,296 cells of the sky; those of `radiation` stand where the period has its sun,
        and so may differ by tenths of a percent.
    """
    models = as_models(model)
    cells = as_sensors(sensors)
    north = north_of(models)
    with Report(progress) as report:
        columns = _core.sky_view([one._core for one in models], cells._core, north, threads, report)
    return Columns(columns, cells, north)


def visible(model: Any, origins: Any, directions: Any, *, progress: Progress = None) -> Array:
    """Whether rays leave the model without meeting a triangle.

    Parameters
    ----------
    model : as for `radiation`
    origins : array_like of float, shape (3,) or (n, 3)
        Where the rays begin [m]. What is nearer than a centimetre does not count.
    directions : array_like of float, shape (3,) or (n, 3)
        Of any length but zero; one origin goes with many directions, and the reverse. A ray along the
        common edge of two triangles meets them.

    Returns
    -------
    numpy.ndarray of bool, shape (n,)

    Examples
    --------
    >>> import insolate as ins
    >>> wall = ins.Model([[0, 1, 0], [9, 1, 0], [9, 1, 3], [0, 1, 3]], [[0, 1, 2, 3]])
    >>> ins.visible(wall, [4, 0, 1], [[0, 1, 0], [0, -1, 0]]).tolist()
    [False, True]
    """
    starts, ways = np.broadcast_arrays(
        np.atleast_2d(np.asarray(origins, dtype=np.float64)), np.atleast_2d(np.asarray(directions, dtype=np.float64))
    )
    if starts.ndim != 2 or starts.shape[1] != 3:
        raise _core.DataError(f"origins and directions must have the shape (n, 3), not {starts.shape}")
    lengths = np.linalg.norm(ways, axis=1)
    if not (np.isfinite(starts).all() and np.isfinite(lengths).all() and (lengths > 0.0).all()):
        raise _core.DataError("origins and directions must be finite, and no direction zero")
    with Report(progress) as report:
        return _core.visible(
            [one._core for one in as_models(model)],
            np.ascontiguousarray(starts),
            np.ascontiguousarray(ways),
            report,
        )
