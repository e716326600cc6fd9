"""Studies on many machines: one scene, or a city in tiles, on dask.distributed.

>>> from dask.distributed import Client, LocalCluster                       # doctest: +SKIP
>>> client = Client(LocalCluster(n_workers=1, threads_per_worker=8))        # doctest: +SKIP
>>> result = ins.radiation(model, sensors, weather, client=client)          # doctest: +SKIP
>>> city = ins.city(tiles, weather, store="city", client=client)            # doctest: +SKIP

Needs the extra ``insolate[dask]``. See docs/cluster.md for machines, plans and what happens when
something fails.
"""

from __future__ import annotations

import contextlib
import math
import os
import shutil
import tempfile
import threading
import time
from collections.abc import Callable, Iterable, Iterator, Mapping
from typing import TYPE_CHECKING, Any, NamedTuple, Optional, Union

import numpy as np

from . import _core
from ._distributed_context import (
    Grid,
    Neighbourhood,
    far,
    grid_of,
    light_below,
    usual_min_altitude,
    usual_radius,
)
from ._distributed_store import (
    SceneArrays,
    Store,
    WeatherFile,
    block_name,
    checked_name,
    digest_of,
    hours_chunk,
    survey_name,
)
from ._distributed_work import (
    Block,
    Horizon,
    Job,
    Scenes,
    Source,
    TileScene,
    TileSource,
    check_source,
    holds_models,
    identity_of,
    keep_sensors,
    sky_alone,
)
from ._model import Array, Model, Names, Path, Sensors
from ._options import OptionTexts, option_texts
from ._reports import Progress, Report
from ._weather import Weather, read_weather

if TYPE_CHECKING:
    import pandas as pd
    import xarray as xr

__all__ = ["City", "Incomplete", "city", "tiles_of"]

#: Sensors of a block of one scene: at least half a second of a thread at 17,000 sensors a second, so that
#: what belongs to blocks is a twentieth of it, and in large studies 128 blocks, which leave few workers idle.
least_block, most_block, blocks_of_scene = 10_240, 262_144, 128
#: And of a tile: 31 s of a thread. Hours take ten times as long.
tile_block, tile_block_with_hours = 524_288, 65_536
#: How long the cluster may be without any worker [s].
patience = 300.0
#: How often its workers are counted [s].
seconds_between_looks = 1.0
#: How often a block is given out again whose workers died; Dask has tried three others each time.
submissions = 3
#: How long a run that fails waits for the tasks that its workers are in the midst of [s].
patience_at_end = 5.0


class Incomplete(_core.OutputError):  # type: ignore[misc, unused-ignore]
    """Something is missing that the same call with ``resume=True`` can calculate, and calculates alone.

    A disk, the memory, workers or the scheduler have failed. What is wrong with inputs or options raises
    `DataError` and `UsageError`, since another call would meet it again. ``missing`` names the blocks, or
    the tiles that are still to be read, with the reasons where there are some.
    """

    def __init__(self, text: str, missing: Optional[dict[str, str]] = None) -> None:
        super().__init__(text)
        self.missing = dict(missing or {})

    def __reduce__(self) -> Any:
        return Incomplete, (self.args[0], self.missing)


class _Failure(NamedTuple):
    text: str
    is_final: bool = False  #: nothing else can succeed either
    error: type[_core.Error] = Incomplete


class _ProgressError(Exception):
    """Carries an OSError of the caller's progress function past those of the store and the scheduler."""


class _ThisProcess:
    """Runs tasks in this process."""

    def __init__(self) -> None:
        self._scenes = Scenes()

    def wait_for_end(self) -> None:
        """Nothing runs on."""

    def run(self, job: Job, tasks: Iterable[tuple[str, Any]], done: Callable[[Any], None]) -> dict[str, _Failure]:
        failures: dict[str, _Failure] = {}
        job = _with_threads(job, job.threads or 0)
        for name, task in tasks:
            try:
                _do(self._scenes, job, task)
                done(task)
            except (_core.Error, MemoryError, OSError) as problem:
                failures[name] = _failure(problem)
                if failures[name].is_final:
                    break
        return failures


def _failure(problem: BaseException) -> _Failure:
    text = str(problem) or type(problem).__name__
    if isinstance(problem, MemoryError):
        return _Failure(f"{text}: the memory is full; calculate on a machine with more, or in smaller tiles")
    if isinstance(problem, (_core.OutputError, OSError)):
        return _Failure(text, True)
    return _Failure(text, False, _core.UsageError if isinstance(problem, _core.UsageError) else _core.DataError)


def _do(scenes: Scenes, job: Job, task: Any) -> dict[str, Any]:
    return scenes.block(job, task) if isinstance(task, Block) else scenes.survey(job, task)


def _do_on_worker(job: Job, task: Any) -> dict[str, Any]:
    from distributed import get_worker

    worker = get_worker()
    job = _with_threads(job, job.threads or worker.state.nthreads)
    with _starting:
        # A worker that starts while the client registers may be passed over.
        if _plugin_name not in worker.plugins:
            plugin = _plugin(job.version)
            plugin.setup(worker)
            worker.plugins[_plugin_name] = plugin
        scenes: Scenes = worker.plugins[_plugin_name].scenes
    return _do(scenes, job, task)


