"""Models and the sensors on their faces."""

from __future__ import annotations

import os
from collections.abc import Sequence
from typing import Any, Optional, Union

import numpy as np

from . import _core
from ._options import documented, option_texts
from ._reports import Report

Array = np.ndarray[Any, np.dtype[Any]]
Names = Union[str, Sequence[str], None]
Path = Union[str, os.PathLike[str]]

_nothing = np.empty(0, dtype=np.int32)


def _name_indices(names: Names, faces: int, known: list[str], what: str) -> Array:
    """Places of the faces' names in `known`, which gets those that are new; -1 for no name."""
    if names is None:
        return _nothing
    if isinstance(names, str):
        one = _name_indices([names], 1, known, what)
        return np.full(faces, one[0], dtype=np.int32)
    listed = [str(n) if n is not None else "" for n in names]
    if len(listed) != faces:
        raise _core.DataError(f"{len(listed)} {what} for {faces} faces; give one for each")
    places = {name: place for place, name in enumerate(known)}
    indices = np.full(faces, -1, dtype=np.int32)
    for face, name in enumerate(listed):
        if name:
            if name not in places:
                places[name] = len(known)
                known.append(name)
            indices[face] = places[name]
    return indices


def _polygons(faces: Any) -> tuple[Array, Array]:
    """Corners of all faces, one after the other, and their counts."""
    if isinstance(faces, np.ndarray) and faces.ndim == 2:
        corners = faces
        counts = np.full(len(faces), faces.shape[1], dtype=np.uint32)
    else:
        listed = [np.asarray(face) for face in faces]
        if any(face.ndim != 1 for face in listed):
            raise _core.DataError("faces must have the shape (m, corners), or be m lists of corners")
        counts = np.array([len(face) for face in listed], dtype=np.uint32)
        corners = np.concatenate(listed) if listed else np.empty(0, dtype=np.int64)
    if corners.size and (corners.dtype.kind not in "iu" or corners.min() < 0 or corners.max() >= 2**32):
        raise _core.DataError("faces must hold the numbers of vertices, counted from 0")
    return np.ascontiguousarray(corners.ravel(), dtype=np.uint32), counts


def _arrays_of(mesh: Any) -> tuple[Any, Any]:
    """Vertices and faces of a trimesh or pyvista mesh."""
    if hasattr(mesh, "vertices") and hasattr(mesh, "faces"):
        return mesh.vertices, np.asarray(mesh.faces)
    if hasattr(mesh, "points") and hasattr(mesh, "faces"):
        padded = np.asarray(mesh.faces)
        faces, place = [], 0
        while place < len(padded):
            faces.append(padded[place + 1 : place + 1 + padded[place]])
            place += 1 + int(padded[place])
        return mesh.points, faces
    raise TypeError(f"{type(mesh).__name__} is no mesh: it has neither vertices and faces nor points and faces")


