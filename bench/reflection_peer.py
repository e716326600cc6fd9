"""Reflected light beside Radiance: the same scene, sun, sky and reflectances, sums of a year.

    ./dev python -m pip install pyradiance==1.3.1
    INSOLATE_COMMAND=build/bin/insolate INSOLATE_TEST_DATA=DATA ./dev python bench/reflection_peer.py

Radiance gets the sky that `insolate sky` writes: 1,296 cells of even radiance, and a small source in the middle of each
cell with sun. What is compared is the light of the scene, not the models of the sky. Prints totals and what
surfaces add to them by kind of place; `docs/validation.md` has them.

Arguments: weather file, rays of each sensor that Radiance follows one by one (0: interpolated, as is usual), sensors
of each kind of place.
"""

from __future__ import annotations

import csv
import math
import os
import subprocess
import sys
import tempfile
from importlib.metadata import version
from pathlib import Path
from typing import Any

import numpy as np
import pyradiance

import insolate as ins

programs = Path(pyradiance.__file__).parent / "bin"
library = programs.parent / "lib"
Array = np.ndarray[Any, np.dtype[Any]]
albedo = 0.2


def quads(height: float, court: float) -> dict[str, list[list[tuple[float, float, float]]]]:
    """Houses of nine plots of 30 m with streets of 12 m; the one in the middle has a court, if it is wider than 0."""
    made: dict[str, list[list[tuple[float, float, float]]]] = {"ground": [], "wall": [], "roof": []}

    def walls(x0: float, y0: float, x1: float, y1: float, top: float) -> None:
        ring = [(x0, y0), (x1, y0), (x1, y1), (x0, y1)]
        for (ax, ay), (bx, by) in zip(ring, ring[1:] + ring[:1], strict=True):
            made["wall"].append([(ax, ay, 0), (bx, by, 0), (bx, by, top), (ax, ay, top)])

    def roof(x0: float, y0: float, x1: float, y1: float, top: float) -> None:
        made["roof"].append([(x0, y0, top), (x1, y0, top), (x1, y1, top), (x0, y1, top)])

    reach = 300.0
    made["ground"].append([(-reach, -reach, 0), (reach, -reach, 0), (reach, reach, 0), (-reach, reach, 0)])
    for i in range(-1, 2):
        for j in range(-1, 2):
            top = height + 3.0 * ((i + 2 * j) % 3)
            x, y, half = 42.0 * i, 42.0 * j, 15.0
            walls(x - half, y - half, x + half, y + half, top)
            if (i, j) == (0, 0) and court > 0.0:
                walls(court, -court, -court, court, top)
                for x0, y0, x1, y1 in (
                    (-half, -half, half, -court),
                    (-half, court, half, half),
                    (-half, -court, -court, court),
                    (court, -court, half, court),
                ):
                    roof(x0, y0, x1, y1, top)
            else:
                roof(x - half, y - half, x + half, y + half, top)
    return made


def places(height: float, court: float, count: int) -> dict[str, tuple[Array, Array]]:
    """Sensors by kind of place: positions and normals."""
    random = np.random.default_rng(3)
    off = 0.05
    along, up = random.uniform(-14, 14, count), random.uniform(0.3, height - 0.3, count)
    level = np.tile([0.0, 0.0, 1.0], (count, 1))
    street = np.stack([random.uniform(-30, 30, count), random.choice([-21, 21], count), np.full(count, off)], axis=1)
    street[:, 1] += random.uniform(-5, 5, count)
    inner = random.uniform(-court + 0.3, court - 0.3, count)
    north = np.tile([0.0, 1.0, 0.0], (count, 1))
    return {
        "street floor": (street, level),
        "north facade": (np.stack([along, np.full(count, 15 + off), up], axis=1), north),
        "south facade": (np.stack([along, np.full(count, -15 - off), up], axis=1), -north),
        "court floor": (
            np.stack([inner, random.uniform(-court + 0.3, court - 0.3, count), np.full(count, off)], axis=1),
            level,
        ),
        "court, sunny wall": (np.stack([inner, np.full(count, court - off), up], axis=1), -north),
        "court, sunless wall": (np.stack([inner, np.full(count, -court + off), up], axis=1), north),
    }