def _with_threads(job: Job, threads: int) -> Job:
    return job._replace(texts=[*job.texts, ("threads", [str(threads)])])


#: Options that sensors do not depend on: those of the whole, which the client sees to.
_of_the_whole = {"hours-of", "by", "tilt-classes", "classes", "best", "enclosed", "page", "page-limit", "threads"}


def _of_sensors(texts: OptionTexts) -> OptionTexts:
    return [one for one in texts if one[0] not in _of_the_whole]


_plugin_name = "insolate"
_starting = threading.Lock()


def _plugin(version: str) -> Any:
    from ._distributed_plugin import ScenesPlugin

    return ScenesPlugin(version)


class _Dask:
    """Runs tasks on the workers of a client.

    A worker has two at a time: it calculates one of them, with all of its threads, while the other
    is written or waits. More would wait where an idle worker cannot fetch them.
    """

    def __init__(self, client: Any) -> None:
        self._client = client
        client.register_plugin(_plugin(_core.version), name=_plugin_name)
        try:
            client.wait_for_workers(1, timeout=patience)
        except TimeoutError:
            raise Incomplete(f"{_no_worker()}; then run again, with resume=True where the store has results") from None
        self._seen = time.monotonic()
        self._look()

    def _look(self) -> None:
        """Counts the workers, of which new ones may have come and all may be gone."""
        self._looked = time.monotonic()
        workers = len(self._client.nthreads())
        if workers:
            self._seen = self._looked
        self._at_once = 2 * max(1, workers)

    def _wait(self, completed: Any) -> bool:
        """Waits for the next task to end; False when there has been no worker for too long."""
        while not completed.has_ready():
            if time.monotonic() - self._looked > seconds_between_looks:
                self._look()
                if self._looked - self._seen > patience:
                    return False
            time.sleep(0.03)  # short beside a block, and rare: the processor may be a worker's
        return True

    def wait_for_end(self) -> None:
        """Waits a little for tasks that were cancelled while they ran: no worker can stop them."""
        end = time.monotonic() + patience_at_end

        def wait() -> None:
            with contextlib.suppress(Exception):  # the failure that led here is what counts
                while self._client.status == "running" and time.monotonic() < end:
                    if not any(self._client.run(_is_busy, on_error="ignore").values()):
                        break
                    time.sleep(0.05)

        # Dask waits without end for the answer of a worker that dies meanwhile, as by Ctrl-C in a terminal.
        waiting = threading.Thread(target=wait, daemon=True)
        waiting.start()
        waiting.join(patience_at_end)

    def run(self, job: Job, tasks: Iterable[tuple[str, Any]], done: Callable[[Any], None]) -> dict[str, _Failure]:
        from distributed import as_completed
        from distributed.scheduler import KilledWorker, NoValidWorkerError

        failures: dict[str, _Failure] = {}
        names: dict[str, tuple[str, Any, int]] = {}  # of the tasks that are out, by their keys
        active: dict[str, Any] = {}
        completed = as_completed()
        waiting = iter(tasks)
        run = os.urandom(6).hex()
        stopped = False

        def submit(name: str, task: Any, attempt: int) -> None:
            key = f"insolate-{name}-{run}-{attempt}"
            names[key] = (name, task, attempt)
            active[key] = self._client.submit(_do_on_worker, job, task, key=key, pure=False)
            completed.add(active[key])

        def fill() -> None:
            while not stopped and len(active) < self._at_once:
                following = next(waiting, None)
                if following is None:
                    break
                submit(*following, 1)

        try:
            fill()
            while active:
                if not self._wait(completed):
                    failures[""] = _Failure(_no_worker(), True)
                    break
                future = next(completed)
                name, task, attempt = names.pop(future.key)
                del active[future.key]
                if future.status in ("finished", "lost", "pending"):
                    # The receipt is in the store: nothing is fetched, and the worker may be gone. If it went since
                    # the task had ended, Dask calls the task lost, or pending as it begins it anew.
                    done(task)
                elif future.status == "error":
                    problem = future.exception()
                    if isinstance(problem, KilledWorker):
                        if attempt < submissions:
                            submit(name, task, attempt + 1)
                        else:
                            failures[name] = _Failure(
                                "its workers died each time, for want of memory perhaps; see their logs"
                            )
                    elif isinstance(problem, NoValidWorkerError):
                        failures[name] = _Failure(_no_worker(), True)
                        stopped = True
                    elif isinstance(problem, (_core.Error, MemoryError, OSError)):
                        failures[name] = _failure(problem)
                        stopped = stopped or failures[name].is_final
                    elif problem is not None:
                        raise problem
                else:
                    failures[name] = _Failure("the scheduler is gone, or has cancelled it", True)
                    stopped = True
                if time.monotonic() - self._looked > seconds_between_looks and not stopped:
                    self._look()
                fill()
        except OSError as problem:  # the scheduler's address does not answer
            failures[""] = _Failure(f"the scheduler is gone: {problem}", True)
        finally:
            if active:
                with contextlib.suppress(Exception):  # the failure that led here is what counts
                    self._client.cancel(list(active.values()))
        return failures


