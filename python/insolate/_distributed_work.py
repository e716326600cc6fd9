"""What a worker does: it reads a tile, or calculates a block of sensors, and leaves a receipt."""

from __future__ import annotations

import errno
import os
import threading
import time
import traceback
from collections.abc import Callable, Mapping, Sequence
from pathlib import Path
from typing import Any, NamedTuple, Optional, Union

import numpy as np

from . import _core
from ._distributed_context import Grid, horizon_walls, mesh_of, slope_classes
from ._distributed_store import (
    SceneArrays,
    Store,
    block_name,
    hours_chunk,
    hours_step,
    peak_memory,
    sum_of,
    survey_name,
)
from ._model import Array, Model, Sensors, read_model
from ._options import OptionTexts
from ._reports import Report

#: A tile's model, or where to read it; or several, of which the first has the sensors.
Models = Union[str, os.PathLike[str], Model, Sequence[Union[str, os.PathLike[str], Model]]]
#: Where a tile comes from: its models, or a function that gives them, with their sensors or without.
Source = Union[Models, Callable[[], Union[Models, tuple[Models, Optional[Sensors]]]]]


class Job(NamedTuple):
    """What all tasks of a run share."""

    store: str
    durable: bool  #: whether the store outlasts a power cut
    weather: str  #: its file in the store
    texts: OptionTexts
    materials: str  #: the text of their file
    about_reflected: str  #: what the results say of reflected light; "" without
    block: int  #: sensors of a block, and of a chunk
    columns: list[tuple[str, str, str]]  #: names, units and titles
    hours: bool
    threads: Optional[int]  #: None: those of the worker
    version: str


class TileSource(NamedTuple):
    """A tile that is to be read."""

    tile: str
    source: Source
    reading: Mapping[str, Any]  #: keywords of `read_model`
    cutting: Mapping[str, Any]  #: keywords of `Model.select` and `Selection.sensors`
    tall: tuple[float, ...]  #: heights above its lowest corner, with a file each of what rises above [m]


def identity_of(source: Source) -> Optional[list[Any]]:
    """What tells whether a source is still the one that was read; None of a file that cannot be seen.

    What a function gives cannot be known without calling it: all functions are the same.
    """
    if isinstance(source, Model):
        return ["model", SceneArrays.of(source).digest, source.north]
    if callable(source):
        return ["function"]
    if isinstance(source, (list, tuple)):
        parts = [identity_of(part) for part in source]
        return None if None in parts else ["list of models", *parts]
    try:
        status = os.stat(source)  # type: ignore[arg-type, unused-ignore]
    except OSError:
        return None
    return ["file", status.st_size, status.st_mtime_ns]


def check_source(source: Source) -> None:
    """
    Raises
    ------
    DataError
        When a source is nothing that can be read.
    """
    parts = source if isinstance(source, (list, tuple)) else [source]
    for part in parts:
        is_function = callable(part) and part is source
        if not isinstance(part, (Model, str, os.PathLike)) and not is_function:
            raise _core.DataError(f"is {part!r}; give a file, a Model, a list of these, or a function that gives them")


def holds_models(source: Source) -> bool:
    """Whether a source is in the memory of this process, and not to be read."""
    return isinstance(source, Model) or (isinstance(source, (list, tuple)) and any(map(holds_models, source)))


