"""The folder that a client and its workers share: inputs, results and receipts.

    manifest.json     what is calculated: made by the client, compared when it comes again
    files/            scenes, weather and heights, named by the hash of what they hold
    results.zarr/     a Zarr group for each tile: sensors and results, an array each
    receipts/         one small file for each finished block
    warnings/         one for each text that workers have warned with
    journal.jsonl     when which block was begun and finished, and where

A block is finished when its receipt is there: it is written last, once the block's chunks are on the
disk. Every file gets its name when it is complete, so that a process may die at any moment.
"""

from __future__ import annotations

import contextlib
import hashlib
import io
import json
import os
import platform
import re
import resource
import time
import uuid
import zipfile
import zlib
from collections.abc import Callable, Iterable, Iterator, Mapping, Sequence
from pathlib import Path
from typing import Any, NamedTuple, Optional

import numpy as np

from . import _core
from ._model import Array, Model
from ._weather import Weather, read_weather

#: Sensors and hours of a chunk of hours: a sensor's year is 24 chunks, an hour's map of a million
#: sensors 489. With (2048, 336) the year was read in 66 ms and that map in 1.2 s; chunks of whole
#: years take 31 s for the map, chunks of days 0.8 s for one sensor.
hours_chunk = (2048, 365)
#: Of the hours' whole numbers [W/m2].
hours_step = 0.1
#: What stands for an hour that is not calculated: no sun reaches 6,553.5 W/m2.
missing_hour = 65535


def write_whole(path: Path, content: bytes, durable: bool = True) -> None:
    """Writes a file that is complete or absent, whoever dies meanwhile.

    durable: whether it outlasts a power cut too.
    """
    partial = path.with_name(f"{path.name}.{uuid.uuid4().hex}.partial")
    try:
        with open(partial, "wb") as file:
            file.write(content)
            if durable:
                file.flush()
                os.fsync(file.fileno())
        os.replace(partial, path)
        if durable:
            _sync(path.parent)
    except BaseException:
        partial.unlink(missing_ok=True)
        raise


def _sync(path: Path) -> None:
    """Has the disk hold a file, or the names of what is in a folder."""
    handle = os.open(path, os.O_RDONLY)
    try:
        os.fsync(handle)
    finally:
        os.close(handle)


def digest_of(*parts: bytes) -> str:
    """A name for what the parts hold."""
    hashed = hashlib.blake2b(digest_size=16)
    for part in parts:
        hashed.update(len(part).to_bytes(8, "little"))
        hashed.update(part)
    return hashed.hexdigest()


def _bytes_of(array: Array) -> bytes:
    return np.ascontiguousarray(array).tobytes()


def checked_name(name: str) -> str:
    """The name of a tile, which names folders too, beside Zarr's own file."""
    if not re.fullmatch(r"[A-Za-z0-9_][A-Za-z0-9_.+-]*", name) or name.lower() == "zarr.json":
        raise _core.UsageError(
            f"tile {name!r}: names are letters, digits and _ . + -, and not zarr.json; rename the tile"
        )
    return name


def block_name(tile: str, number: int) -> str:
    return f"{tile}.block{number}" if tile else f"block{number}"


def survey_name(tile: str) -> str:
    """The receipt of a tile's sensors; of one scene's for ""."""
    return f"{tile}.tile" if tile else "sensors"


#: Columns that are known of sensors before anything is calculated.
place_columns = ("x", "y", "z", "nx", "ny", "nz", "area", "object")


def sum_of(values: Array) -> int:
    """What tells values that were read back from those that were written."""
    return zlib.crc32(_bytes_of(values))


def _needed_of(receipt: str) -> tuple[str, ...]:
    """What a receipt must have to be of use."""
    if receipt == "plan":
        return ("tiles",)
    if receipt == survey_name(""):
        return ("sensors",)
    if receipt.endswith(".tile"):
        return ("tile", "scenes", "sensors", "faces", "north", "box", "span", "source", "nothing")
    return ("sensors", "mean", "area", "energy")


