"""Beside the tools that people of the field use: sun, open surfaces and a city against pvlib and ladybug-radiance.

    ./dev python -m pip install pvlib==0.16.1 ladybug-radiance==0.2.12 pyradiance==1.3.1
    INSOLATE_TEST_DATA=DATA ./dev python bench/peers.py

Prints versions, differences and processor times on one core; `docs/validation.md` explains the differences. With names
of weather files as arguments open surfaces are compared in these; usually in Chicago's. Radiance's warnings of hours
with a low sun are its own.
"""

from __future__ import annotations

import os
import statistics
import sys
import tempfile
import time
from collections.abc import Callable
from importlib.metadata import version
from pathlib import Path
from typing import Any

import numpy as np
import pandas as pd
import pvlib
import pyradiance
from ladybug_geometry.geometry3d import Mesh3D, Point3D
from ladybug_radiance.config import folders

import insolate as ins

# Read when the modules that run Radiance's programs are imported.
radiance = Path(pyradiance.__file__).parent
folders.radiance_path = str(radiance)

data = Path(os.environ.get("INSOLATE_TEST_DATA", "."))


def processor_seconds(work: Callable[[], Any]) -> tuple[float, Any]:
    """Of this process and of programs that it runs."""
    before = os.times()
    result = work()
    after = os.times()
    return sum(after[:4]) - sum(before[:4]), result


def sun_positions() -> None:
    """The sun at random instants of 1950 to 2050, all over the world, against the Solar Position Algorithm."""
    random = np.random.default_rng(1)
    apart: list[np.ndarray] = []
    altitudes: list[np.ndarray] = []
    for _ in range(100):
        latitude, longitude = random.uniform(-66, 66), random.uniform(-180, 180)
        seconds = random.integers(-631_152_000, 2_524_608_000, 1000)
        times = pd.DatetimeIndex(seconds * 10**9, tz="UTC")
        ours = ins.sun_position(times, latitude, longitude)
        spa = pvlib.solarposition.spa_python(times, latitude, longitude, altitude=0, delta_t=None)
        a = np.deg2rad([ours.zenith, ours.azimuth])
        b = np.deg2rad([spa["zenith"], spa["azimuth"]])
        x, y = (np.array([np.sin(z) * np.sin(w), np.sin(z) * np.cos(w), np.cos(z)]) for z, w in (a, b))
        apart.append(np.degrees(2.0 * np.arcsin(np.minimum(np.linalg.norm(x - y, axis=0) / 2.0, 1.0))))
        altitudes.append(90.0 - spa["zenith"].to_numpy())
    angles = np.concatenate(apart)
    up = angles[np.concatenate(altitudes) > 0.0]
    print(
        f"sun, {len(angles):,} instants: greatest distance {angles.max():.4f} degrees, {up.max():.4f} above the "
        f"horizon, mean {angles.mean():.4f}"
    )
    many = pd.DatetimeIndex(random.integers(-631_152_000, 2_524_608_000, 100_000) * 10**9, tz="UTC")
    calls: dict[str, Callable[[], Any]] = {
        "insolate": lambda: ins.sun_position(many, 45.0, 5.0),
        "SPA with NumPy": lambda: pvlib.solarposition.spa_python(many, 45.0, 5.0, altitude=0, delta_t=None),
    }
    for name, call in calls.items():
        times_of = []
        for _ in range(5):
            begin = time.process_time()
            call()
            times_of.append(time.process_time() - begin)
        print(f"  {name}: {1e6 * statistics.median(times_of) / len(many):.3f} us each")


def open_surfaces(weather: ins.Weather) -> None:
    """A year on surfaces with nothing around, against pvlib's transposition by the Perez model of 1990."""
    site = weather.site
    tilted = {"horizontal": (0, 180), "south 40": (40, 180), "63, 20": (20, 63)}
    tilted |= {name: (90, azimuth) for name, azimuth in (("north", 0), ("east", 90), ("south", 180), ("west", 270))}
    angles = np.deg2rad(np.array(list(tilted.values()), dtype=float))
    tilt, azimuth = angles[:, 0], angles[:, 1]
    normals = np.stack([np.sin(tilt) * np.sin(azimuth), np.sin(tilt) * np.cos(azimuth), np.cos(tilt)], axis=1)
    # Something has to cast shadows: a triangle far below.
    nothing = ins.Model([[0, 0, -1000], [0.1, 0, -1000], [0, 0.1, -1000]], [[0, 1, 2]])
    sensors = ins.Sensors(np.zeros((len(tilted), 3)), normals)
    span, ours = processor_seconds(
        lambda: ins.radiation(nothing, sensors, weather, open_ground=True, reflectance=0, threads=1, progress=False)
    )
    frame = weather.to_dataframe()
    # The mean of an hour is set to six instants of it, each with its own sun, as is done for such data.
    minutes = np.arange(5, 60, 10)
    sums = {name: np.zeros(4) for name in tilted}
    begin = time.process_time()
    for minute in minutes:
        times = hour_begins(frame, site) + pd.Timedelta(minutes=int(minute))
        sun = pvlib.solarposition.spa_python(times, site.latitude, site.longitude, altitude=site.elevation)
        extra = pvlib.irradiance.get_extra_radiation(times)
        air = pvlib.atmosphere.get_relative_airmass(sun["apparent_zenith"])
        dni, dhi = (pd.Series(frame[name].to_numpy(dtype=float), times) for name in ("dni", "dhi"))
        dni = dni.where(sun["zenith"] < 90.0, 0.0)
        flat = dhi + dni * np.cos(np.deg2rad(sun["zenith"])).clip(lower=0.0)
        for name, (slope, facing) in tilted.items():
            parts: Any = pvlib.irradiance.get_total_irradiance(
                slope, facing, sun["apparent_zenith"], sun["azimuth"], dni, flat, dhi,
                dni_extra=extra, airmass=air, albedo=0.2, model="perez",
            )  # fmt: skip
            columns = ("poa_global", "poa_direct", "poa_sky_diffuse", "poa_ground_diffuse")
            sums[name] += np.array([parts[column].fillna(0.0).sum() for column in columns]) / len(minutes) / 1000.0
    peer_span = time.process_time() - begin
    print(f"open surfaces, a year, kWh/m2 ({site}); ours {span:.2f} s, pvlib {peer_span:.2f} s")
    print("| surface | beam | pvlib | sky | pvlib | ground | pvlib | total | pvlib | difference |")
    print("|---|---|---|---|---|---|---|---|---|---|")
    for place, name in enumerate(tilted):
        mine = [float(ours[part][place]) / 1000.0 for part in ("beam", "sky", "ground", "total")]
        theirs = sums[name][[1, 2, 3, 0]]
        cells = " | ".join(f"{a:.1f} | {b:.1f}" for a, b in zip(mine, theirs, strict=True))
        print(f"| {name} | {cells} | {100.0 * (mine[3] / theirs[3] - 1.0):+.1f} % |")