def _given_by(source: Source, reading: Mapping[str, Any]) -> tuple[list[Model], Optional[Sensors], bool]:
    """The models of a tile, its sensors, and whether these are still to be cut.

    Raises
    ------
    DataError
        When a file cannot be read, or the models do not go together.
    """
    made: Any = source
    if callable(made) and not isinstance(made, Model):
        try:
            made = made()
        except OSError as problem:  # of a file of the caller's, not of the store
            raise _core.DataError(f"{problem}; give a function that can read its files on every worker") from None
        except (_core.Error, MemoryError):
            raise
        except Exception as problem:
            place = traceback.extract_tb(problem.__traceback__)[-1]
            raise _core.DataError(
                f"its function raised {type(problem).__name__}: {problem} ({place.filename}, line {place.lineno})"
            ) from problem
    sensors: Optional[Sensors] = None
    is_open = True
    if isinstance(made, tuple) and len(made) == 2 and (made[1] is None or isinstance(made[1], Sensors)):
        made, sensors = made
        is_open = False
    parts = list(made) if isinstance(made, (list, tuple)) else [made]
    check_source(parts)
    models = [one if isinstance(one, Model) else read_model(one, **reading) for one in parts]
    if not models:
        raise _core.DataError("has no model; give one, or leave the tile out")
    for one in models:
        if one.north != models[0].north:
            raise _core.DataError(
                f"{models[0].name} and {one.name} have their true north at {models[0].north:g} and {one.north:g} "
                "degrees; give the models of a tile one north"
            )
    return models, sensors, is_open


class Horizon(NamedTuple):
    """Terrain beyond the geometry."""

    file: str  #: of the heights, in the store
    west: float
    north: float
    step: tuple[float, float]  #: of its cells [m]
    centre: tuple[float, float]
    low: float
    start: float
    directions: int


class TileScene(NamedTuple):
    """What shades a tile; a key too."""

    tile: str
    own: tuple[str, ...]  #: files of scenes in the store
    neighbours: tuple[str, ...] = ()
    box: tuple[float, float, float, float] = (0.0, 0.0, 0.0, 0.0)  #: of the tile in plan
    radius: float = 0.0  #: around the box, within which all faces count
    low: float = 0.0  #: of the tile's lowest sensor, where the line begins above which others count
    slope: float = 0.0  #: of the line
    horizon: Optional[Horizon] = None
    origin: Optional[tuple[float, float, float, float]] = None


class Block(NamedTuple):
    """Sensors that are calculated and stored together."""

    scene: TileScene
    number: int
    first: int
    end: int

    @property
    def name(self) -> str:
        return block_name(self.scene.tile, self.number)


def as_output_error(path: str, problem: OSError) -> _core.OutputError:
    """A failed write in words, with what to do."""
    full = problem.errno in (errno.ENOSPC, errno.EDQUOT)
    fix = "free some space" if full else "put it right"
    return _core.OutputError(f"{path}: {problem.strerror or problem}; {fix} and run again with resume=True")


