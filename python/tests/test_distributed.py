"""Workers give the bytes of one process, whatever becomes of them."""

from __future__ import annotations

import contextlib
import functools
import json
import math
import os
import random
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time
from collections import Counter

import numpy as np
import pytest

import insolate as ins

distributed = pytest.importorskip("distributed", reason="needs insolate[dask]")
zarr = pytest.importorskip("zarr", reason="needs insolate[dask]")

from insolate import _distributed_context as context  # noqa: E402
from insolate import distributed as many  # noqa: E402

# Black surfaces: the promise of the same bytes is theirs.
quick = {"period": "6/21", "step": 1, "reflectance": 0}
faces = [[0, 2, 3, 1], [4, 5, 7, 6], [0, 1, 5, 4], [1, 3, 7, 5], [3, 2, 6, 7], [2, 0, 4, 6]]


def houses(columns, rows, x=0.0, y=0.0):
    """Boxes of 12 x 12 m, 20 m apart, of 6 to 30 m."""
    places = [(x + 20 * i, y + 20 * j, 6 + (7 * i + 5 * j) % 25) for j in range(rows) for i in range(columns)]
    vertices = [
        [a + 12 * dx, b + 12 * dy, z * height]
        for a, b, height in places
        for z in (0, 1)
        for dy in (0, 1)
        for dx in (0, 1)
    ]
    listed = [[8 * place + corner for corner in face] for place in range(len(places)) for face in faces]
    return ins.Model(vertices, listed, objects=[f"house{k}" for k in range(len(places)) for _ in faces])


@pytest.fixture(scope="module")
def cluster():
    with distributed.LocalCluster(n_workers=2, threads_per_worker=1, dashboard_address=":0") as started:
        yield started


@pytest.fixture
def client(cluster):
    with distributed.Client(cluster) as made:
        yield made


@pytest.fixture(scope="module")
def town():
    model = houses(8, 8)
    return model, model.sensors(grid=2.0)


@pytest.fixture(scope="module")
def alone(town, weather):
    return ins.radiation(*town, weather, by=["object"], **quick)


def assert_same(made, wanted):
    assert list(made) == list(wanted)
    for name in wanted:
        assert made[name].tobytes() == wanted[name].tobytes(), name


def journal(store):
    """How often each block was begun and finished."""
    lines = [json.loads(line) for line in (store / "journal.jsonl").read_text().splitlines()]
    return tuple(Counter(line["block"] for line in lines if line["what"] == what) for what in ("begin", "finished"))


def test_a_study_is_the_same_on_workers(client, town, weather, alone, tmp_path):
    made = ins.radiation(*town, weather, client=client, by=["object"], **quick)
    assert_same(made, alone)
    assert made.warnings == alone.warnings
    assert made.groups("object").equals(alone.groups("object"))
    ignored = {"timings", "created", "finished", "started"}
    kept = [{k: v for k, v in one.summary.items() if k not in ignored and "time" not in k} for one in (made, alone)]
    assert kept[0].keys() == kept[1].keys()
    with pytest.raises(ins.DataError, match="not those of this study"):
        made._core.take([("total", np.zeros(3, dtype=np.float32))], None)
    # Weather of a data frame travels too; without a client the same blocks are walked here.
    frame = ins.Weather.from_dataframe(
        weather.to_dataframe(), latitude=weather.site.latitude, longitude=weather.site.longitude, label="left"
    )
    wanted = ins.radiation(*town, frame, **quick)
    assert_same(ins.radiation(*town, frame, client=client, block=4096, **quick), wanted)
    assert_same(ins.radiation(*town, frame, store=tmp_path / "here", block=10_000, **quick), wanted)