def hour_begins(frame: pd.DataFrame, site: ins.Site) -> pd.DatetimeIndex:
    """The begins of the file's 8,760 hours, in the site's standard time."""
    zone = frame.index.tz
    return pd.date_range("2001-01-01", periods=len(frame), freq="h", tz=zone)


def lyon() -> None:
    """A year on all faces of Lyon's terrain and buildings, each seen from its middle."""
    from ladybug_radiance.skymatrix import SkyMatrix
    from ladybug_radiance.study.radiation import RadiationStudy

    class Sky(SkyMatrix):
        """Skips as much header as Radiance writes: a line more than this release of ladybug-radiance counts
        would give each patch the radiation of its neighbour, and the first one that of the ground."""

        def _parse_mtx_data(self, text: bytes, *others: Any) -> Any:
            return super()._parse_mtx_data(8 * b"\n" + text.split(b"\n\n", 1)[1], *others)

    weather = data / "weather" / "chicago.epw"
    models = [ins.read_model(data / "meshes" / f"lyon_{part}.obj", orient="keep") for part in ("terrain", "buildings")]
    triangles = np.concatenate([model.triangles for model in models])
    across = np.cross(triangles[:, 1] - triangles[:, 0], triangles[:, 2] - triangles[:, 0])
    triangles = triangles[np.linalg.norm(across, axis=1) > 1e-3]
    corners = [Point3D(*corner) for corner in triangles.reshape(-1, 3).tolist()]
    mesh = Mesh3D(corners, [(3 * i, 3 * i + 1, 3 * i + 2) for i in range(len(triangles))])
    offset = 0.05
    points = np.array([point.to_array() for point in mesh.face_centroids])
    normals = np.array([normal.to_array() for normal in mesh.face_normals])
    sensors = ins.Sensors(points + offset * normals, normals)
    span, ours = processor_seconds(
        lambda: ins.radiation(models, sensors, ins.read_weather(weather), reflectance=0, threads=1, progress=False)
    )
    mine = np.asarray(ours.total, dtype=float) / 1000.0
    print(f"Lyon, Chicago's year, {len(mine):,} sensors; insolate {span:.1f} s, mean {mine.mean():.1f} kWh/m2")
    facing = {"level or nearly": normals[:, 2] > 0.9, "slopes": (normals[:, 2] <= 0.9) & (normals[:, 2] > 0.2)}
    for name, turn in (("north", 0), ("east", 90), ("south", 180), ("west", 270)):
        apart = (np.degrees(np.arctan2(normals[:, 0], normals[:, 1])) - turn + 45.0) % 360.0
        facing["walls to the " + name] = (np.abs(normals[:, 2]) <= 0.2) & (apart < 90.0)
    for sky in ("Tregenza", "Reinhart"):
        with tempfile.TemporaryDirectory() as folder:

            def study(sky: str = sky, folder: str = folder) -> Any:
                matrix = Sky.from_epw(str(weather), high_density=sky == "Reinhart", ground_reflectance=0.2)
                return RadiationStudy(matrix, mesh, [mesh], offset, sim_folder=folder).radiation_values

            span, values = processor_seconds(study)
        theirs = np.array(values)
        apart = mine - theirs
        print(
            f"  ladybug-radiance, {sky} sky: {span:.1f} s, mean {theirs.mean():.1f}; "
            f"insolate {100 * apart.mean() / theirs.mean():+.1f} %, "
            f"root mean square {np.sqrt(np.mean(apart**2)):.1f}, correlation {np.corrcoef(mine, theirs)[0, 1]:.4f}"
        )
        for name, chosen in facing.items():
            print(
                f"    {name} ({int(chosen.sum())}): {mine[chosen].mean():.1f}, {theirs[chosen].mean():.1f}, "
                f"{100 * (mine[chosen].mean() / theirs[chosen].mean() - 1):+.1f} %"
            )


def main() -> None:
    names = ("insolate", "pvlib", "ladybug-radiance", "ladybug-core", "pyradiance", "numpy", "pandas")
    versions = [ins.__version__, *(version(name) for name in names[1:])]
    print(", ".join(f"{name} {number}" for name, number in zip(names, versions, strict=True)))
    sun_positions()
    for weather in sys.argv[1:] or [data / "weather" / "chicago.epw"]:
        open_surfaces(ins.read_weather(weather))
    lyon()


if __name__ == "__main__":
    main()