class Scenes:
    """The studies that a process keeps ready, the last one of them; one block at a time.

    The engine takes all threads of the process for one block: several at once would only meet.
    """

    def __init__(self) -> None:
        self._lock = threading.Lock()
        self._key: Any = None
        self._study: Optional[_core.Study] = None
        self._sky_key: Any = None
        self._sky: tuple[_core.Weather, Optional[_core.Study]]  # its weather, and a study without a scene
        self._report = Report(False)
        self._store: Optional[Store] = None

    def _store_of(self, job: Job) -> Store:
        store = self._store
        if store is None or str(store.path) != job.store:
            store = self._store = Store(job.store, job.durable)
        return store

    def survey(self, job: Job, task: TileSource) -> dict[str, Any]:
        """Reads a tile and cuts its sensors; files and arrays are in the store afterwards."""
        store = self._store_of(job)
        receipt = store.receipt(survey_name(task.tile))
        if receipt is not None and store.has_files(receipt["scenes"]):
            return receipt
        try:
            store.manifest()
            identity = identity_of(task.source)  # before it is read: a file that changes meanwhile is found out
        except OSError as problem:
            raise as_output_error(job.store, problem) from None
        models, sensors, is_open = _given_by(task.source, task.reading)
        nothing = ""
        if is_open:
            try:
                sensors = cut(models[0], task.cutting)
            except _core.DataError as problem:  # a tile without roofs still shades others
                nothing = str(problem)
        try:
            return self._survey(store, job, task, models, sensors, {"source": identity, "nothing": nothing})
        except OSError as problem:
            raise as_output_error(job.store, problem) from None

    def _survey(
        self,
        store: Store,
        job: Job,
        task: TileSource,
        models: list[Model],
        sensors: Optional[Sensors],
        known: dict[str, Any],
    ) -> dict[str, Any]:
        count = len(sensors) if sensors is not None else 0
        scene = SceneArrays.joined([SceneArrays.of(model) for model in models])
        box = scene.box()
        receipt: dict[str, Any] = {
            **known,
            "tile": task.tile,
            "north": models[0].north,
            "scenes": [
                store.add_scene(scene),
                *(store.add_scene(scene.tall(float(box[0, 2]) + height)) for height in task.tall),
            ],
            "faces": len(scene.counts),
            "sensors": count,
        }
        if sensors is not None and count:
            receipt["sums"] = keep_sensors(store, job, task.tile, sensors)
            receipt["low"] = float(sensors.points[:, 2].min())
            receipt["slopes"] = slope_classes(sensors.tilts)
            # Rays begin at sensors: what they span counts for the origin.
            places = np.concatenate([box, sensors.points])
            receipt["span"] = [places.min(axis=0).tolist(), places.max(axis=0).tolist()]
        else:
            receipt["span"] = box.tolist()
        receipt["box"] = box.tolist()
        return store.give_receipt(survey_name(task.tile), receipt)

    def block(self, job: Job, task: Block) -> dict[str, Any]:
        """Calculates a block and writes it, unless it is finished."""
        store = self._store_of(job)
        receipt = store.receipt(task.name)
        if receipt is not None:
            return receipt
        try:
            with self._lock:
                store.note("begin", task.name)
                begin, used = time.monotonic(), time.process_time()
                columns, receipt, written = self._calculate(store, job, task)
                # Of the whole process, which calculates one block at a time: with the writing of the one before.
                receipt["processor_seconds"] = round(time.process_time() - used, 3)
            store.check_is_there()
            for name, _, _, values in columns:
                written |= store.write(task.scene.tile, name, task.first, values)
            store.settle(written)
            receipt["seconds"] = round(time.monotonic() - begin, 3)
            receipt["memory"] = peak_memory()
            store.give_receipt(task.name, receipt)
            store.note("finished", task.name, seconds=receipt["seconds"], memory=receipt["memory"])
            return receipt
        except OSError as problem:
            raise as_output_error(job.store, problem) from None

    def _sky_of(self, store: Store, job: Job) -> tuple[_core.Weather, Optional[_core.Study]]:
        """What scenes share, a fifth of a second of each: the year of the same weather and options."""
        key = (job.weather, str(job.texts), job.materials)
        if key != self._sky_key:
            weather = store.weather(job.weather)
            # Materials are of one scene, which has the names that their tables need.
            self._sky = weather, None if job.materials else sky_alone(weather, job.texts, Report(False))
            self._sky_key = key
        return self._sky

    def _calculate(self, store: Store, job: Job, task: Block) -> tuple[Any, dict[str, Any], set[Path]]:
        key = (job.store, job.weather, str(job.texts), job.materials, task.scene)
        if self._study is None or key != self._key:
            self._study = None  # before the next one takes its memory
            self._report = Report(False)
            self._study, self._key = _study_of(store, job, task.scene, *self._sky_of(store, job), self._report), key
        tile = task.scene.tile
        points, normals = store.sensors(tile, task.first, task.end)
        others = self._study.others(points, normals, self._report)
        columns = [(*known, np.array(values)) for *known, values in others.columns]
        written: set[Path] = set()
        if job.hours:
            for first in range(task.first, task.end, hours_chunk[0]):
                end = min(first + hours_chunk[0], task.end)
                hours = others.hours(first - task.first, end - task.first, None)
                written |= store.write(tile, "poa_global", first, np.rint(hours / hours_step).astype(np.uint16))
        del others  # it holds the scene
        for text in self._report.warnings:
            store.keep_warning(text)
        self._report.warnings.clear()
        totals = np.asarray(columns[0][3], dtype=np.float64)
        areas = store.part(tile, "area", task.first, task.end).astype(np.float64)
        known = np.isfinite(areas)
        receipt = {
            "tile": tile,
            "block": task.number,
            "sensors": len(totals),
            "mean": float(totals.mean()),
            "lowest": float(totals.min()),
            "highest": float(totals.max()),
            "area": float(areas[known].sum()),
            "energy": float((totals * areas)[known].sum()),
            "sums": {name: sum_of(np.asarray(values, np.float32)) for name, _, _, values in columns},
        }
        return columns, receipt, written


