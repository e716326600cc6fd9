"""Studies on several processes: speed, kills, tiles, and a plan for large cities.

    ./dev python bench/cluster.py two            # two workers over one, 300,000 sensors; on two idle cores
    ./dev python bench/cluster.py two usual      # with Dask's own settings
    ./dev python bench/cluster.py kills          # 20 workers killed at random moments
    ./dev python bench/cluster.py tiles          # a city in tiles against the same city whole
    ./dev python bench/cluster.py light          # reflected light of blocks and tiles against that of one run
    ./dev python bench/cluster.py city STORE     # 10 million sensors over 10 million triangles
    ./dev python bench/cluster.py plan STORE     # that run in a simulation, and 1e8 and 1e10 sensors by its rates

Needs `insolate[dask]`.
"""

from __future__ import annotations

import functools
import heapq
import json
import math
import os
import random
import resource
import signal
import statistics
import sys
import tempfile
import threading
import time
from collections import Counter
from pathlib import Path

import dask
import numpy as np
from distributed import Client, LocalCluster

import insolate as ins

weather_file = Path(__file__).resolve().parents[1] / "examples" / "courtyard" / "weather.epw"
pitch, width = 16.0, 10.0


def town(columns: int, rows: int, x: float = 0.0, y: float = 0.0, seed: int = 1, shift: float = 0.0) -> ins.Model:
    """Houses of 10 x 10 m in rows, 6 to 20 m high, one in a hundred up to 60 m: ten triangles each.

    shift: how far they may stand out of their rows [m]; in rows some sensors look along whole streets.
    """
    chance = np.random.default_rng(seed)
    count = columns * rows
    heights = np.where(chance.random(count) < 0.01, chance.uniform(30, 60, count), chance.uniform(6, 20, count))
    west = x + pitch * (np.arange(count) % columns)
    south = y + pitch * (np.arange(count) // columns)
    west, south = west + chance.uniform(-shift, shift, count), south + chance.uniform(-shift, shift, count)
    corner = np.arange(8)
    vertices = np.stack(
        [
            west[:, None] + width * (corner % 2),
            south[:, None] + width * (corner // 2 % 2),
            heights[:, None] * (corner // 4),
        ],
        axis=2,
    ).reshape(-1, 3)
    sides = np.array([[4, 5, 7, 6], [0, 1, 5, 4], [1, 3, 7, 5], [3, 2, 6, 7], [2, 0, 4, 6]])
    faces = (8 * np.arange(count)[:, None, None] + sides).reshape(-1, 4)
    return ins.Model(vertices, faces, objects=[f"house{k}" for k in range(count) for _ in sides], orient="keep")


#: Dask watches itself a hundred times a second in each process: 14 % of a processor with two workers,
#: by these 5 %. Where workers have all processors it is theirs (docs/cluster.md).
less_watching = {"distributed.worker.profile.enabled": False, "distributed.admin.tick.interval": "1s"}


def workers(count: int, threads: int = 1) -> LocalCluster:
    return LocalCluster(n_workers=count, threads_per_worker=threads, dashboard_address=":0")


def same(a: ins.Radiation, b: ins.Radiation) -> bool:
    return all(a[name].tobytes() == b[name].tobytes() for name in b)


def two(settings: str = "less") -> None:
    """From the call to the result, by clients that are connected to workers that have calculated before.

    settings: of Dask, "less" watching or the "usual" ones
    """
    if settings not in ("less", "usual"):
        sys.exit(f"settings {settings!r} are unknown; give less or usual")
    dask.config.set(less_watching if settings == "less" else {})
    weather = ins.read_weather(weather_file)
    model = town(100, 100)
    sensors = model.select(facing=["up", "south"]).sensors(grid=2.7)
    sensors = ins.Sensors(sensors.points[:300_000], sensors.normals[:300_000])
    block = town(3, 3)
    begin = time.perf_counter()
    single = ins.radiation(model, sensors, weather, threads=1)
    alone = time.perf_counter() - begin
    times: dict[int, list[float]] = {1: [], 2: []}
    load = os.getloadavg()[0]
    for _ in range(3):
        for count, listed in times.items():
            with workers(count) as cluster, Client(cluster) as client:
                ins.radiation(block, block.sensors(grid=0.5), weather, client=client, block=2048, reflectance=0)
                begin = time.perf_counter()
                made = ins.radiation(model, sensors, weather, client=client)
                listed.append(time.perf_counter() - begin)
                assert same(made, single)
    medians = {count: statistics.median(listed) for count, listed in times.items()}
    print(
        f"{len(sensors)} sensors, medians of 3: one worker {medians[1]:.2f} s, two {medians[2]:.2f} s, "
        f"{medians[1] / medians[2]:.2f} times; one thread without workers {alone:.2f} s; load {load:.1f} to "
        f"{os.getloadavg()[0]:.1f}, of which this run has 1 to 2"
    )
    print({count: [round(t, 2) for t in listed] for count, listed in times.items()})


def kills(wanted: int = 20) -> None:
    # By itself a LocalCluster ends workers that take 15 s to start again, as they do on a busy machine.
    dask.config.set({"distributed.deploy.lost-worker-timeout": "5 minutes"})
    weather = ins.read_weather(weather_file)
    model = town(30, 30)
    sensors = model.sensors(grid=2.5)
    single = ins.radiation(model, sensors, weather, reflectance=0)
    chance = random.Random(11)
    killed = runs = twice = 0
    while killed < wanted:
        with tempfile.TemporaryDirectory() as folder, workers(2) as cluster, Client(cluster) as client:
            store = Path(folder, "store")
            over = threading.Event()
            here: list[int] = []

            def kill(most: int, cluster=cluster, store=store, over=over, here=here) -> None:
                while len(here) < most and not over.wait(chance.uniform(0.1, 1.5)):
                    # Those that start again hold no block that could be lost.
                    started = {worker.nanny for worker in list(cluster.scheduler.workers.values())}
                    victims = [one for one in list(cluster.workers.values()) if one.pid and one.address in started]
                    if victims and (store / "journal.jsonl").exists():
                        victim = chance.choice(victims)
                        os.kill(victim.pid, signal.SIGKILL)
                        here.append(victim.pid)

            killer = threading.Thread(target=kill, args=(min(6, wanted - killed),))
            killer.start()
            made = ins.radiation(model, sensors, weather, client=client, store=store, block=2048, reflectance=0)
            over.set()
            killer.join()
            assert same(made, single)
            lines = [json.loads(line) for line in (store / "journal.jsonl").read_text().splitlines()]
            begun = Counter(line["block"] for line in lines if line["what"] == "begin")
            finished = Counter(line["block"] for line in lines if line["what"] == "finished")
            assert set(finished.values()) == {1}
            again = sum(begun.values()) - len(begun)
            assert again <= len(here)
            killed, runs, twice = killed + len(here), runs + 1, twice + again
    print(f"{killed} kills over {runs} runs of {len(sensors)} sensors: the same bytes each time, {twice} blocks lost")


def tiles() -> None:
    weather = ins.read_weather(weather_file)
    for shift in (0.0, 2.5):
        print(f"houses out of their rows by up to {shift} m")
        compare(weather, town(150, 150, shift=shift))


def compare(weather: ins.Weather, model: ins.Model) -> None:
    parts = ins.tiles_of(model, 800.0)
    whole = None
    altitudes = (0.25, 0.5, 1.0, 3.0)
    alone = (1000.0, 500.0, 100.0, 50.0)
    for radius, altitude in (*((500.0, angle) for angle in altitudes), *((distance, 89.0) for distance in alone)):
        with tempfile.TemporaryDirectory() as folder:
            city = ins.city(
                parts,
                weather,
                store=Path(folder, "store"),
                radius=radius,
                min_altitude=altitude,
                grid=10.0,
                reflectance=0,
            )
            found = {name: city[name] for name in parts}
            stacked = {key: np.concatenate([found[name][key] for name in parts]) for key in found[next(iter(parts))]}
            if whole is None:
                points = np.stack([stacked[axis] for axis in "xyz"], axis=1)
                normals = np.stack([stacked[axis] for axis in ("nx", "ny", "nz")], axis=1)
                whole = ins.radiation(model, ins.Sensors(points, normals), weather, reflectance=0)
            off = 100.0 * np.abs(stacked["total"] / whole.total.astype(float) - 1.0)
            print(
                f"{radius:.0f} m, {altitude:g} degrees: {len(off)} sensors in {len(parts)} tiles, off by "
                f"{off.max():.3g} % at most, {off.mean():.2g} % on average, {(off > 0).mean():.2%} of them; "
                f"bound {max(tile.bound for tile in city.tiles):.2f} %",
                flush=True,
            )


def light() -> None:
    weather = ins.read_weather(weather_file)
    model = town(60, 60, shift=2.5)
    sensors = model.sensors(grid=4.0)
    sensors = ins.Sensors(sensors.points, sensors.normals)
    mixed = np.random.default_rng(1).permutation(len(sensors))
    for reflectance in (0.2, 0.5):
        whole = ins.radiation(model, sensors, weather, reflectance=reflectance)

        def show(name: str, total, whole=whole) -> None:
            off = np.asarray(total, dtype=float) - whole.total
            share = np.sort(100.0 * np.abs(off) / whole.total)
            print(
                f"{name}: bias {100.0 * off.mean() / whole.total.mean():+.3f} %, root mean square "
                f"{100.0 * math.sqrt((off**2).mean()) / whole.total.mean():.2f} % of the mean total, 99 % of sensors "
                f"within {share[int(0.99 * len(share))]:.1f} % of their own, worst {share[-1]:.0f} %",
                flush=True,
            )

        share = whole.reflected.mean() / whole.total.mean()
        print(f"{len(sensors)} sensors, reflectance {reflectance}: {share:.1%} of the light is reflected by surfaces")
        with tempfile.TemporaryDirectory() as folder:
            for block in (65_536, 10_240):
                made = ins.radiation(
                    model, sensors, weather, store=Path(folder, str(block)), block=block, reflectance=reflectance
                )
                show(f"blocks of {block}", made.total)
            shuffled = ins.Sensors(sensors.points[mixed], sensors.normals[mixed])
            made = ins.radiation(
                model, shuffled, weather, store=Path(folder, "mixed"), block=10_240, reflectance=reflectance
            )
            show("blocks of 10240, sensors in random order", made.total[np.argsort(mixed)])
            parts = ins.tiles_of(model, 320.0)
            city = ins.city(parts, weather, store=Path(folder, "city"), grid=4.0, reflectance=reflectance)
            found = {tuple(place): t for name in parts for place, t in zip(*places_of(city[name]), strict=True)}
            show(
                f"{len(parts)} tiles of 320 m",
                [found[tuple(np.round(p, 3))] for p in np.hstack([sensors.points, sensors.normals])],
            )


def places_of(tile: dict) -> tuple:
    """Places with directions, and totals of a tile."""
    return np.round(np.stack([tile[name] for name in ("x", "y", "z", "nx", "ny", "nz")], axis=1), 3), tile["total"]


def large(store: str, side: float = 10) -> None:
    load, side = os.getloadavg(), int(side)
    tile = 100 * pitch
    sources = {
        f"{i}_{j}": functools.partial(town, 100, 100, tile * i, tile * j, 100 * i + j)
        for i in range(side)
        for j in range(side)
    }
    peak = 0.0
    begin = time.perf_counter()
    with workers(2) as cluster, Client(cluster) as client:
        city = ins.city(
            sources,
            weather_file,
            store=store,
            client=client,
            facing=["up", "south"],
            grid=5.0,
            reflectance=0,
            progress=True,
            resume=True,
        )
        client_memory = resource.getrusage(resource.RUSAGE_SELF).ru_maxrss / 1e3
    taken = time.perf_counter() - begin
    table = city.table()
    peak = table["memory"].max()
    size = sum(file.stat().st_size for file in Path(store).rglob("*") if file.is_file())
    print(
        f"{len(city)} sensors over {2 * table['faces'].sum()} triangles in {len(table)} tiles: {taken:.0f} s, "
        f"{len(city) / taken:.0f} /s; a worker holds up to {peak:.0f} MB, the client {client_memory:.0f} MB; "
        f"store {size / 1e6:.0f} MB; load before {load[0]:.1f}, after {os.getloadavg()[0]:.1f}"
    )
    print(
        f"{table['processor_seconds'].sum():.0f} processor seconds in blocks, which take "
        f"{table['seconds'].min():.1f} to {table['seconds'].max():.1f} s; "
        f"{table['neighbours'].min()} to {table['neighbours'].max()} neighbours; cut {table['cut'].max():.1f} degrees, "
        f"bound {table['bound'].max():.2f} %"
    )


def queued(seconds: list[float], hosts: int, chance: random.Random, lost_every: float = math.inf) -> tuple[float, int]:
    """When hosts are done that take blocks from one queue, and how many blocks they lose.

    lost_every: mean time after which a host is lost [s]; it is back two minutes later.
    """
    per_task = 0.005  # of the scheduler, for each block [s]
    waiting = list(reversed(seconds))
    free = [(0.0, host) for host in range(hosts)]
    given = end = 0.0
    lost = 0
    while waiting:
        at, host = heapq.heappop(free)
        given = max(given + per_task, at)
        work = waiting.pop()
        if chance.random() < work / lost_every:
            waiting.append(work)
            heapq.heappush(free, (given + chance.random() * work + 120.0, host))
            lost += 1
            continue
        end = max(end, given + work)
        heapq.heappush(free, (given + work, host))
    return end, lost


def plan(store: str) -> None:
    """First the run in the store again, as a check; then larger ones by its rates."""
    receipts = [json.loads(path.read_bytes()) for path in Path(store, "receipts").glob("*.block*.json")]
    lines = [json.loads(line) for line in Path(store, "journal.jsonl").read_text().splitlines()]
    real = max(line["time"] for line in lines) - min(line["time"] for line in lines)
    sensors = sum(one["sensors"] for one in receipts)
    processor = sum(one["processor_seconds"] for one in receipts)
    workers_seen = len({line["pid"] for line in lines})
    order = [line["block"] for line in lines if line["what"] == "finished"]
    seconds = {f"{one['tile']}.block{one['block']}": one["seconds"] for one in receipts}
    again, _ = queued([seconds[name] for name in order], workers_seen, random.Random(1))
    size = sum(file.stat().st_size for file in Path(store, "results.zarr").rglob("*") if file.is_file()) / sensors
    files = sum(file.stat().st_size for file in Path(store, "files").iterdir()) / sensors
    rate = sensors / processor
    print(
        f"the run of {sensors} sensors on {workers_seen} workers: {real:.0f} s, simulated {again:.0f} s; "
        f"{rate:.0f} sensors for a processor second with all that belongs to tiles; {size:.0f} B a sensor in results, "
        f"{files:.0f} in scenes"
    )
    # Of a tile's processor time a sixth is in one thread: reading what is around, 75 MB, and choosing faces.
    alone, read, threads, spread = 0.17, 75e6, 2, 0.3
    tile = sensors / len(receipts)
    seconds_of_tile = processor / len(receipts) * (alone + (1.0 - alone) / (0.95 * threads))
    for wanted, hosts in ((1e8, 1), (1e8, 4), (1e10, 16), (1e10, 100)):
        chance = random.Random(1)
        count, workers_at_once = int(wanted / tile), 16 * hosts
        listed = [seconds_of_tile * chance.uniform(1 - spread, 1 + spread) for _ in range(count)]
        end, lost = queued(listed, workers_at_once, chance, lost_every=200 * 3600.0)
        print(
            f"{wanted:.0e} sensors, {hosts} hosts of 32 cores in 16 workers: {count} blocks "
            f"of {seconds_of_tile:.1f} s, "
            f"{end / 60:.1f} min, workers busy {sum(listed) / (end * workers_at_once):.0%}, {lost} blocks lost, "
            f"{end * hosts * 32 / 3600:.0f} core hours; {wanted * size / 1e9:.0f} GB of results, "
            f"{wanted * files / 1e9:.0f} GB of scenes, {count * read / 1e12:.2f} TB read, "
            f"{count * read / end / hosts / 1e6:.0f} MB/s a host"
        )


if __name__ == "__main__":
    actions = {"two": two, "kills": kills, "tiles": tiles, "light": light, "city": large, "plan": plan}
    if len(sys.argv) < 2 or sys.argv[1] not in actions:
        sys.exit(__doc__)
    actions[sys.argv[1]](*(float(a) if a.replace(".", "").isdigit() else a for a in sys.argv[2:]))