class Model:
    """Polygons that cast shadows, with the names of what they belong to.

    Parameters
    ----------
    vertices : array_like of float, shape (n, 3), or a trimesh or pyvista mesh
    faces : array_like of int, shape (m, corners), or a sequence of m sequences
        Numbers of vertices, 3 or more to a face. Left out with a mesh.
    objects, materials, groups : str or sequence of m str, optional
        Of the faces; "" or None for a face without one.
    units : {"mm", "cm", "m", "ft", "in"}, default m
    up : {"y", "z"}, default z
        As for `read_model`.
    orient : {"outward", "flip", "keep"}, default outward
        As for `read_model`.
    north : float
        From the model's +Y clockwise to true north [degrees].
    name : str
        What messages and records call the model.

    Raises
    ------
    DataError
        When an array cannot be a model's.
    """

    def __init__(
        self,
        vertices: Any,
        faces: Any = None,
        *,
        objects: Names = None,
        materials: Names = None,
        groups: Names = None,
        units: Optional[str] = None,
        up: Optional[str] = None,
        orient: Optional[str] = None,
        north: float = 0.0,
        name: str = "model",
    ) -> None:
        if faces is None:
            vertices, faces = _arrays_of(vertices)
        places = np.ascontiguousarray(vertices, dtype=np.float64)
        if places.ndim != 2 or places.shape[1] != 3:
            raise _core.DataError(f"{name}: vertices must have the shape (n, 3), not {places.shape}")
        corners, counts = _polygons(faces)
        names: list[str] = []
        of_objects = _name_indices(objects, len(counts), names, "objects")
        of_materials = _name_indices(materials, len(counts), names, "materials")
        of_groups = _name_indices(groups, len(counts), names, "groups")
        texts = option_texts({"units": units, "up": up, "orient": orient})
        with Report(False) as report:
            core = _core.model_of(
                name, places, corners, counts, of_objects, of_materials, of_groups, names, texts, report
            )
        self._set(core, north, report)

    def _set(self, core: _core.Mesh, north: float, report: Optional[Report] = None) -> None:
        self._core = core
        self.north = float(north)
        self.notes: list[str] = [*report.notes, *report.warnings] if report else []

    @classmethod
    def _of(cls, core: _core.Mesh, north: float, report: Optional[Report] = None) -> Model:
        model = cls.__new__(cls)
        model._set(core, north, report)
        return model

    @property
    def name(self) -> str:
        """The file's name, as it was given."""
        return self._core.name

    @property
    def vertices(self) -> Array:
        """Shape (n, 3) [m], z up; cannot be written to."""
        return self._core.vertices

    @property
    def faces(self) -> list[Array]:
        """Numbers of the vertices of each face."""
        return np.split(self._core.corners, np.cumsum(self._core.corner_counts)[:-1])

    @property
    def objects(self) -> list[str]:
        """Names of the faces' objects, "" for none."""
        return self._core.objects

    @property
    def groups(self) -> list[str]:
        """Names of the faces' groups, "" for none; of CityJSON without groups the types of objects."""
        return self._core.groups

    @property
    def materials(self) -> list[str]:
        """Names of the faces' materials, "" for none."""
        return self._core.materials

    @property
    def triangles(self) -> Array:
        """Shape (n, 3, 3): corners of the triangles that rays meet [m]."""
        return self._core.triangles()

    def __len__(self) -> int:
        return self._core.face_count

    def __repr__(self) -> str:
        return f"<insolate.Model {self.name}: {len(self)} faces>"

    @documented(_core.run_options, "exclude", "facing", "tilt")
    def select(
        self,
        *select: str,
        exclude: Names = None,
        facing: Names = None,
        tilt: Union[str, float, tuple[float, float], None] = None,
    ) -> Selection:
        """Faces for sensors; all of the model goes on casting shadows.

        Parameters
        ----------
        *select : str
            Names of objects, groups or materials, with * for any text, or "object:material".
        {options}

        Returns
        -------
        Selection
            Its ``sensors()`` cuts the faces. A pattern that matches nothing is refused there.
        """
        sides = facing if facing is None or isinstance(facing, str) else ",".join(facing)
        return Selection(self, {"select": list(select) or None, "exclude": exclude, "facing": sides, "tilt": tilt})

    def replace(self, object: str, mesh: Any) -> Model:
        """A model with a mesh in the place of an object: the next step of a design.

        Parameters
        ----------
        object : str
            The name of an object of this model.
        mesh : Model, or a trimesh or pyvista mesh

        Returns
        -------
        Model
            Its other faces are as they were, so that ``radiation(..., since=earlier)`` calculates
            little.

        Raises
        ------
        DataError
            When there is no such object, with the nearest name.
        """
        by = mesh if isinstance(mesh, Model) else Model(mesh)
        return Model._of(self._core.replace(object, by._core), self.north)

    def sensors(
        self,
        *,
        grid: Optional[float] = None,
        offset: Optional[float] = None,
        merge_faces: bool = True,
        force: bool = False,
    ) -> Sensors:
        """Cells of all faces, with a sensor each; see `Selection.sensors`."""
        return Selection(self, {}).sensors(grid=grid, offset=offset, merge_faces=merge_faces, force=force)

    def plane(self, z: float, grid: Optional[float] = None) -> Sensors:
        """Sensors on a level plane under the model, looking up, outside of its buildings.

        Parameters
        ----------
        z : float
            Height of the plane [m].
        grid : float, optional
            Edge of its cells [m].
        """
        text = f"plane:z={float(z)!r}" + (f",grid={float(grid)!r}" if grid is not None else "")
        return _cut(self, {"sensors": text})