def _json_of(path: Path, needed: Iterable[str], fix: str) -> Optional[dict[str, Any]]:
    """What a file holds; None without one.

    Raises
    ------
    DataError
        When it is cut, or lacks a key.
    """
    try:
        content = path.read_bytes()
    except (FileNotFoundError, NotADirectoryError):
        return None
    try:
        found = json.loads(content)
    except ValueError:
        found = None
    if not isinstance(found, dict) or not found.keys() >= set(needed):
        raise _core.DataError(f"{path}: is damaged; {fix}")
    return found


#: What faces are called by.
_named = ("objects", "materials", "groups")


def _names_array(names: Iterable[str]) -> Array:
    return np.frombuffer(json.dumps(list(names)).encode(), dtype=np.uint8)


class SceneArrays:
    """A model as arrays: as files hold it, and to cut faces out of it."""

    def __init__(self, arrays: Mapping[str, Array]) -> None:
        self._arrays = dict(arrays)
        self.vertices = self._arrays["vertices"]
        self.corners = self._arrays["corners"]
        self.counts = self._arrays["counts"]
        self.objects = self._arrays["objects"]
        self.names: list[str] = json.loads(self._arrays["names"].tobytes())

    @classmethod
    def of(cls, model: Model) -> SceneArrays:
        names: dict[str, int] = {}

        def indices(listed: list[str]) -> Array:
            return np.fromiter(
                (names.setdefault(name, len(names)) if name else -1 for name in listed), np.int32, len(listed)
            )

        core = model._core
        of_faces = {name: indices(getattr(core, name)) for name in _named}
        return cls(
            {
                "vertices": np.array(core.vertices),
                "corners": np.array(core.corners),
                "counts": np.array(core.corner_counts),
                **of_faces,
                "names": _names_array(names),
            }
        )

    @classmethod
    def joined(cls, parts: Sequence[SceneArrays]) -> SceneArrays:
        """Several as one, their faces one after the other."""
        if len(parts) == 1:
            return parts[0]
        names: dict[str, int] = {}
        # The last place stands for "no name", which is -1.
        places = [
            np.array([*(names.setdefault(name, len(names)) for name in part.names), -1], np.int32) for part in parts
        ]
        first = np.cumsum([0, *(len(part.vertices) for part in parts[:-1])]).astype(np.uint32)
        return cls(
            {
                "vertices": np.concatenate([part.vertices for part in parts]),
                "corners": np.concatenate([part.corners + at for part, at in zip(parts, first, strict=True)]),
                "counts": np.concatenate([part.counts for part in parts]),
                **{
                    one: np.concatenate([place[part._arrays[one]] for part, place in zip(parts, places, strict=True)])
                    for one in _named
                },
                "names": _names_array(names),
            }
        )

    @property
    def digest(self) -> str:
        return digest_of(*(name.encode() + _bytes_of(array) for name, array in sorted(self._arrays.items())))

    def file(self) -> bytes:
        buffer = io.BytesIO()
        np.savez(buffer, **self._arrays)  # type: ignore[arg-type, unused-ignore]
        return buffer.getvalue()

    def box(self) -> Array:
        """Lowest and highest corner, shape (2, 3)."""
        if not len(self.vertices):
            return np.array([[np.inf] * 3, [-np.inf] * 3])
        return np.stack([self.vertices.min(axis=0), self.vertices.max(axis=0)])

    def tall(self, height: float) -> SceneArrays:
        """The faces that rise above a height."""
        return self if not len(self.counts) else self.only(self._ends(2)[1] > height)

    def shading(self, box: Array, radius: float, low: float, slope: float) -> SceneArrays:
        """The faces within a radius of a box, in plan, and those that rise above a line from it.

        Parameters
        ----------
        low, slope : height at which the line begins [m], and what it rises by the metre
        """
        if not len(self.counts):
            return self
        between = []
        for axis in (0, 1):
            lowest, highest = self._ends(axis)
            between.append(np.maximum(np.maximum(lowest - box[1, axis], box[0, axis] - highest), 0.0))
        distances = np.hypot(*between)
        kept = (distances <= radius) | (self._ends(2)[1] - low > slope * distances)
        return self if kept.all() else self.only(kept)

    def _ends(self, axis: int) -> tuple[Array, Array]:
        """Lowest and highest coordinates of the faces."""
        starts = np.zeros(len(self.counts), dtype=np.int64)
        np.cumsum(self.counts[:-1], out=starts[1:])
        places = self.vertices[self.corners, axis]
        return np.minimum.reduceat(places, starts), np.maximum.reduceat(places, starts)

    def only(self, kept: Array) -> SceneArrays:
        """Some of the faces, by a mask."""
        corners = self.corners[np.repeat(kept, self.counts)]
        used, places = np.unique(corners, return_inverse=True)
        return SceneArrays(
            {
                **self._arrays,
                "vertices": self.vertices[used],
                "corners": places.astype(np.uint32).ravel(),
                "counts": self.counts[kept],
                **{name: self._arrays[name][kept] for name in _named},
            }
        )

    def mesh(self, name: str) -> Optional[_core.Mesh]:
        """The same polygons for the engine, to the last bit; None without faces."""
        if not len(self.counts):
            return None
        return _core.model_of(
            name,
            np.ascontiguousarray(self.vertices),
            np.ascontiguousarray(self.corners),
            np.ascontiguousarray(self.counts),
            self.objects,
            self._arrays["materials"],
            self._arrays["groups"],
            self.names,
            [("orient", ["keep"])],
            None,
        )