def cut(model: Model, cutting: Mapping[str, Any]) -> Sensors:
    """Sensors on a model, by keywords of `Model.select` and `Selection.sensors`."""
    given = dict(cutting)
    patterns = given.pop("select", None) or ()
    chosen = {name: given.pop(name, None) for name in ("exclude", "facing", "tilt")}
    patterns = (patterns,) if isinstance(patterns, str) else patterns
    return model.select(*patterns, **chosen).sensors(**given)


def keep_sensors(store: Store, job: Job, tile: str, sensors: Sensors) -> list[dict[str, int]]:
    """Makes the arrays of a tile and writes what is known of its sensors.

    Returns
    -------
    list of dict
        For each block the sums of its columns.
    """
    count = len(sensors)
    store.create_tile(tile, count, job.block, job.columns, job.hours)
    names: dict[str, int] = {}
    objects = [names.setdefault(name, len(names)) if name else -1 for name in sensors.objects]
    given: dict[str, Array] = {
        **{axis: sensors.points[:, place] for place, axis in enumerate("xyz")},
        **{axis: sensors.normals[:, place] for place, axis in enumerate(("nx", "ny", "nz"))},
        "area": np.full(count, np.nan, np.float32) if sensors.areas is None else np.asarray(sensors.areas, np.float32),
        "object": np.array(objects or [-1] * count, dtype=np.int32),
    }
    written: set[Path] = set()
    for name, values in given.items():
        written |= store.write(tile, name, 0, np.ascontiguousarray(values))
    import zarr

    path = store.results / tile if tile else store.results
    group = zarr.open_group(str(path), mode="r+")
    group.attrs["objects"] = list(names)
    if job.about_reflected:
        group.attrs["reflected_light"] = job.about_reflected
    store.settle(written.union([path / "zarr.json"], path.glob("*/zarr.json")))
    return [
        {name: sum_of(values[first : first + job.block]) for name, values in given.items()}
        for first in range(0, count, job.block)
    ]


def sky_alone(weather: _core.Weather, texts: OptionTexts, report: Report) -> _core.Study:
    """A study before next to nothing."""
    plate = np.array([[0.0, 0.0, 0.0], [9.0, 0.0, 0.0], [0.0, 9.0, 0.0]])
    mesh = mesh_of(plate, np.array([[0, 1, 2]]), "plate")
    return _core.prepare_study([mesh], None, weather, texts, "", None, None, report)


def _study_of(
    store: Store,
    job: Job,
    scene: TileScene,
    weather: _core.Weather,
    sky: Optional[_core.Study],
    report: Report,
) -> _core.Study:
    box = np.array([[scene.box[0], scene.box[1]], [scene.box[2], scene.box[3]]])
    meshes = [store.scene(name).mesh(name) for name in scene.own]
    for name in scene.neighbours:
        meshes.append(store.scene(name).shading(box, scene.radius, scene.low, scene.slope).mesh(name))
    if scene.horizon is not None:
        seen = scene.horizon
        grid = Grid(store.array(seen.file), seen.west, seen.north, seen.step)
        walls = horizon_walls(grid, seen.centre, seen.low, seen.start, seen.directions)
        if len(walls[1]):
            meshes.append(mesh_of(*walls, "horizon"))
    return _core.prepare_study(
        [mesh for mesh in meshes if mesh is not None],
        None,
        weather,
        job.texts,
        job.materials,
        scene.origin,
        sky,
        report,
    )