def test_a_stopped_run_goes_on_under_another_scheduler(client, town, weather, alone, tmp_path):
    class Enough(Exception):
        pass

    def stopping(done, total):
        if done > 4096:
            raise Enough

    store = tmp_path / "store"
    with pytest.raises(Enough):
        ins.radiation(*town, weather, client=client, store=store, block=2048, progress=stopping, **quick)
    for _ in range(50):  # what was running is finished
        before = journal(store)
        if sum(before[0].values()) == sum(before[1].values()):
            break
        time.sleep(0.1)
    kept = len(list((store / "receipts").glob("block*")))
    assert 3 <= kept < -(-len(town[1]) // 2048)
    with pytest.raises(ins.UsageError, match="resume=True"):
        ins.radiation(*town, weather, store=store, **quick)
    with pytest.raises(ins.UsageError, match="with other options"):
        ins.radiation(*town, weather, store=store, resume=True, albedo=0.5, **quick)
    made = ins.radiation(*town, weather, store=store, resume=True, **quick)
    assert_same(made, alone)
    begun, finished = journal(store)
    assert set(begun.values()) == set(finished.values()) == {1}
    assert sum(begun.values()) == -(-len(town[1]) // 2048)


def test_killed_workers_cost_their_blocks_alone(cluster, client, town, weather, alone, tmp_path):
    chance = random.Random(5)
    store = tmp_path / "store"
    kills = []
    over = threading.Event()

    def kill():
        while len(kills) < 3 and not over.wait(chance.uniform(0.05, 0.4)):
            if (store / "journal.jsonl").exists():
                worker = chance.choice(list(cluster.workers.values()))
                if worker.pid:
                    os.kill(worker.pid, signal.SIGKILL)
                    kills.append(worker.pid)
                    over.wait(1.0)

    killer = threading.Thread(target=kill)
    killer.start()
    try:
        made = ins.radiation(*town, weather, client=client, store=store, block=2048, **{**quick, "step": 0.1})
    finally:
        over.set()
        killer.join()
    assert kills
    assert_same(made, ins.radiation(*town, weather, **{**quick, "step": 0.1}))
    begun, finished = journal(store)
    assert {path.stem for path in (store / "receipts").glob("block*")} == set(begun)
    # A worker may die between a receipt and its line in the journal.
    assert len(set(begun) - set(finished)) <= len(kills)
    lost = sum(begun.values()) - len(begun)
    assert lost <= len(kills)
    assert not list(store.rglob("*.partial"))


@pytest.fixture
def other_host():
    """A network of its own with the address 10.201.7.2, whose neighbour is 10.201.7.1 here."""
    name = "insolate-test"
    commands = [
        ["netns", "add", name],
        ["link", "add", "insolate0", "type", "veth", "peer", "name", "insolate1", "netns", name],
        ["addr", "add", "10.201.7.1/24", "dev", "insolate0"],
        ["link", "set", "insolate0", "up"],
        ["-n", name, "addr", "add", "10.201.7.2/24", "dev", "insolate1"],
        ["-n", name, "link", "set", "insolate1", "up"],
    ]
    try:
        for command in commands:
            subprocess.run(["ip", *command], check=True, capture_output=True)
        yield ["ip", "netns", "exec", name]
    except (OSError, subprocess.CalledProcessError):
        pytest.skip("needs to make a network")
    finally:
        with contextlib.suppress(OSError):
            subprocess.run(["ip", "netns", "delete", name], check=False, capture_output=True)


def test_a_worker_on_another_host(other_host, town, weather, alone, tmp_path):
    with distributed.LocalCluster(n_workers=0, host="10.201.7.1", dashboard_address=":0") as cluster:
        command = [sys.executable, "-m", "distributed.cli.dask_worker", cluster.scheduler_address, "--nthreads", "2"]
        worker = subprocess.Popen([*other_host, *command, "--no-dashboard"], cwd=tmp_path, stderr=subprocess.DEVNULL)
        try:
            with distributed.Client(cluster) as client:
                client.wait_for_workers(1, timeout=60)
                assert all("10.201.7.2" in address for address in client.nthreads())
                assert_same(ins.radiation(*town, weather, client=client, by=["object"], **quick), alone)
        finally:
            worker.terminate()
            worker.wait()


def test_a_worker_that_dies_each_time_is_named(client, weather, tmp_path, monkeypatch):
    monkeypatch.setattr(many, "submissions", 1)
    client.run_on_scheduler(lambda dask_scheduler: setattr(dask_scheduler, "allowed_failures", 0))
    try:
        with pytest.raises(ins.Incomplete, match=r"1 tile is not read \(bad\): its workers died.*resume=True"):
            ins.city({"bad": lambda: os._exit(9)}, weather, store=tmp_path / "store", client=client, **quick)
    finally:
        client.run_on_scheduler(lambda dask_scheduler: setattr(dask_scheduler, "allowed_failures", 3))


def test_a_cluster_without_workers_is_not_waited_for(town, weather, tmp_path, monkeypatch):
    monkeypatch.setattr(many, "patience", 1.0)
    monkeypatch.setattr(many, "seconds_between_looks", 0.5)
    with (
        distributed.LocalCluster(n_workers=1, threads_per_worker=1, dashboard_address=":0") as cluster,
        distributed.Client(cluster) as client,
    ):

        def ending(done, total):
            if done:
                cluster.scale(0)

        store = tmp_path / "store"
        with pytest.raises(ins.Incomplete, match=r"missing.*no worker for 1 s; start some.*resume=True"):
            ins.radiation(*town, weather, client=client, store=store, block=2048, progress=ending, **quick)
        with pytest.raises(ins.Incomplete, match=r"no worker for 1 s; start some"):
            ins.city({"a": houses(1, 1)}, weather, store=tmp_path / "city", client=client, **quick)


def test_reflected_light_is_the_same_in_blocks_and_agrees_in_tiles(client, weather, tmp_path):
    model = houses(4, 4)
    sensors = model.sensors(grid=0.7)
    assert len(sensors) > 17_000
    bright = {**quick, "reflectance": 0.3}
    whole = ins.radiation(model, sensors, weather, **bright)
    made = ins.radiation(model, sensors, weather, client=client, block=2048, **bright)
    assert_same(made, whole)
    assert whole.reflected.mean() > 0.02 * whole.total.mean()
    some = range(0, len(sensors), 999)
    hours = made.hours(some)["poa_reflected"].sum("time").to_numpy()
    np.testing.assert_allclose(hours, made.reflected[some], rtol=1e-3, atol=1)
    paint, dim = {"house*": {"reflectance": 0.3}}, {**bright, "reflectance": 0.1}
    painted = ins.radiation(model, sensors, weather, store=tmp_path / "c", materials=paint, **dim)
    assert_same(painted, ins.radiation(model, sensors, weather, materials=paint, **dim))

    # Each of the two has an error of 2 % root mean square of the mean total, and of 0.5 % in the mean.
    def assert_near(made, wanted):
        off = made.astype(float) - wanted
        assert abs(off.mean()) < 0.007 * wanted.mean()
        assert 0 < np.sqrt((off**2).mean()) < 0.028 * wanted.mean()

    tiles = ins.tiles_of(model, 40.0)
    city = ins.city(tiles, weather, store=tmp_path / "city", grid=3.0, **bright)
    found = city["0_0"]
    own = ins.Sensors(*(np.stack([found[k] for k in names], axis=1) for names in (("x", "y", "z"), ("nx", "ny", "nz"))))
    assert_near(found["total"], ins.radiation(model, own, weather, **bright).total)
    assert "in other tiles" in city.to_xarray("0_0").attrs["reflected_light"]


def test_a_disk_that_fills_loses_nothing(town, weather, alone, tmp_path):
    disk = tmp_path / "disk"
    disk.mkdir()
    mounted = subprocess.run(
        ["mount", "-t", "tmpfs", "-o", "size=2100k", "tmpfs", disk], capture_output=True, check=False
    )
    if mounted.returncode:
        pytest.skip("needs to mount a small disk")
    try:
        with pytest.raises(ins.Incomplete, match=r"missing .*No space left on device.*resume=True") as caught:
            ins.radiation(*town, weather, store=disk / "store", block=2048, **quick)
        assert caught.value.missing
        kept = set((disk / "store" / "receipts").glob("block*"))
        assert kept
        subprocess.run(["mount", "-o", "remount,size=64m", disk], check=True)
        made = ins.radiation(*town, weather, store=disk / "store", resume=True, **quick)
        assert_same(made, alone)
        begun, _ = journal(disk / "store")
        assert max(begun[path.stem] for path in kept) == 1
    finally:
        subprocess.run(["umount", disk], check=True)


def test_a_city_is_that_of_one_scene(client, weather, tmp_path):
    whole = houses(24, 12)
    tiles = ins.tiles_of(whole, 160.0)
    assert len(tiles) == 6
    assert sum(map(len, tiles.values())) == len(whole)
    made = ins.city(tiles, weather, store=tmp_path / "city", client=client, grid=6, hours=True, **quick)
    assert repr(made).endswith("6 tiles, complete>")
    parts = {name: tile.sensors(grid=6) for name, tile in tiles.items()}
    table = made.table()
    for name, sensors in parts.items():
        wanted = ins.radiation(whole, ins.Sensors(sensors.points, sensors.normals), weather, **quick)
        found = made[name]
        for column in wanted:
            assert found[column].tobytes() == wanted[column].tobytes(), column
        assert table.loc[name, "energy"] == pytest.approx(float(wanted.total.astype(float) @ sensors.areas) / 1e3)
        assert table.loc[name, ["neighbours", "cut", "bound"]].tolist() == [5, 0, 0]
        assert found["object"].max() >= 0
    data = made.to_xarray("0_0")
    assert data["poa_global"].encoding["chunks"][1] == 365
    hours = data["poa_global"][7].to_numpy()
    wanted_hours = ins.radiation(whole, parts["0_0"], weather, **quick).hours([7])["poa_global"][0].to_numpy()
    np.testing.assert_allclose(hours, wanted_hours, atol=0.051)
    assert hours.max() > 100
    assert str(data["time"][4000].to_numpy())[:16] == "2001-06-16T16:00"
    assert "time" not in found
    again = ins.city(tiles, weather, store=tmp_path / "city", resume=True, grid=6, hours=True, **quick)
    assert set(journal(tmp_path / "city")[0].values()) == {1}
    assert ins.City(tmp_path / "city").missing == again.missing == []
    (tmp_path / "city" / "receipts" / "0_0.block0.json").unlink()
    with pytest.raises(ins.Incomplete, match=r"0_0\.block0"):
        again.to_xarray("0_0")
    fill = ins.city({"a": houses(1, 1)}, weather, store=tmp_path / "fill", hours=True, **quick)._store.group("a")
    assert fill["poa_global"].fill_value == fill["poa_global"].attrs["_FillValue"] == 65535
    # Hours and columns are of the same light between houses.
    bright = ins.city({"a": houses(2, 1)}, weather, store=tmp_path / "bright", hours=True, grid=4, period="6/21")
    assert bright["a"]["reflected"].max() > 0.01 * bright["a"]["total"].max()
    hours_sum = bright.to_xarray("a")["poa_global"].sum("time").to_numpy()
    np.testing.assert_allclose(hours_sum, bright["a"]["total"], rtol=1e-3, atol=3)


def test_a_tile_may_have_several_models(weather, tmp_path):
    # A ridge between the tiles shades both; sensors stand on the houses alone.
    def ground(x):
        return ins.Model([[x, -20, 0], [x + 60, -20, 0], [x + 60, 60, 25], [x, 60, 0]], [[0, 1, 2, 3]], orient="keep")

    places = (0.0, 60.0)
    models = {x: [houses(2, 2, x), ground(x)] for x in places}
    lists = {f"t{x:g}": models[x] for x in places}
    given = {f"t{x:g}": functools.partial(lambda x: (models[x], models[x][0].sensors(grid=6)), x) for x in places}
    given["bare"] = lambda: (ground(120.0), None)
    whole = [one for x in places for one in models[x]]
    for number, tiles in enumerate((lists, given)):
        made = ins.city(tiles, weather, store=tmp_path / str(number), grid=6, **quick)
        assert [tile.faces for tile in made.tiles] == [25, 25, 1][: len(tiles)]
        for x in places:
            sensors = models[x][0].sensors(grid=6)
            wanted = ins.radiation(
                [*whole, *([ground(120.0)] if number else [])],
                ins.Sensors(sensors.points, sensors.normals),
                weather,
                **quick,
            )
            assert made[f"t{x:g}"]["total"].tobytes() == wanted.total.tobytes()
        assert "bare" not in tiles or made["bare"] == {}
    with pytest.raises(ins.DataError, match=r"tile a: .* degrees; give the models of a tile one north"):
        ins.city(
            {"a": [houses(1, 1), ins.Model(ground(0).vertices, [[0, 1, 2]], north=5)]}, weather, store=tmp_path / "c"
        )


def test_tiles_keep_what_faces_are_called():
    faces_of = {"objects": ["a", "", "b"], "materials": ["", "glass", "glass"], "groups": ["g1", "g2", ""]}
    vertices = [[9 * k + x, y, 0] for k in range(3) for x, y in ((0, 0), (1, 0), (0, 1))]
    model = ins.Model(vertices, [[0, 1, 2], [3, 4, 5], [6, 7, 8]], orient="keep", **faces_of)
    tiles = ins.tiles_of(model, 9.0)
    for name, wanted in faces_of.items():
        assert getattr(model, name) == wanted
        assert [getattr(tile, name)[0] for tile in tiles.values()] == wanted
    assert len(tiles["1_0"].select("g2").sensors()) == 1


def test_neighbours_are_found_as_by_asking_all():
    chance = np.random.default_rng(3)
    low = np.column_stack([chance.uniform(0, 12_000, (100, 2)), chance.uniform(0, 50, 100)])
    boxes = np.stack([low, low + chance.uniform([100, 100, 5], [900, 900, 40], (100, 3))], axis=1)
    boxes[::20, 1, 2] += 150.0
    lows = np.where(chance.random(100) < 0.1, np.inf, boxes[:, 0, 2] + 2.0)
    for radius, altitude in ((500.0, 0.5), (0.0, 0.5), (2000.0, 3.0), (50.0, 80.0)):
        slope = math.tan(math.radians(altitude))
        quick_one = context.Neighbourhood(boxes, radius, altitude)
        for place in range(100):
            found, own, low = quick_one.of(place, lows[place]), boxes[place], lows[place]
            others, steepest = [], 0.0
            for other in range(100) if np.isfinite(low) else ():
                box = boxes[other]
                gap = [max(box[0, k] - own[1, k], own[0, k] - box[1, k], 0.0) for k in (0, 1)]
                far = max(max(box[1, k] - own[1, k], own[0, k] - box[0, k]) for k in (0, 1))
                distance = math.hypot(*gap)
                if other != place and (distance <= radius or box[1, 2] - low > slope * distance):
                    is_far = [
                        distance > radius and box[0, 2] + slope * d <= low + slope * distance for d in context.far
                    ]
                    others.append((other, sum(is_far)))
                if other != place and far > radius:
                    steepest = max(steepest, (box[1, 2] - low) / max(distance, radius, 1e-3))
            assert found.others == others
            assert found.cut == pytest.approx(math.degrees(math.atan(min(steepest, slope))))


def test_a_city_is_turned_as_its_tiles(weather, tmp_path):
    def turned(columns, angle):
        model = houses(columns, 2)
        return ins.Model(model.vertices, model.faces, objects=model.objects, north=angle)

    whole = turned(6, 30.0)
    tiles = ins.tiles_of(whole, 60.0)
    parts = {name: tile.sensors(grid=6) for name, tile in tiles.items()}
    made = ins.city(tiles, weather, store=tmp_path / "a", grid=6, **quick)
    straight = ins.city(tiles, weather, store=tmp_path / "b", grid=6, north=0, **quick)
    for name, sensors in parts.items():
        wanted = ins.radiation(whole, ins.Sensors(sensors.points, sensors.normals), weather, **quick)
        assert made[name]["total"].tobytes() == wanted.total.tobytes()
        assert (made[name]["total"] != straight[name]["total"]).any()
    with pytest.raises(ins.UsageError, match=r"tiles a and b .* 30 and 20 degrees; give north="):
        ins.city({"a": turned(1, 30.0), "b": turned(1, 20.0)}, weather, store=tmp_path / "c", **quick)


def test_a_store_takes_what_it_was_made_from_alone(weather, tmp_path):
    def year(**changed):
        site = {"latitude": weather.site.latitude, "longitude": weather.site.longitude, "label": "left"}
        return ins.Weather.from_dataframe(weather.to_dataframe(), **{**site, **changed})

    def go(tiles=None, year=year(), **options):  # noqa: B008
        given = {"tiles": tiles or {"a": houses(1, 1), "b": file}, "weather": year, "store": tmp_path / "store"}
        return ins.city(**given, resume=True, **{"grid": 6, **quick, **options})

    file = tmp_path / "b.obj"
    file.write_text("v 40 0 0\nv 50 0 0\nv 50 9 0\nf 1 2 3\n")
    first = go()
    assert go()["a"]["total"].tobytes() == first["a"]["total"].tobytes()
    for changed in ({"latitude": 10.0}, {"time_zone": weather.site.time_zone + 1}):
        with pytest.raises(ins.UsageError, match="with other weather"):
            go(year=year(**changed))
    with pytest.raises(ins.UsageError, match="with other sensors"):
        go(offset=0)
    with pytest.raises(ins.UsageError, match="tile a is no longer the model"):
        go({"a": houses(1, 2), "b": file})
    given = file.read_bytes(), file.stat()
    file.write_text("v 40 0 0\nv 50 0 0\nv 50 19 0\nf 1 2 3\n")
    with pytest.raises(ins.UsageError, match="tile b is no longer the file"):
        go()
    file.write_bytes(given[0])
    os.utime(file, ns=(given[1].st_atime_ns, given[1].st_mtime_ns))
    # Inputs in the store that were damaged or lost are found out, and put back where they can be.
    store = many.Store(tmp_path / "store")
    block = store.receipt_folder / "a.block0.json"
    scene = store.files / store.receipt("a.tile")["scenes"][0]
    year_file = next(store.files.glob("*.weather.npz"))
    for damaged, error in ((scene, "is damaged .*resume=True"), (year_file, None)):
        block.unlink()
        damaged.write_bytes(damaged.read_bytes()[:-9] + b"123456789")
        with pytest.raises(ins.DataError, match=error) if error else contextlib.nullcontext():
            go()
        if error:
            damaged.unlink()
        assert go()["a"]["total"].tobytes() == first["a"]["total"].tobytes()
    year_file.write_bytes(b"nothing")
    with pytest.raises(ins.DataError, match="is damaged"):
        many.Store(tmp_path / "store").weather(year_file.name)


def test_a_store_whose_maker_died_at_once_is_taken(weather, tmp_path):
    tiles = {"a": houses(1, 1)}
    wanted = ins.city(tiles, weather, store=tmp_path / "a", **quick)["a"]["total"]
    died = tmp_path / "b"
    ins.city(tiles, weather, store=died, **quick)
    for name in ("receipts", "files", "results.zarr/a", "warnings"):
        for file in sorted((died / name).rglob("*"), reverse=True):
            file.rmdir() if file.is_dir() else file.unlink()
    (died / "results.zarr" / "a").rmdir()
    (died / "journal.jsonl").unlink()
    (died / "manifest.json").rename(died / "manifest.json.0123.partial")
    made = ins.city(tiles, weather, store=died, resume=True, **quick)
    assert made["a"]["total"].tobytes() == wanted.tobytes()
    (died / "manifest.json").unlink()
    with pytest.raises(ins.UsageError, match="not empty"):
        ins.city(tiles, weather, store=died, resume=True, **quick)


def test_an_error_of_the_progress_function_stays_what_it_is(client, town, weather, tmp_path):
    def failing(done, total):
        if done:
            raise ConnectionResetError("of the caller")

    for number, one in enumerate((client, None)):
        with pytest.raises(ConnectionResetError, match="of the caller"):
            ins.city({"a": houses(1, 1)}, weather, store=tmp_path / str(number), client=one, progress=failing, **quick)
    with pytest.raises(ConnectionResetError, match="of the caller"):
        ins.radiation(*town, weather, store=tmp_path / "radiation", progress=failing, **quick)


@pytest.mark.parametrize(("error", "answers"), [(ValueError, True), (KeyboardInterrupt, True), (ValueError, False)])
def test_a_stopped_run_leaves_no_temporary_folder(client, town, weather, tmp_path, monkeypatch, error, answers):
    def stopping(done, total):
        if done:
            raise error("of the caller")

    if not answers:  # Dask waits without end where a worker dies that was asked
        monkeypatch.setattr(client, "run", lambda *_, **__: time.sleep(10.0))
        monkeypatch.setattr(many, "patience_at_end", 2.0)
    monkeypatch.setattr(tempfile, "tempdir", str(tmp_path))
    # Blocks that take a while, so that workers are in the midst of some.
    slow = {**quick, "step": 0.1, "block": 4096}
    with pytest.raises(error, match="of the caller"):
        ins.radiation(*town, weather, client=client, progress=stopping, **slow)
    assert not list(tmp_path.iterdir())
    time.sleep(1.0)
    assert not list(tmp_path.iterdir())


def test_damage_of_a_store_is_named_and_undone(town, weather, alone, tmp_path):
    def go():
        tiles = {"a": houses(3, 3)}
        return ins.city(tiles, weather, store=store, resume=True, grid=2, hours=np.True_, block=2048, **quick)

    def change(path):
        array = zarr.open_array(str(path), mode="r+")
        array[2100] = array[2100] + 1.0

    def cut(path):
        path.write_bytes(path.read_bytes()[:9])

    def fill(content):
        return lambda path: path.write_text(content)

    def delete(path):
        shutil.rmtree(path) if path.is_dir() else path.unlink()

    store = tmp_path / "city"
    wanted = go()["a"]
    assert len(wanted["x"]) > 2100
    group, receipts = store / "results.zarr" / "a", store / "receipts"
    whole_tile = [group, "a.block0", "a.block1", "a.tile"]
    cases = [
        (group / "total", change, ["a.block1"]),
        (group / "z", change, ["a.tile"]),
        (group / "total" / "c" / "1", cut, ["a.block1"]),
        (group / "total" / "c" / "1", delete, ["a.block1"]),
        (group / "area" / "c" / "1", delete, ["a.tile"]),
        (group / "poa_global" / "c" / "1" / "7", delete, ["a.block1"]),
        (group / "total" / "zarr.json", fill("{}"), whole_tile),
        (group / "total", delete, whole_tile),
        (group, delete, whole_tile[1:]),
        (store / "results.zarr", delete, whole_tile[1:]),
        (receipts / "a.block1.json", fill(""), ["a.block1"]),
        (receipts / "a.block1.json", fill("[]"), ["a.block1"]),
        (receipts / "a.tile.json", fill("{"), ["a.tile"]),
        (receipts / "plan.json", fill("{}"), ["plan"]),
    ]
    for path, damage, to_delete in cases:
        damage(path)
        with pytest.raises(ins.DataError) as caught:
            ins.City(store)["a"]
        text = str(caught.value)
        assert str(path).partition("/c/")[0] in text
        if len(to_delete) == 1 and path.parent != receipts:
            assert "the chunk of a.block1 " in text
            assert f"{receipts / to_delete[0]}.json and run again with resume=True" in text
        for name in to_delete:
            delete(receipts / f"{name}.json" if isinstance(name, str) else name)
        assert_same(go()["a"], wanted)
    # Results of versions that kept no sums are read, without the chunks that are gone.
    for receipt in receipts.glob("a.*.json"):
        receipt.write_text(json.dumps({k: v for k, v in json.loads(receipt.read_bytes()).items() if k != "sums"}))
    assert_same(ins.City(store)["a"], wanted)
    delete(group / "total" / "c" / "0")
    for read in (lambda city: city["a"], lambda city: city.to_xarray("a")):
        with pytest.raises(ins.DataError, match=r"total: the chunk of a\.block0 is missing"):
            read(ins.City(store))
    for content in ("", "[]", "{}"):
        (store / "manifest.json").write_text(content)
        for again in (go, lambda: ins.City(store)):
            with pytest.raises(ins.DataError, match=r"manifest.json: is damaged; .*delete the store"):
                again()

    store = tmp_path / "scene"
    ins.radiation(*town, weather, store=store, block=2048, **quick)
    for column, receipt in (("total", "block1"), ("nx", "sensors")):
        change(store / "results.zarr" / column)
        if column == "nx":  # which is read where the block is calculated
            (store / "receipts" / "block1.json").unlink()
        with pytest.raises(ins.DataError, match=f"{column}: the chunk of block1 has changed .*{receipt}.json"):
            ins.radiation(*town, weather, store=store, resume=True, **quick)
        (store / "receipts" / f"{receipt}.json").unlink()
        assert_same(ins.radiation(*town, weather, store=store, resume=True, **quick), alone)


def test_what_is_cut_is_bounded(weather, tmp_path):
    # A slab 620 m south of a house, 3.6 degrees high, is left out below 5 degrees.
    slab = ins.Model(houses(1, 1).vertices * [30, 1, 40 / 6] + [-180, -620, 0], faces)
    assert slab.vertices[:, 2].max() == 40
    tiles = {"house": houses(1, 1), "slab": slab}
    made = ins.city(
        tiles,
        weather,
        store=tmp_path / "a",
        radius=500,
        min_altitude=5,
        select=None,
        grid=3,
        period="12/21",
        step=1,
        reflectance=0,
    )
    whole = ins.city(
        tiles, weather, store=tmp_path / "b", min_altitude=1, grid=3, period="12/21", step=1, reflectance=0
    )
    by_name = {tile.name: tile for tile in made.tiles}
    assert by_name["house"].cut == pytest.approx(math.degrees(math.atan2(40 - made["house"]["z"].min(), 608)), abs=0.1)
    assert {tile.name: tile.neighbours for tile in whole.tiles} == {"house": 1, "slab": 0}
    lost = made["house"]["total"] / whole["house"]["total"] - 1
    assert 0 < 100 * lost.max() <= by_name["house"].bound < 10
    assert any("at most" in note for note in made.notes)


@pytest.mark.parametrize(("cell", "ridge"), [(50.0, 400.0), (600.0, 2500.0)])
def test_terrain_beyond_stands_where_it_is(cell, ridge):
    # A ridge along y = 99.5 cells on a plain at 100 m: 5 km away, and 60, where the earth hides 245 m of it.
    grid = np.full((240, 240), 100.0)
    grid[19:21] = 100.0 + ridge
    heights = context.Grid(grid, -120 * cell, 120 * cell, (cell, cell))
    vertices, quads = context.horizon_walls(heights, (0.0, 0.0), 100.0, 1000.0, 360)
    walls = ins.Model(vertices, quads, orient="keep")

    def angle(x, y, azimuth):
        """Of the horizon, between rays that pass and rays that do not."""
        tilts = np.radians(np.linspace(0.05, 20.0, 2000))
        turn = math.radians(azimuth)
        ways = np.stack([np.cos(tilts) * math.sin(turn), np.cos(tilts) * math.cos(turn), np.sin(tilts)], axis=1)
        free = ins.visible(walls, [x, y, 100.01], ways)
        return 0.0 if free.all() else math.degrees(tilts[~free].max())

    for x, y in ((0, 0), (300, 500), (-500, -400)):
        for azimuth in (0, 30, 330):
            far = (99.5 * cell - y) / math.cos(math.radians(azimuth))
            drop = far**2 / (2 * 6371000 / 0.87)
            assert angle(x, y, azimuth) == pytest.approx(math.degrees(math.atan2(ridge - drop, far)), abs=0.12)
    assert angle(0, 0, 180) == 0.0
    with pytest.raises(ins.UsageError, match="72 or more"):
        ins.city({"a": walls}, "none.epw", store="none", horizon=heights, directions=36)


def test_a_horizon_takes_the_light_from_below_it(weather, tmp_path):
    def roof():
        return houses(1, 1)

    grid = np.full((200, 200), 0.0)
    grid[150:] = 600.0
    ridge = context.Grid(grid, -5000.0, 5000.0, (50.0, 50.0))
    options = {"select": "house0", "facing": "up", "grid": 6, "period": "12/1-12/31"}
    free = ins.city({"a": roof}, weather, store=tmp_path / "a", **options)["a"]
    behind = ins.city({"a": roof}, weather, store=tmp_path / "b", horizon=ridge, **options)["a"]
    assert (behind["sky"] < free["sky"]).all()
    assert (behind["beam"] < 0.95 * free["beam"]).all()  # 13 degrees in the south, in December


@pytest.mark.parametrize(
    ("keywords", "text"),
    [
        ({"method": "cumulative-sky"}, "runs in one process"),
        ({"rays": "octree"}, "--rays octree: runs in one process"),
        ({"materials": {"glass": {"reflectance": 0.1}}}, "materials: .*one scene"),
        ({"tiles": {"a": lambda: os.stat("nowhere.obj")}}, "tile a: .*nowhere.obj.*on every worker"),
        ({"tiles": {"a/b": None}}, "rename the tile"),
        ({"tiles": {"zarr.json": None}}, "rename the tile"),
        ({"tiles": {}}, "give some"),
        ({"grd": 2}, "no such option"),
        ({"block": 0}, "above 0"),
        ({"tiles": {"a": "no.obj"}}, "tile a: .*no.obj"),
        ({"tiles": {"a": houses(1, 1), "b": [houses(1, 1), 5]}}, "tile b: is 5; give a file"),
        ({"tiles": {"a": lambda: (None, None)}}, "tile a: is None; give a file"),
        ({"tiles": {"a": [os.getcwd]}}, "tile a: is <built-in function getcwd>; give a file"),
        ({"tiles": {"a": lambda: {}["key"]}}, r"tile a: its function raised KeyError: 'key' \(.*, line \d+\)"),
        ({"hours": (8, 18)}, "hours .*is a switch here.*window of the day.*for one scene by radiation"),
        ({"hours": "no"}, "hours 'no': is a switch here"),
    ],
)
def test_what_cannot_be_calculated_is_said(weather, tmp_path, keywords, text):
    given = {"tiles": {"a": houses(1, 1)}, **quick, **keywords}
    with pytest.raises(ins.Error, match=text):
        ins.city(given.pop("tiles"), weather, store=tmp_path / "store", **given)


def test_a_file_is_no_store(weather, tmp_path):
    file = tmp_path / "file"
    file.write_text("mine")
    with pytest.raises(ins.UsageError, match="file: is a file; give a folder"):
        ins.city({"a": houses(1, 1)}, weather, store=file, **quick)
    with pytest.raises(ins.UsageError, match="there is no store"):
        ins.City(file)