class WeatherFile(NamedTuple):
    """A weather as the store keeps it: year, site, albedo and all else that the engine reads."""

    digest: str
    suffix: str
    content: bytes

    @classmethod
    def of(cls, weather: Weather) -> WeatherFile:
        """
        Raises
        ------
        DataError
            When its file is gone.
        """
        samples = weather._samples
        if samples is None:
            path = Path(weather.name)
            try:
                content = path.read_bytes()
            except OSError as problem:
                raise _core.DataError(
                    f"{path}: cannot be read again ({problem.strerror}); put it back for the workers"
                ) from None
            return cls(digest_of(content), "-" + path.name, content)
        buffer = io.BytesIO()
        _, *numbers, times, values = samples
        np.savez(buffer, site=np.array(numbers), times=times, values=values)
        return cls(digest_of(buffer.getvalue()), ".weather.npz", buffer.getvalue())


class Store:
    """The folder; every method may be called by any process at any time.

    durable: whether the store outlasts a power cut. The disk must be waited for then, which a store
    that is deleted at the end need not.
    """

    def __init__(self, path: str | os.PathLike[str], durable: bool = True) -> None:
        self.path = Path(path).absolute()
        self._durable = durable
        self.files = self.path / "files"
        self.receipt_folder = self.path / "receipts"
        self.warning_folder = self.path / "warnings"
        self.results = self.path / "results.zarr"
        self._open: tuple[str, dict[str, Any]] = ("", {})  # arrays of the tile in hand
        self._places: tuple[Any, list[dict[str, int]]] = (None, [])  # sums of the tile in hand, by block
        self._sound: set[str] = set()  # files that were found to hold what their names say

    # What is calculated.

    def open(self, manifest: dict[str, Any], resume: bool) -> dict[str, Any]:
        """Makes the folder, or goes on in it.

        Returns
        -------
        dict
            The manifest that holds: of a run before, its block size.

        Raises
        ------
        UsageError
            When there is another study's, or one that is not to be resumed.
        """
        place = self.path / "manifest.json"
        if place.exists():
            if not resume:
                raise _core.UsageError(
                    f"{self.path}: there are results of an earlier run; give resume=True to go on with them, or "
                    "another store"
                )
            found = self.manifest()
            different = sorted(key for key in {*found, *manifest} - {"block"} if found.get(key) != manifest.get(key))
            if different:
                raise _core.UsageError(
                    f"{self.path}: the store belongs to a study with other {', '.join(different)}; repeat those of "
                    "that run, or give another store"
                )
            return found
        if self.path.exists() and not self.path.is_dir():
            raise _core.UsageError(f"{self.path}: is a file; give a folder")
        if self.path.exists() and not self._is_begun():
            raise _core.UsageError(f"{self.path}: is not empty and holds no results; give another store")
        try:
            self.files.mkdir(parents=True, exist_ok=True)
            self.receipt_folder.mkdir(exist_ok=True)
            import zarr

            zarr.open_group(str(self.results), mode="a")
            self.settle({self.results, self.results / "zarr.json"})
            self._write_whole(place, json.dumps(manifest, indent=1).encode())
        except OSError as problem:
            raise _core.OutputError(f"{self.path}: {problem.strerror}; give a store that can be written") from problem
        return manifest

    def _write_whole(self, path: Path, content: bytes) -> None:
        write_whole(path, content, self._durable)

    def _is_begun(self) -> bool:
        """Whether there is nothing, or what `open` makes before the manifest: its process was killed then."""
        for entry in self.path.iterdir():
            own = {self.files: set[str](), self.receipt_folder: set[str](), self.results: {"zarr.json"}}
            is_partial = entry.name.startswith("manifest.json.") and entry.name.endswith(".partial")
            if not is_partial and (entry not in own or {one.name for one in entry.iterdir()} - own[entry]):
                return False
        return True

    def manifest(self) -> dict[str, Any]:
        fix = "what was calculated is not known any more; delete the store and run again, or give another one"
        found = _json_of(self.path / "manifest.json", ("kind", "version", "block"), fix)
        if found is None:
            raise self._gone()
        return found

    def _gone(self) -> _core.UsageError:
        return _core.UsageError(
            f"{self.path}: there is no store; on workers: give a folder that all machines share under one name"
        )

    def check_is_there(self) -> None:
        """
        Raises
        ------
        UsageError
            When the store was deleted: who writes then would leave a part of one.
        """
        if not (self.path / "manifest.json").exists():
            raise self._gone()

    def forget(self) -> None:
        """Has workers write nothing more, by `check_is_there`, before the store is deleted."""
        (self.path / "manifest.json").unlink(missing_ok=True)

    # Inputs by the hash of what they hold.

    def add(self, digest: str, suffix: str, content: bytes) -> str:
        """Keeps a file, in the place of one that was damaged meanwhile."""
        name = digest + suffix
        path = self.files / name
        if not path.exists() or path.read_bytes() != content:
            self._write_whole(path, content)
        return name

    def add_scene(self, scene: SceneArrays) -> str:
        name = scene.digest + ".npz"
        if not (self.files / name).exists():
            self._write_whole(self.files / name, scene.file())
        return name

    def has_files(self, names: Iterable[str]) -> bool:
        return all((self.files / name).exists() for name in names)

    def scene(self, name: str) -> SceneArrays:
        try:
            with np.load(self.files / name, allow_pickle=False) as arrays:
                scene = SceneArrays(arrays)
        except (ValueError, KeyError, EOFError, zipfile.BadZipFile):
            raise self._damaged(name) from None
        self._check(name, lambda: scene.digest)
        return scene

    def _check(self, name: str, digest: Callable[[], str]) -> None:
        """Compares what a file holds with its name, once in a process.

        Raises
        ------
        DataError
        """
        if name not in self._sound:
            if not name.startswith(digest()):
                raise self._damaged(name)
            self._sound.add(name)

    def _damaged(self, name: str) -> _core.DataError:
        return _core.DataError(
            f"{self.files / name}: is damaged and does not hold what its name says; delete it and run again with "
            "resume=True"
        )

    def add_weather(self, weather: Weather, file: WeatherFile) -> str:
        name = self.add(file.digest, file.suffix, file.content)
        if weather._samples is None:
            again = read_weather(self.files / name)
            is_same = again.site[:4] == weather.site[:4]
            for column in ("dni", "dhi"):
                is_same = is_same and np.array_equal(getattr(again, column), getattr(weather, column), True)
            if not is_same:
                raise _core.DataError(f"{weather.name}: has changed since it was read; read it again")
        return name

    def weather(self, name: str) -> _core.Weather:
        self._check(name, lambda: digest_of((self.files / name).read_bytes()))
        if not name.endswith(".weather.npz"):
            return _core.read_weather(str(self.files / name), None)
        with np.load(self.files / name, allow_pickle=False) as arrays:
            latitude, longitude, zone, elevation = map(float, arrays["site"])
            times, values = arrays["times"], arrays["values"]
            return _core.weather_of(name, latitude, longitude, zone, elevation, times, values)

    def add_array(self, array: Array) -> str:
        buffer = io.BytesIO()
        np.save(buffer, array)
        return self.add(digest_of(buffer.getvalue()), ".npy", buffer.getvalue())

    def array(self, name: str) -> Array:
        """Read from the disk where it is used."""
        self._check(name, lambda: digest_of((self.files / name).read_bytes()))
        return np.load(self.files / name, mmap_mode="r", allow_pickle=False)  # type: ignore[no-any-return, unused-ignore]

    # Receipts.

    def receipt(self, name: str) -> Optional[dict[str, Any]]:
        """A receipt; None without one.

        Raises
        ------
        DataError
            When it is damaged.
        """
        path = self.receipt_folder / (name + ".json")
        return _json_of(path, _needed_of(name), "delete it and run again with resume=True")

    def sums(self, tile: str, number: int) -> dict[str, int]:
        """Of the columns of a block as they were written, by `sum_of`; some are not known of earlier versions."""
        path = self.receipt_folder / (survey_name(tile) + ".json")
        key = (path, path.stat().st_mtime_ns if path.exists() else 0)
        if key != self._places[0]:  # it may have thousands of blocks, each of which asks
            self._places = key, (self.receipt(survey_name(tile)) or {}).get("sums", [])
        places = self._places[1]
        results = self.receipt(block_name(tile, number)) or {}
        return {**(places[number] if number < len(places) else {}), **results.get("sums", {})}

    def give_receipt(self, name: str, receipt: dict[str, Any]) -> dict[str, Any]:
        self._write_whole(self.receipt_folder / (name + ".json"), json.dumps(receipt).encode())
        return receipt

    def keep_warning(self, text: str) -> None:
        """Keeps a warning of a worker, once however many have it."""
        path = self.warning_folder / (digest_of(text.encode()) + ".txt")
        if not path.exists():
            self.warning_folder.mkdir(exist_ok=True)
            self._write_whole(path, text.encode())

    def warnings(self) -> list[str]:
        return sorted(path.read_text() for path in self.warning_folder.glob("*.txt"))

    def receipts(self) -> set[str]:
        """Names of what is finished, without reading it."""
        return {entry.name[:-5] for entry in os.scandir(self.receipt_folder) if entry.name.endswith(".json")}

    def note(self, what: str, block: str, **more: Any) -> None:
        """A line of the journal: whole lines of many processes, one after the other."""
        line = {"time": round(time.time(), 3), "what": what, "block": block, "host": platform.node(), **more}
        with open(self.path / "journal.jsonl", "ab", buffering=0) as file:
            file.write((json.dumps({**line, "pid": os.getpid()}) + "\n").encode())

    def clear_partial(self) -> None:
        """Deletes what processes that died have left of files; for when no worker writes."""
        for folder, _, names in os.walk(self.path):
            for name in names:
                if name.endswith(".partial"):
                    Path(folder, name).unlink(missing_ok=True)

    # Results.

    def group(self, tile: str) -> Any:
        import zarr

        with self._reading(tile):
            return zarr.open_group(str(self.results / tile), mode="r")

    @contextlib.contextmanager
    def _reading(self, tile: str, name: str = "") -> Iterator[None]:
        """Says which group or array is damaged, whose errors are of many kinds."""
        try:
            yield
        except (_core.Error, MemoryError):
            raise
        except Exception as problem:
            if isinstance(problem, OSError) and not isinstance(problem, FileNotFoundError):
                raise
            fix = "delete the store and run again" if name else "delete it and run again with resume=True"
            if tile:
                fix = (
                    f"delete {self.results / tile} and the receipts {self.receipt_folder / tile}.*.json, and run again "
                    "with resume=True"
                )
            path = self.results / tile / name / "zarr.json"
            raise _core.DataError(f"{path}: is gone or damaged; {fix}") from problem

    def create_tile(
        self,
        tile: str,
        count: int,
        block: int,
        columns: Iterable[tuple[str, str, str]],
        hours: bool,
    ) -> None:
        """Makes a tile's empty arrays; whoever comes again finds them as they are."""
        import zarr

        with self._reading(""):
            group = zarr.open_group(str(self.results), mode="a")
        if tile:
            with self._reading(tile):
                group = group.require_group(tile)
        arrays: list[tuple[str, str, dict[str, Any], tuple[int, ...], tuple[int, ...]]] = []
        chunk = max(1, min(block, count))
        for axis in "xyz":
            arrays.append((axis, "float64", {"units": "m"}, (count,), (chunk,)))
        for axis in ("nx", "ny", "nz"):
            arrays.append((axis, "float64", {"units": "1"}, (count,), (chunk,)))
        arrays.append(("area", "float32", {"units": "m2"}, (count,), (chunk,)))
        arrays.append(("object", "int32", {"long_name": "place in the group's objects"}, (count,), (chunk,)))
        for name, unit, title in columns:
            arrays.append((name, "float32", {"units": unit, "long_name": title}, (count,), (chunk,)))
        if hours:
            attributes = {"units": "W/m2", "scale_factor": hours_step, "cell_methods": "time: mean"}
            attributes["_FillValue"] = missing_hour
            of_hours = (max(1, min(hours_chunk[0], count)), hours_chunk[1])
            arrays.append(("poa_global", "uint16", attributes, (count, 8760), of_hours))
        for name, kind, attributes, shape, chunks in arrays:
            with self._reading(tile, name):
                is_new = name not in group
            if is_new:
                group.create_array(
                    name,
                    shape=shape,
                    chunks=chunks,
                    dtype=kind,
                    attributes=attributes,
                    dimension_names=("sensor", "time")[: len(shape)],
                    fill_value=float("nan") if kind.startswith("float") else attributes.get("_FillValue", 0),
                )
        if hours:
            times = group.require_array(
                "time",
                shape=(8760,),
                chunks=(8760,),
                dtype="int32",
                attributes={"units": "hours since 2001-01-01", "long_name": "begin of the hour in standard time"},
                dimension_names=("time",),
            )
            times[:] = np.arange(8760, dtype=np.int32)
        self.settle({self.results, self.results / tile})

    def write(self, tile: str, name: str, first: int, values: Array) -> set[Path]:
        """Writes whole chunks of one array, each of them complete or as before.

        Returns
        -------
        set of pathlib.Path
            Files and folders for `settle`.
        """
        path = self.results / tile / name
        array = self._array(tile, name)
        if first % array.chunks[0] != 0:
            raise ValueError(f"{name}: sensor {first} does not begin a chunk")
        array[first : first + len(values)] = values
        written = {path, path / "c"}
        for chunk in range(first // array.chunks[0], -(-(first + len(values)) // array.chunks[0])):
            for part in range(array.cdata_shape[1]) if values.ndim > 1 else (None,):
                file = path / "c" / (str(chunk) if part is None else f"{chunk}/{part}")
                written |= {file, file.parent}  # the folder has the chunk's name
        return written

    def settle(self, written: set[Path]) -> None:
        """Has the disk hold what was written; all of a block at once, which is faster by far."""
        if self._durable:
            for path in sorted(written, reverse=True):
                _sync(path)

    def sensors(self, tile: str, first: int, end: int) -> tuple[Array, Array]:
        """Points and normals of a block, shape (n, 3) each."""
        sums = self.sums(tile, first // int(self._array(tile, "x").chunks[0]))
        points, normals = (
            np.stack([self.checked_part(tile, axis, first, end, sums) for axis in axes], axis=1)
            for axes in (place_columns[:3], place_columns[3:6])
        )
        return np.ascontiguousarray(points), np.ascontiguousarray(normals)

    def part(self, tile: str, name: str, first: int, end: int) -> Array:
        """Some of a column.

        Raises
        ------
        DataError
            When a chunk of it is missing or damaged.
        """
        array = self._array(tile, name)
        chunk = array.chunks[0]
        for number in range(first // chunk, -(-end // chunk)):
            if not (self.results / tile / name / "c" / str(number)).exists():  # Zarr would give the fill value
                raise self._damaged_block(tile, name, number, "is missing")
        try:
            return np.asarray(array[first:end])
        except (RuntimeError, ValueError, TypeError) as problem:
            raise self._damaged_block(tile, name, first // chunk, f"cannot be read ({problem})") from None

    def checked_part(self, tile: str, name: str, first: int, end: int, sums: Mapping[str, int]) -> Array:
        """A block of a column, compared with what was written.

        Raises
        ------
        DataError
        """
        values = self.part(tile, name, first, end)
        if name in sums and sum_of(values) != sums[name]:
            number = first // int(self._array(tile, name).chunks[0])
            raise self._damaged_block(tile, name, number, "has changed since it was written")
        return values

    def _damaged_block(self, tile: str, name: str, number: int, what: str) -> _core.DataError:
        receipt = survey_name(tile) if name in place_columns else block_name(tile, number)
        return _core.DataError(
            f"{self.results / tile / name}: the chunk of {block_name(tile, number)} {what}; delete "
            f"{self.receipt_folder / receipt}.json and run again with resume=True, which calculates it anew"
        )

    def check_chunks(self, tile: str, block: int) -> list[str]:
        """Sees that all chunks of a tile are there, since Zarr gives the fill value for those that are not.

        Returns
        -------
        list of str
            The names of its columns.

        Raises
        ------
        DataError
        """
        self.group(tile)
        of_folder = {path.name for path in (self.results / tile).iterdir() if path.is_dir()}
        names = sorted({*of_folder, *place_columns, *self.sums(tile, 0)} - {"time"})
        for name in names:
            array = self._array(tile, name)
            chunks = self.results / tile / name / "c"
            for number in range(array.cdata_shape[0]):
                of_rows = chunks / str(number)
                is_whole = of_rows.exists()
                if is_whole and array.ndim > 1:
                    is_whole = len(os.listdir(of_rows)) >= array.cdata_shape[1]
                if not is_whole:
                    raise self._damaged_block(tile, name, number * int(array.chunks[0]) // block, "is missing")
        return [name for name in names if self._array(tile, name).ndim == 1]

    def _array(self, tile: str, name: str) -> Any:
        import zarr

        held, arrays = self._open
        if held != tile:
            arrays = {}
            self._open = (tile, arrays)
        if name not in arrays:
            with self._reading(tile, name):
                array = zarr.open_array(str(self.results / tile / name), mode="r+")
            arrays[name] = array.with_config({"write_empty_chunks": True})
        return arrays[name]


def peak_memory() -> int:
    """The most memory that this process has held [bytes]."""
    return resource.getrusage(resource.RUSAGE_SELF).ru_maxrss * 1024