class Selection:
    """Faces of a model that were chosen by `Model.select`."""

    def __init__(self, model: Model, options: dict[str, Any]) -> None:
        self._model = model
        self._options = options

    @documented(_core.run_options, "grid", "offset", "merge_faces", "force")
    def sensors(
        self,
        *,
        grid: Optional[float] = None,
        offset: Optional[float] = None,
        merge_faces: bool = True,
        force: bool = False,
    ) -> Sensors:
        """Cuts the faces into cells and puts a sensor before each.

        Parameters
        ----------
        {options}

        Returns
        -------
        Sensors

        Raises
        ------
        DataError
            When a pattern matches nothing, with the nearest name, or when no face is left.
        UsageError
            When an option is out of its range, or there would be more sensors than memory.
        """
        merging = None if merge_faces else "no"
        options = {"grid": grid, "offset": offset, "merge_faces": merging, "force": force}
        return _cut(self._model, {**self._options, **options})


def _cut(model: Model, options: dict[str, Any]) -> Sensors:
    texts = option_texts({**options, "north": model.north})
    with Report(False) as report:
        core = _core.cut_sensors(model._core, texts, report)
    return Sensors._of(core, report)


class Sensors:
    """Places at which radiation is computed.

    Parameters
    ----------
    points : array_like of float, shape (n, 3)
        Positions [m], z up.
    normals : array_like of float, shape (n, 3), optional
        Directions in which the sensors face, of any length. Without normals they are points, on
        which every direction counts fully.
    areas : array_like of float, shape (n,), optional
        What each sensor stands for [m2].
    name : str
        What messages and records call them.

    Raises
    ------
    DataError
        When a number cannot be used or a normal is zero.
    """

    def __init__(self, points: Any, normals: Any = None, areas: Any = None, *, name: str = "sensors") -> None:
        places = _vectors(points, "points", name)
        directions = np.empty((0, 3)) if normals is None else _vectors(normals, "normals", name)
        sizes = np.empty(0) if areas is None else np.ascontiguousarray(areas, dtype=np.float64).ravel()
        self._set(_core.sensors_of(name, places, directions, sizes))

    def _set(self, core: _core.Sensors, report: Optional[Report] = None) -> None:
        self._core = core
        self.notes: list[str] = [*report.notes, *report.warnings] if report else []

    @classmethod
    def _of(cls, core: _core.Sensors, report: Optional[Report] = None) -> Sensors:
        sensors = cls.__new__(cls)
        sensors._set(core, report)
        return sensors

    @property
    def points(self) -> Array:
        """Shape (n, 3) [m]; cannot be written to."""
        return self._core.points

    @property
    def normals(self) -> Array:
        """Shape (n, 3), of unit length; zero for points without a surface."""
        return self._core.normals

    @property
    def areas(self) -> Optional[Array]:
        """Of the cells [m2]; None for sensors without cells."""
        return self._core.areas

    @property
    def faces(self) -> Array:
        """Numbers of the model's faces that the cells were cut from, the first of several that were
        cut as one; empty for sensors that were not cut."""
        return self._core.faces

    @property
    def objects(self) -> list[str]:
        """Names of the objects of the sensors' faces; empty for sensors that were not cut."""
        return self._core.objects

    @property
    def materials(self) -> list[str]:
        """Names of the materials of the sensors' faces; empty for sensors that were not cut."""
        return self._core.materials

    @property
    def cells(self) -> Optional[list[Array]]:
        """Corners of each sensor's cell, shape (k, 3) [m]; None for sensors without."""
        start = self._core.cell_start
        return np.split(self._core.corners, start[1:-1]) if len(start) else None

    def neighbours(self) -> Array:
        """Pairs of cells that share an edge, or a part of one, and look the same way within 15
        degrees; shape (pairs, 2), each once, the lower number first."""
        return self._core.neighbours()

    @property
    def tilts(self) -> Array:
        """Slopes [degrees]: 0 looks up, 90 is a wall; NaN for points without a surface."""
        z = self.normals[:, 2]
        has_surface = np.any(self.normals != 0.0, axis=1)
        return np.where(has_surface, np.degrees(np.arccos(np.clip(z, -1.0, 1.0))), np.nan)

    def azimuths(self, north: float = 0.0) -> Array:
        """Where the sensors look in plan: degrees clockwise from true north; NaN where they look
        straight up or down."""
        x, y = self.normals[:, 0], self.normals[:, 1]
        level = np.hypot(x, y)
        angles = (np.degrees(np.arctan2(x, y)) - north) % 360.0
        return np.where(level > 1e-9, angles, np.nan)

    def __len__(self) -> int:
        return self._core.size

    def __repr__(self) -> str:
        return f"<insolate.Sensors: {len(self)}>"