def sky_of(weather: Path, folder: Path) -> str:
    """The period's sky in Radiance's words, in thousands of Wh/m2."""
    command = os.environ.get("INSOLATE_COMMAND", "insolate")
    subprocess.run([command, "sky", "--weather", weather, "--out", folder / "sky", "--quiet"], check=True)
    with open(folder / "sky" / "sky.csv", encoding="utf-8") as file:
        cells = [[float(value) for value in row] for row in list(csv.reader(file))[1:]]
    radiance = np.zeros((72, 18))
    suns: list[str] = []
    level = 0.0
    width = 0.5  # what lies behind a source is not seen
    disc = 2.0 * math.pi * (1.0 - math.cos(math.radians(0.5 * width)))
    for azimuth, altitude, angle, direct, diffuse, _ in cells:
        radiance[round(azimuth / 5), round(altitude / 5)] = diffuse / angle / 1000.0
        a, h = math.radians(azimuth + 2.5), math.radians(altitude + 2.5)
        x, y, z = math.sin(a) * math.cos(h), math.cos(a) * math.cos(h), math.sin(h)
        level += (direct + diffuse) * z / 1000.0
        if direct > 0.0:
            value = direct / disc / 1000.0
            number = len(suns)
            suns.append(
                f"void light sun{number}\n0\n0\n3 {value} {value} {value}\n"
                f"sun{number} source disc{number}\n0\n0\n4 {x} {y} {z} {width}\n"
            )
    values = "\n".join(f"{value:.6f}" for value in radiance.ravel())
    (folder / "sky.dat").write_text(f"2\n0 71 72\n0 17 18\n{values}\n", encoding="utf-8")
    (folder / "sky.cal").write_text(
        "even(v) = v;\n"
        "turn = atan2(Dx,Dy)/DEGREE;\n"
        "azimuth = floor(if(turn, turn, if(turn+1e-9, 0, turn+360))/5);\n"
        "altitude = floor(asin(if(Dz-0.99999,0.99999,Dz))/DEGREE/5);\n",
        encoding="utf-8",
    )
    ground = albedo * level / math.pi
    return (
        "void brightdata cells\n5 even sky.dat sky.cal azimuth altitude\n0\n0\n"
        "cells glow above\n0\n0\n4 1 1 1 0\nabove source sky\n0\n0\n4 0 0 1 180\n"
        f"void glow below\n0\n0\n4 {ground} {ground} {ground} 0\nbelow source ground\n0\n0\n4 0 0 -1 180\n"
        + "".join(suns)
    )


def traced(folder: Path, scene: str, sensors: tuple[Array, Array], bounces: int, samples: int = 0) -> Array:
    """Irradiation of the sensors by Radiance [kWh/m2].

    samples: rays of each sensor that are followed one by one, without interpolation and with no light left out
    (weak rays go on by chance); 0 takes settings as they are usual.
    """
    environment = dict(os.environ, RAYPATH=f".:{library}", PATH=f"{programs}:{os.environ['PATH']}")
    (folder / "scene.rad").write_text(scene, encoding="utf-8")
    tree = subprocess.run(
        [programs / "oconv", "scene.rad"], cwd=folder, env=environment, check=True, capture_output=True
    )
    (folder / "scene.oct").write_bytes(tree.stdout)
    rays = "\n".join(" ".join(map(str, ray)) for ray in np.hstack(sensors).tolist())
    quality = f"-ab {bounces} -aa 0.2 -ar 64 -ad 512 -as 128 -lw 1e-3 -lr 8 -dj 0.9 -dt 0.03 -dc 0.8 -ds 0 -st 1"
    if bounces == 1:
        quality = "-ab 1 -aa 0 -ad 4096 -as 1024 -lw 1e-6 -dj 0.9 -dt 0 -dc 1 -ds 0 -st 1"
    if samples > 0:
        quality = f"-ab {bounces} -aa 0 -ad {samples} -as 0 -lw 1e-6 -lr -20 -dj 0.9 -dt 0 -dc 1 -ds 0 -st 1"
    found = subprocess.run(
        [programs / "rtrace", "-h", "-I+", "-n", "2", *quality.split(), "scene.oct"],
        cwd=folder, env=environment, capture_output=True, input=rays + "\n", text=True,
    )  # fmt: skip
    if found.returncode != 0:
        sys.exit(found.stderr)
    return np.array([[float(value) for value in line.split()] for line in found.stdout.splitlines()])[:, 1]