def _is_busy(dask_worker: Any) -> bool:
    """Whether a worker runs a task of ours, be it cancelled."""
    return any(str(task.key).startswith("insolate-") for task in dask_worker.state.all_running_tasks)


def _no_worker() -> str:
    return (
        f"the cluster has had no worker for {patience:g} s; start some, as by cluster.scale(2) (Dask's log says what "
        "ended those that there were)"
    )


def _runner(client: Any) -> Union[_ThisProcess, _Dask]:
    return _ThisProcess() if client is None else _Dask(client)


def _needs_extra() -> None:
    try:
        import zarr  # noqa: F401
    except ImportError:
        raise ImportError("insolate.distributed needs zarr and distributed: pip install 'insolate[dask]'") from None


def _block_size(usual: int, block: Optional[int], reflects: bool) -> int:
    """Sensors of a block: whole chunks of hours too, and all that light is reflected on together."""
    if block is None:
        block = usual
    elif block < 1:
        raise _core.UsageError(f"block {block}: give a number of sensors above 0")
    whole = _core.reflected_block if reflects else hours_chunk[0]
    return -(-int(block) // whole) * whole


def _check_method(texts: OptionTexts) -> None:
    """Refuses what only the method of blocks, or its rays, cannot do."""
    for option, wanted in (("method", "hourly"), ("rays", "fast")):
        value = next((values[0] for name, values in texts if name == option), wanted)
        if value != wanted:
            raise _core.UsageError(
                f"--{option} {value}: runs in one process; leave client and store out, or take {wanted}"
            )


def _columns_of(study: _core.Study) -> list[tuple[str, str, str]]:
    """Names, units and titles of what each sensor gets."""
    found = study.others(np.array([[0.0, 0.0, 1.0]]), np.array([[0.0, 0.0, 1.0]]), None)
    return [(name, unit, title) for name, unit, title, _ in found.columns]


def _study_without_scene(weather: Weather, texts: OptionTexts, report: Report) -> _core.Study:
    """Refuses wrong options before anything is begun, and says what is odd about the weather."""
    _check_method(texts)
    heard = Report(False)
    study = sky_alone(weather._core, texts, heard)
    report.warnings += heard.warnings
    return study


def _about_reflected(study: _core.Study) -> str:
    """What the results of tiles say of themselves; "" without reflected light."""
    if not study.reflects:
        return ""
    return (
        "light reflected by surfaces was found for the sensors of the tile by themselves: in other tiles, or in one "
        "run, it differs within what its rays leave uncertain (docs/cluster.md)"
    )


def _raise_missing(store: Store, what: str, missing: list[str], failures: dict[str, _Failure]) -> None:
    """
    Raises
    ------
    DataError, UsageError
        When something is missing for what the caller has given.
    Incomplete
        When the same call may find it.
    """
    for name, failure in failures.items():
        if failure.error is not Incomplete:
            raise failure.error(f"{what} {name}: {failure.text}")
    reasons = {name: failures[name].text for name in missing if name in failures}
    why = next((failure.text for failure in failures.values()), "")
    listed = ", ".join(missing[:8]) + (f" and {len(missing) - 8} more" if len(missing) > 8 else "")
    raise Incomplete(
        f"{store.path}: {len(missing)} {what}{' is' if len(missing) == 1 else 's are'} "
        f"{'missing' if what == 'block' else 'not read'} ({listed}){': ' + why if why else ''}; "
        "what is finished stays: run again with resume=True",
        {name: reasons.get(name, "") for name in missing},
    )


#: Keywords of `radiation` that a run on workers cannot take.
_alone = ("save_masks", "masks", "since")


def radiation_of(
    models: list[Model],
    sensors: Sensors,
    weather: Weather,
    texts: OptionTexts,
    materials: str,
    *,
    client: Any,
    store: Optional[Path],
    resume: bool,
    block: Optional[int],
    report: Report,
) -> _core.Study:
    """The study of `radiation`, calculated by workers."""
    _needs_extra()
    for name, _ in texts:
        if name.replace("-", "_") in _alone:
            raise _core.UsageError(f"--{name}: runs in one process; leave client and store out")
    _check_method(texts)
    study = _core.prepare_study(
        [one._core for one in models], sensors._core, weather._core, texts, materials, None, None, report
    )
    given = (study, models, sensors, weather, texts, materials)
    runner = _runner(client)
    if store is None:
        with _temporary_folder(runner) as folder:
            return _calculated(*given, os.path.join(folder, "store"), False, False, runner, block, report)
    return _calculated(*given, store, True, resume, runner, block, report)


@contextlib.contextmanager
def _temporary_folder(runner: Union[_ThisProcess, _Dask]) -> Iterator[str]:
    """A folder for a store, which is deleted at the end."""
    folder = tempfile.mkdtemp(prefix="insolate-")
    store = Store(os.path.join(folder, "store"), False)
    try:
        yield folder
    except BaseException:
        # Workers still write, and would make folders again that are deleted under them.
        with contextlib.suppress(OSError):
            store.forget()
        runner.wait_for_end()
        raise
    finally:
        for pause in (0.0, 0.1, 0.3, 1.0):
            time.sleep(pause)
            shutil.rmtree(folder, ignore_errors=True)
            if not os.path.exists(folder):
                break


def _calculated(
    study: _core.Study,
    models: list[Model],
    sensors: Sensors,
    weather: Weather,
    texts: OptionTexts,
    materials: str,
    place: Path,
    durable: bool,
    resume: bool,
    runner: Union[_ThisProcess, _Dask],
    block: Optional[int],
    report: Report,
) -> _core.Study:
    store = Store(place, durable)
    asked = _of_sensors(texts)
    columns = _columns_of(study)
    usual = min(max(-(-len(sensors) // blocks_of_scene), least_block), most_block)
    threads = next((int(values[0]) for name, values in texts if name == "threads"), None)
    scenes = [SceneArrays.of(model) for model in models]
    weather_file = WeatherFile.of(weather)
    manifest = store.open(
        {
            "kind": "radiation",
            "version": _core.version,
            "options": [list(map(str, one)) for one in asked],
            "materials": materials,
            "scene": [scene.digest for scene in scenes],
            "sensors": digest_of(sensors.points.tobytes(), sensors.normals.tobytes()),
            "weather": weather_file.digest,
            "block": _block_size(usual, block, study.reflects),
        },
        resume,
    )
    job = Job(
        str(store.path), durable, "", asked, materials, "", manifest["block"], columns, False, threads, _core.version
    )
    with _writing(store):
        job = job._replace(weather=store.add_weather(weather, weather_file))
        own = tuple(store.add_scene(scene) for scene in scenes)
        if store.receipt(survey_name("")) is None:
            sums = keep_sensors(store, job, "", sensors)
            store.give_receipt(survey_name(""), {"sensors": len(sensors), "sums": sums})
    x, y, z, scale = study.origin
    scene = TileScene("", own, origin=(x, y, z, scale))
    gathered = _Gathered(store, job, len(sensors))
    with _writing(store):
        _calculate(runner, store, job, {"": len(sensors)}, lambda _: scene, report, gathered.read)
        _warn_as_workers(store, job, weather, report)
        calculated = gathered.columns()
    study.take(calculated, report)
    return study


class _Gathered:
    """The columns of one scene, each block read while workers calculate others."""

    def __init__(self, store: Store, job: Job, count: int) -> None:
        self._store = store
        self._block = job.block
        self._columns = {name: np.empty(count, np.float32) for name, _, _ in job.columns}
        self._left = {first: min(first + job.block, count) for first in range(0, count, job.block)}

    def read(self, first: int) -> None:
        end = self._left[first]
        receipt = self._store.receipt(block_name("", first // self._block)) or {}
        for name, values in self._columns.items():
            values[first:end] = self._store.checked_part("", name, first, end, receipt.get("sums", {}))
        del self._left[first]

    def columns(self) -> list[tuple[str, Array]]:
        """All of them: blocks of an earlier run, and what could not be read at once, are read now."""
        for first in list(self._left):
            self.read(first)
        return list(self._columns.items())


class _writing:
    """Says what to do when the client itself cannot write."""

    def __init__(self, store: Store) -> None:
        self._store = store

    def __enter__(self) -> None:
        return None

    def __exit__(self, kind: Any, problem: Any, trace: Any) -> None:
        from ._distributed_work import as_output_error

        if isinstance(problem, _ProgressError) and problem.__cause__ is not None:
            raise problem.__cause__ from None
        if isinstance(problem, OSError):
            raise as_output_error(str(self._store.path), problem) from None


def _warn_as_workers(store: Store, job: Job, weather: Weather, report: Report) -> None:
    """Passes on what workers have warned of, once each."""
    most = 20
    listed = [text.replace(str(store.files / job.weather), weather.name) for text in store.warnings()]
    new = [text for text in listed if text not in report.warnings]
    for text in new[:most]:
        report.warn(text)
    if len(new) > most:
        report.warn(f"{store.warning_folder} has {len(new) - most} more warnings of tiles")


def _calculate(
    runner: Union[_ThisProcess, _Dask],
    store: Store,
    job: Job,
    counts: Mapping[str, int],
    scene_of: Callable[[str], TileScene],
    report: Report,
    take: Callable[[int], None] = lambda first: None,
) -> None:
    """Has all blocks calculated that have no receipt.

    Parameters
    ----------
    counts : of the sensors, by tile
    scene_of : gives a tile's scene, where blocks of it are left
    take : called with the first sensor of a block that is finished; its `OSError` and `DataError` are ignored

    Raises
    ------
    Incomplete, DataError, UsageError
    """
    finished = store.receipts()
    total = sum(counts.values())

    def left() -> Iterator[tuple[str, int]]:
        for tile, count in counts.items():
            for number in range(-(-count // job.block)):
                if block_name(tile, number) not in finished:
                    yield tile, number

    def size_of(tile: str, number: int) -> int:
        return min((number + 1) * job.block, counts[tile]) - number * job.block

    def blocks() -> Iterator[tuple[str, Block]]:
        scene: Optional[TileScene] = None
        for tile, number in left():
            if scene is None or scene.tile != tile:
                scene = scene_of(tile)
            first = number * job.block
            block = Block(scene, number, first, first + size_of(tile, number))
            yield block.name, block

    done = total - sum(size_of(*block) for block in left())
    if done:
        report.note(f"going on after {done:,} of {total:,} sensors")

    def show() -> None:
        try:
            report.progress(done, total, "sensors")
        except OSError as problem:
            raise _ProgressError from problem

    def count(block: Block) -> None:
        nonlocal done
        done += block.end - block.first
        show()
        with contextlib.suppress(OSError, _core.DataError):  # else the runner would take it for the scheduler's
            take(block.first)

    show()
    failures = runner.run(job, blocks(), count)
    finished = store.receipts()
    missing = [block_name(*block) for block in left()]
    if missing:
        _raise_missing(store, "block", missing, failures)
    store.clear_partial()


class TileInfo(NamedTuple):
    """What a tile was calculated with."""

    name: str
    sensors: int
    faces: int
    neighbours: int  #: other tiles of which something may shade it
    cut: float  #: the highest angle at which geometry stands that was left out [degrees]
    bound: float  #: the most that it can take from a sensor of the tile's slopes [percent of its open total]


class City:
    """A city's results, on the disk; made by `city`, or opened again by ``City(store)``."""

    def __init__(self, store: Path) -> None:
        _needs_extra()
        self._store = Store(store)
        manifest = self._store.manifest()
        if manifest["kind"] != "city":
            raise _core.UsageError(f"{store}: holds the study of one scene; give a store that city() has made")
        plan = self._store.receipt("plan")
        if plan is None:
            raise Incomplete(f"{store}: the tiles have not all been read; run city() again with resume=True")
        self._block: int = manifest["block"]
        self.notes: list[str] = []  #: what the work said
        self.warnings: list[str] = []  #: what should not be overlooked
        #: The tiles, in the order in which they were given.
        self.tiles = [TileInfo(*row) for row in plan["tiles"]]

    @property
    def store(self) -> str:
        """The folder."""
        return str(self._store.path)

    def __len__(self) -> int:
        """The number of sensors."""
        return sum(tile.sensors for tile in self.tiles)

    def _names(self) -> Iterator[str]:
        for tile in self.tiles:
            for number in range(-(-tile.sensors // self._block)):
                yield block_name(tile.name, number)

    @property
    def missing(self) -> list[str]:
        """Blocks that are not calculated; empty when the city is complete."""
        finished = self._store.receipts()
        return [name for name in self._names() if name not in finished]

    def _tile(self, name: str) -> TileInfo:
        for tile in self.tiles:
            if tile.name == name:
                return tile
        raise _core.UsageError(f"{self.store}: there is no tile {name!r}")

    def __getitem__(self, tile: str) -> dict[str, Array]:
        """Sensors and results of a tile, by column, in memory.

        Raises
        ------
        UsageError, Incomplete
            When there is no such tile, or it is not complete.
        DataError
            When the store does not hold what was written.
        """
        count = self._complete(tile).sensors
        if not count:
            return {}
        found: dict[str, list[Array]] = {name: [] for name in self._store.check_chunks(tile, self._block)}
        for number, first in enumerate(range(0, count, self._block)):
            sums = self._store.sums(tile, number)
            end = min(first + self._block, count)
            for name, parts in found.items():
                parts.append(self._store.checked_part(tile, name, first, end, sums))
        # Each column's parts are freed before the next one is joined.
        return {name: np.concatenate(found.pop(name)) for name in list(found)}

    def _complete(self, tile: str) -> TileInfo:
        info = self._tile(tile)
        finished = self._store.receipts()
        missing = [
            name for k in range(-(-info.sensors // self._block)) if (name := block_name(tile, k)) not in finished
        ]
        if missing:
            _raise_missing(self._store, "block", missing, {})
        return info

    def to_xarray(self, tile: str) -> xr.Dataset:
        """A tile as a dataset over "sensor", read from the disk where it is used.

        With ``hours=True`` it has ``poa_global`` [W/m2] over "time" too, 8,760 begins of hours in the
        site's standard time, of the year 2001.

        Raises
        ------
        UsageError, Incomplete
            When there is no such tile, or it is not complete.
        DataError
            When something of it is missing in the store. Values are not compared with those that were
            written, since they are not read yet.
        """
        import xarray as xr

        if not self._complete(tile).sensors:
            return xr.Dataset()
        self._store.check_chunks(tile, self._block)
        data: xr.Dataset = xr.open_zarr(str(self._store.results / tile), consolidated=False, chunks=None)
        return data

    def table(self) -> pd.DataFrame:
        """A row for each tile.

        Returns
        -------
        pandas.DataFrame
            What `TileInfo` has, ``area`` [m2], ``energy`` [kWh], ``mean``, ``lowest``, ``highest``
            total [kWh/m2] (the mean by sensor), ``seconds``, ``processor_seconds`` and ``memory``
            [MB] of its blocks; NaN for tiles that are not complete.
        """
        import pandas as pd

        rows = []
        for tile in self.tiles:
            row: dict[str, Any] = tile._asdict()
            count = -(-tile.sensors // self._block)
            receipts = [self._store.receipt(block_name(tile.name, number)) for number in range(count)]
            whole = [one for one in receipts if one is not None]
            if whole and len(whole) == count:
                row["area"] = sum(one["area"] for one in whole)
                row["energy"] = sum(one["energy"] for one in whole) / 1000.0
                row["mean"] = sum(one["mean"] * one["sensors"] for one in whole) / tile.sensors / 1000.0
                row["lowest"] = min(one["lowest"] for one in whole) / 1000.0
                row["highest"] = max(one["highest"] for one in whole) / 1000.0
                row["seconds"] = sum(one["seconds"] for one in whole)
                row["processor_seconds"] = sum(one["processor_seconds"] for one in whole)
                row["memory"] = max(one["memory"] for one in whole) / 1e6
            rows.append(row)
        return pd.DataFrame(rows).set_index("name")

    def __repr__(self) -> str:
        missing = len(self.missing)
        state = "complete" if not missing else f"{missing} blocks missing"
        return f"<insolate.City {self.store}: {len(self)} sensors in {len(self.tiles)} tiles, {state}>"


def tiles_of(model: Model, size: float) -> dict[str, Model]:
    """Cuts a model into square tiles, each face into the one that holds its middle.

    Parameters
    ----------
    model : Model
    size : float
        Edge of a tile [m].

    Returns
    -------
    dict
        Models by names such as "3_1": columns from the west and rows from the south.
    """
    if not size > 0.0:
        raise _core.UsageError(f"size {size:g}: give an edge above 0 m")
    scene = SceneArrays.of(model)
    starts = np.zeros(len(scene.counts), dtype=np.int64)
    np.cumsum(scene.counts[:-1], out=starts[1:])
    middles = np.stack(
        [np.add.reduceat(scene.vertices[scene.corners, axis], starts) / scene.counts for axis in (0, 1)], axis=1
    )
    places = np.floor((middles - scene.box()[0, :2]) / size).astype(np.int64)
    listed, of_face = np.unique(places, axis=0, return_inverse=True)
    found = {}
    for number, (column, row) in enumerate(listed):
        name = f"{column}_{row}"
        mesh = scene.only(of_face.ravel() == number).mesh(f"{model.name}, tile {name}")
        assert mesh is not None
        found[name] = Model._of(mesh, model.north)
    return found


def city(
    tiles: Mapping[str, Source],
    weather: Union[Weather, Path],
    *,
    store: Path,
    client: Any = None,
    resume: bool = False,
    radius: float = usual_radius,
    min_altitude: float = usual_min_altitude,
    horizon: Any = None,
    directions: int = 360,
    reading: Optional[Mapping[str, Any]] = None,
    select: Names = None,
    exclude: Names = None,
    facing: Names = None,
    tilt: Union[str, float, tuple[float, float], None] = None,
    grid: Optional[float] = None,
    offset: Optional[float] = None,
    merge_faces: bool = True,
    hours: bool = False,
    block: Optional[int] = None,
    threads: Optional[int] = None,
    progress: Progress = None,
    **options: Any,
) -> City:
    """Radiation on the sensors of a city in tiles, each with what can shade it around.

    Parameters
    ----------
    tiles : mapping of names to sources
        A source is the file of a model, which workers read; a `Model`; a list of such, of which the
        first has the sensors and all cast shadows, as houses and the terrain below them; or a
        function that gives these, or them and their `Sensors` (None for none), on the worker.
        Coordinates are metres of one system.
    weather : Weather or path
    store : path
        The folder of the results, on a file system that all workers share under the same name.
    client : distributed.Client, optional
        Whose workers calculate; without one this process does.
    resume : bool
        Go on with what an earlier run has left in the store. Options, weather and tiles must be
        those of that run: models are compared by what they hold, files by size and time. What a
        function gives cannot be checked.
    radius : float
        Within this distance of a tile's box all geometry shades it [m].
    min_altitude : float
        Farther away what rises above this altitude over the tile's lowest sensor shades it
        [degrees], at any distance.
    horizon : geo.Heights or path, optional
        A height raster for what lies beyond the radius, in metres of the same system; a file is
        read by rasterio. Other objects do that have ``values``, ``west``, ``north`` and ``step``.
    directions : int
        In which the raster is looked along from a tile's middle, 72 or more.
    reading : mapping, optional
        Keywords of `read_model` for tiles that are files.
    select, exclude, facing, tilt, grid, offset, merge_faces
        Which faces get sensors, and how close; see `Model.select` and `Selection.sensors`.
    hours : bool
        Also keep each sensor's 8,760 hours, ``poa_global``, in steps of 0.1 W/m2: 6.8 kB a
        sensor, and several times the time.
    block : int, optional
        Sensors that are calculated and stored together, a multiple of 2,048; by default those of
        about 15 s.
    threads : int, optional
        Of a worker; by default as many as Dask counts for it.
    progress : as for `radiation`
    **options
        Others of `radiation`: period, step, albedo, split, tolerances; and north, by default that
        of the tiles' models, which must have one.

    Returns
    -------
    City

    Raises
    ------
    UsageError, DataError
        When options, tiles or the store cannot be used.
    Incomplete
        When blocks are missing; it names them, and finished ones stay.

    Notes
    -----
    A sensor gets the same bytes on any number of workers and threads. Where surfaces are black
    (``reflectance=0``) blocks of any size give the same bytes too; and, where no geometry is cut and
    the city spans less than 16 km, those of the whole city as one scene. Light between surfaces
    depends on which sensors share a block, within what its rays leave uncertain.
    """
    _needs_extra()
    if not isinstance(hours, (bool, np.bool_)):
        raise _core.UsageError(
            f"hours {hours!r}: is a switch here, True to keep the hours of each sensor; the window of the day that "
            "radiation() calls hours= cannot be had for a city, but for one scene by radiation(client=, hours=)"
        )
    hours = bool(hours)
    if directions < 72:
        raise _core.UsageError(f"directions {directions}: give 72 or more")
    if not tiles:
        raise _core.UsageError("tiles: there are none; give some")
    if not radius >= 0.0 or not 0.0 < min_altitude < 90.0:
        raise _core.UsageError("radius must be 0 m or more, and min_altitude an angle between 0 and 90 degrees")
    for name in _alone:
        if options.get(name):
            raise _core.UsageError(f"{name}: runs in one process; leave it out")
    if options.get("materials") is not None:
        raise _core.UsageError(
            "materials: are for one scene, since tiles may lack some of the names; leave them out and give reflectance="
        )
    year = weather if isinstance(weather, Weather) else read_weather(weather)
    texts = option_texts(options)
    heard = Report(False)
    without_scene = _study_without_scene(year, texts, heard)
    columns = _columns_of(without_scene)
    cutting = {
        "select": [select] if isinstance(select, str) else list(select or []),
        "exclude": exclude,
        "facing": facing,
        "tilt": tilt,
        "grid": grid,
        "offset": offset,
        "merge_faces": merge_faces,
    }
    raster = None if horizon is None else grid_of(horizon)
    weather_file = WeatherFile.of(year)
    runner = _runner(client)
    place = Store(store)
    tall = tuple(distance * math.tan(math.radians(min_altitude)) for distance in far)
    for name, source in tiles.items():
        checked_name(name)
        try:
            check_source(source)
        except _core.DataError as problem:
            raise _core.DataError(f"tile {name}: {problem}") from None
    sources = [TileSource(name, source, dict(reading or {}), cutting, tall) for name, source in tiles.items()]
    usual = tile_block_with_hours if hours else tile_block
    manifest = place.open(
        {
            "kind": "city",
            "version": _core.version,
            "options": [list(map(str, one)) for one in texts],
            "sensors": {
                name: str(value) for name, value in {**cutting, "reading": reading or None}.items() if value is not None
            },
            "weather": weather_file.digest,
            "tiles": list(tiles),
            "context": [radius, min_altitude, directions],
            "horizon": None if raster is None else digest_of(raster.values.tobytes(), str(raster[1:]).encode()),
            "hours": hours,
            "block": _block_size(usual, block, without_scene.reflects),
            "reflects": without_scene.reflects,
        },
        resume,
    )
    with Report(progress) as report, _writing(place):
        report.warnings += heard.warnings
        kept = place.add_weather(year, weather_file)
        about = _about_reflected(without_scene)
        job = Job(
            str(place.path), True, kept, texts, "", about, manifest["block"], columns, hours, threads, _core.version
        )
        surveyed = _survey(runner, place, job, sources)
        if options.get("north") is None:
            texts = [*texts, *option_texts({"north": surveyed.north()})]
            job = job._replace(texts=texts)
        plan = _Plan(place, surveyed, radius, min_altitude, raster, directions)
        infos = list(plan.infos(year, texts))
        place.give_receipt("plan", {"tiles": [list(info) for info in infos]})
        counts = {info.name: info.sensors for info in infos}
        worst = max(infos, key=lambda info: info.bound)
        report.note(
            f"geometry left out stands up to {max(info.cut for info in infos):.1f} degrees above the tiles' lowest "
            f"sensors; it can take at most {worst.bound:.2f} % of a sensor's open total (tile {worst.name})"
        )
        if about:
            report.note(about)
        _calculate(runner, place, job, counts, plan.scene_of, report)
        _warn_as_workers(place, job, year, report)
    found = City(place.path)
    found.notes = report.notes
    found.warnings = report.warnings
    return found


def _survey(runner: Union[_ThisProcess, _Dask], store: Store, job: Job, sources: list[TileSource]) -> _Surveyed:
    """Has all tiles read whose receipts are missing, and sees that the others are as they were."""
    finished = store.receipts()
    left = [one for one in sources if survey_name(one.tile) not in finished or not _is_read(store, one)]
    here = [one for one in left if holds_models(one.source)]
    failures = _ThisProcess().run(job, ((one.tile, one) for one in here), lambda task: None)
    if not any(failure.is_final for failure in failures.values()):
        there = [one for one in left if not holds_models(one.source)]
        failures |= runner.run(job, ((one.tile, one) for one in there), lambda task: None)
    finished = store.receipts()
    missing = [one.tile for one in sources if survey_name(one.tile) not in finished]
    if missing or failures:
        _raise_missing(store, "tile", missing, failures)
    receipts = (store.receipt(survey_name(one.tile)) for one in sources)
    found = _Surveyed(receipt for receipt in receipts if receipt is not None)
    if not found.sizes[:, 0].any():
        raise _core.DataError(found.nothing or "the tiles have no sensors")
    return found


def _is_read(store: Store, source: TileSource) -> bool:
    """Whether all is there of a tile that has a receipt.

    Raises
    ------
    UsageError
        When it is no longer what was read.
    """
    receipt = store.receipt(survey_name(source.tile))
    if receipt is None or not store.has_files(receipt["scenes"]):
        return False
    identity = identity_of(source.source)
    if identity and receipt["source"] and identity != receipt["source"]:
        raise _core.UsageError(
            f"{store.path}: tile {source.tile} is no longer the {receipt['source'][0]} that was read for it; give that "
            "one, or another store"
        )
    return True


#: A city of this extent keeps one origin for all of its rays: positions are exact to half a
#: millimetre. Larger ones have origins on a grid.
_common_origin = 16_384.0
_origin_grid = 4096.0


class _Surveyed:
    """What is known of all tiles: some 400 bytes of each, so that countries fit into a client."""

    def __init__(self, receipts: Iterable[dict[str, Any]]) -> None:
        boxes, spans, lows, scenes, sizes, slopes, norths = [], [], [], [], [], [], []
        self.names: list[str] = []
        self.nothing = ""
        for one in receipts:
            self.names.append(one["tile"])
            self.nothing = self.nothing or one["nothing"]
            boxes.append(np.array(one["box"]))
            spans.append(np.array(one["span"]))
            lows.append(one.get("low", math.inf))
            scenes.append(np.array([name.encode() for name in one["scenes"]]))
            sizes.append((one["sensors"], one["faces"]))
            slopes.append(sum(1 << place for place in one.get("slopes", [])))
            norths.append(one["north"])
        self.places = {name: place for place, name in enumerate(self.names)}
        self.boxes, self.spans, self.lows = np.array(boxes), np.array(spans), np.array(lows)
        self.scenes, self.sizes, self.norths = np.array(scenes), np.array(sizes), np.array(norths)
        self._slopes = slopes

    def north(self) -> float:
        """True north of the tiles, which must have one."""
        other = np.flatnonzero(self.norths != self.norths[0])
        if len(other):
            raise _core.UsageError(
                f"tiles {self.names[0]} and {self.names[other[0]]} have their true north at {self.norths[0]:g} and "
                f"{self.norths[other[0]]:g} degrees; give north=, one for the whole city"
            )
        return float(self.norths[0])

    def slopes(self, place: int) -> list[int]:
        return [at for at in range(self._slopes[place].bit_length()) if self._slopes[place] >> at & 1]


class _Plan:
    """What shades each tile, and what is left out."""

    def __init__(
        self,
        store: Store,
        surveyed: _Surveyed,
        radius: float,
        min_altitude: float,
        raster: Optional[Grid],
        directions: int,
    ) -> None:
        self._surveyed = surveyed
        self._radius = radius
        self._min_altitude = min_altitude
        self._raster = raster
        self._directions = directions
        self._file = None if raster is None else store.add_array(raster.values)
        self._around = Neighbourhood(surveyed.boxes, radius, min_altitude)
        spans = surveyed.spans
        self._span = np.stack([spans[:, 0].min(axis=0), spans[:, 1].max(axis=0)])

    def infos(self, weather: Weather, texts: OptionTexts) -> Iterator[TileInfo]:
        """In the order of the tiles."""
        losses: dict[float, Array] = {}
        for place, name in enumerate(self._surveyed.names):
            near = self._around.of(place, float(self._surveyed.lows[place]))
            angle = math.ceil(2.0 * near.cut - 1e-6) / 2.0  # few different ones, on the safe side
            if angle > 0.0 and angle not in losses:
                losses[angle] = light_below(angle, weather, texts)
            bound = float(losses[angle][self._surveyed.slopes(place)].max()) if angle > 0.0 else 0.0
            sensors, faces = map(int, self._surveyed.sizes[place])
            yield TileInfo(name, sensors, faces, len(near.others), near.cut, bound)

    def scene_of(self, tile: str) -> TileScene:
        surveyed = self._surveyed
        place = surveyed.places[tile]
        box, low = surveyed.boxes[place], float(surveyed.lows[place])
        near = self._around.of(place, low)
        middle = self._span.mean(axis=0)
        if float((self._span[1] - self._span[0]).max()) > _common_origin:
            middle[:2] = np.floor(0.5 * (box[0, :2] + box[1, :2]) / _origin_grid) * _origin_grid
        x, y, z = map(float, np.floor(middle))
        seen: Optional[Horizon] = None
        if self._raster is not None and self._file is not None:
            centre = 0.5 * (box[0, :2] + box[1, :2])
            half = 0.5 * (box[1, :2] - box[0, :2])
            start = max(float(half.max()) + self._radius, float(np.hypot(*half)) + max(self._raster.step))
            middle_of_tile = (float(centre[0]), float(centre[1]))
            seen = Horizon(self._file, *self._raster[1:], middle_of_tile, low, start, self._directions)
        return TileScene(
            tile,
            (surveyed.scenes[place, 0].decode(),),
            tuple(surveyed.scenes[other, level].decode() for other, level in near.others),
            (float(box[0, 0]), float(box[0, 1]), float(box[1, 0]), float(box[1, 1])),
            self._radius,
            low,
            math.tan(math.radians(self._min_altitude)),
            seen,
            (x, y, z, 1.0),
        )