def _vectors(values: Any, what: str, name: str) -> Array:
    array = np.ascontiguousarray(values, dtype=np.float64)
    if array.ndim != 2 or array.shape[1] != 3:
        raise _core.DataError(f"{name}: {what} must have the shape (n, 3), not {array.shape}")
    return array


def as_models(model: Any) -> list[Model]:
    """One model or several, from whatever stands for it."""
    if isinstance(model, Model):
        return [model]
    if isinstance(model, (list, tuple)):
        if not model:
            raise _core.UsageError("--scene is missing; give the model that casts shadows")
        return [one for part in model for one in as_models(part)]
    return [Model(model)]


def north_of(models: list[Model], north: Optional[float] = None) -> float:
    """True north of all: what is given, or what the models have in common."""
    if north is not None:
        return float(north)
    for one in models:
        if one.north != models[0].north:
            raise _core.UsageError(
                f"{models[0].name} and {one.name} have their true north at {models[0].north:g} and {one.north:g} "
                "degrees; give the models one north"
            )
    return models[0].north


def as_sensors(sensors: Union[Sensors, Selection, Model]) -> Sensors:
    if isinstance(sensors, Sensors):
        return sensors
    if isinstance(sensors, (Selection, Model)):
        return sensors.sensors()
    raise TypeError(f"sensors must be Sensors or a Selection, not {type(sensors).__name__}")


@documented(_core.run_options, "units", "up", "lod", "orient", "north", "force")
def read_model(
    file: Path,
    *,
    units: Optional[str] = None,
    up: Optional[str] = None,
    lod: Union[str, float, None] = None,
    orient: Optional[str] = None,
    north: float = 0.0,
    force: bool = False,
) -> Model:
    """Reads a model: OBJ, STL, PLY, glTF, CityJSON and others.

    Parameters
    ----------
    file : path
    {options}

    Raises
    ------
    DataError
        When the file cannot be read or is no model, with the place and the fix.
    """
    texts = option_texts({"units": units, "up": up, "lod": lod, "orient": orient, "force": force})
    with Report(False) as report:
        core = _core.read_model(os.fspath(file), texts, report)
    return Model._of(core, north, report)


@documented(_core.run_options, "units", "up")
def read_sensors(file: Path, *, units: Optional[str] = None, up: Optional[str] = None) -> Sensors:
    """Reads sensors from a table of x,y,z or x,y,z,nx,ny,nz.

    Parameters
    ----------
    file : path
    {options}

    Raises
    ------
    DataError
        With the line of what cannot be read.
    """
    with Report(False) as report:
        core = _core.read_sensors(os.fspath(file), option_texts({"units": units, "up": up}), report)
    return Sensors._of(core, report)