def compare(
    weather: Path, folder: Path, sky: str, *, height: float, court: float, wall: float, samples: int, count: int
) -> None:
    made = quads(height, court)
    reflectances = {"ground": 0.2, "wall": wall, "roof": 0.3}
    corners: list[tuple[float, float, float]] = []
    faces: list[list[int]] = []
    names: list[str] = []
    for name, surfaces in made.items():
        for surface in surfaces:
            faces.append(list(range(len(corners), len(corners) + 4)))
            corners += surface
            names.append(name)
    model = ins.Model(corners, faces, materials=names)
    groups = places(height, court, count)
    positions = np.concatenate([place for place, _ in groups.values()])
    normals = np.concatenate([normal for _, normal in groups.values()])
    sensors = ins.Sensors(positions, normals)

    def radiation(**options: Any) -> Array:
        result = ins.radiation(model, sensors, ins.read_weather(weather), albedo=albedo, progress=False, **options)
        return np.asarray(result.total, dtype=float) / 1000.0

    tables = {name: {"reflectance": value} for name, value in reflectances.items()}
    ours, ours_black = radiation(materials=tables), radiation(reflectance=0)

    def scene(values: dict[str, float]) -> str:
        text = sky
        for name, value in values.items():
            text += f"void plastic {name}\n0\n0\n5 {value} {value} {value} 0 0\n"
            for number, surface in enumerate(made[name]):
                points = " ".join(f"{x} {y} {z}" for x, y, z in surface)
                text += f"{name} polygon {name}{number}\n0\n0\n12 {points}\n"
        return text

    theirs = traced(folder, scene(reflectances), (positions, normals), 12 if samples > 0 else 5, samples)
    theirs_black = traced(folder, scene(dict.fromkeys(reflectances, 0.0)), (positions, normals), 1)
    print(f"walls of {wall}, houses of {height:.0f} m and more, a court of {2 * court:.0f} m")
    print(
        "| place | black world | Radiance | reflected | Radiance | total | Radiance | difference | root mean square |"
    )
    print("|---|---|---|---|---|---|---|---|---|")
    first = 0
    for name, (place, _) in [*groups.items(), ("all", (positions, normals))]:
        chosen = slice(first, first + len(place)) if name != "all" else slice(None)
        first += len(place)
        a, b, c, d = ours_black[chosen], theirs_black[chosen], ours[chosen], theirs[chosen]
        apart = 100 * (c.mean() / d.mean() - 1)
        spread = 100 * np.sqrt(np.mean((c - d) ** 2)) / d.mean()
        print(
            f"| {name} | {a.mean():.0f} | {b.mean():.0f} | {(c - a).mean():.1f} | {(d - b).mean():.1f} "
            f"| {c.mean():.0f} | {d.mean():.0f} | {apart:+.1f} % | {spread:.1f} % |"
        )


def main() -> None:
    data = Path(os.environ.get("INSOLATE_TEST_DATA", "."))
    weather = Path(sys.argv[1]) if len(sys.argv) > 1 else data / "weather" / "chicago.epw"
    samples = int(sys.argv[2]) if len(sys.argv) > 2 else 0
    count = int(sys.argv[3]) if len(sys.argv) > 3 else 16
    print(f"insolate {ins.__version__}, pyradiance {version('pyradiance')}")
    with tempfile.TemporaryDirectory() as name:
        folder = Path(name)
        sky = sky_of(weather, folder)
        compare(weather, folder, sky, height=12.0, court=8.0, wall=0.35, samples=samples, count=count)


if __name__ == "__main__":
    main()
