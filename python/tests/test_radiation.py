from __future__ import annotations

import signal
import threading
import time

import numpy as np
import pytest

import insolate as ins


def test_labels_name_what_the_arrays_hold(summer, sensors):
    frame = summer.to_dataframe()
    assert list(frame.columns[:8]) == ["x", "y", "z", "nx", "ny", "nz", "total", "beam"]
    assert list(frame.columns[-4:]) == ["area", "face", "object", "material"]
    np.testing.assert_array_equal(frame["total"], summer.total)
    data = summer.to_xarray()
    assert data["total"].attrs == {"units": "Wh/m2", "long_name": "Total radiation"}
    np.testing.assert_array_equal(data["surface_tilt"], sensors.tilts)
    weighted = float((data["total"] * data["area"]).sum())
    assert weighted == pytest.approx(float(summer.total.astype(float) @ sensors.areas), rel=1e-6)
    assert summer.summary["sensors"]["count"] == len(sensors)
    with pytest.raises(AttributeError, match="totl"):
        _ = summer.totl


def test_hours_add_up_to_the_sums(summer):
    data = summer.hours([0, 17])
    assert data["poa_global"].shape == (2, 8760)
    for part, name in (("beam", "poa_direct"), ("sky", "poa_sky_diffuse"), ("ground", "poa_ground_diffuse")):
        sums = data[name].sum("time").to_numpy()
        np.testing.assert_allclose(sums, summer[part][[0, 17]], atol=1e-4 * summer.total[[0, 17]].max())
    lit = data["time"].to_numpy()[data["poa_global"].to_numpy().any(axis=0)]
    assert str(lit.min())[:10] == "2001-06-01"
    assert str(lit.max())[:10] == "2001-08-31"
    for wrong in ([-1], [10**6]):
        with pytest.raises(ins.UsageError, match="no sensor"):
            summer.hours(wrong)
    mask = np.arange(len(summer.sensors)) == 17
    np.testing.assert_array_equal(summer.hours(mask)["poa_direct"][0], data["poa_direct"][1])
    for wrong in (mask[:-1], [0.5], "01", [[0]]):
        with pytest.raises(ins.UsageError, match="give their numbers"):
            summer.hours(wrong)


def test_surfaces_reflect_by_their_materials(model, sensors, weather, tmp_path):
    file = tmp_path / "m.toml"
    file.write_text('[material."*"]\nreflectance = 0.4\n')
    options = {"period": "6/21", "split": "day"}
    by_file = ins.radiation(model, sensors, weather, materials=file, **options)
    by_name = ins.radiation(model, sensors, weather, materials={"*": {"reflectance": 0.4}}, **options)
    np.testing.assert_array_equal(by_file.total, by_name.total)
    parts = by_file.beam + by_file.sky + by_file.ground + by_file.reflected
    np.testing.assert_allclose(parts, by_file.total, rtol=1e-5)
    np.testing.assert_allclose(by_file["reflected_06_21"], by_file.reflected, rtol=1e-3)
    assert "poa_reflected" in by_file.hours([0])
    once = ins.radiation(model, sensors, weather, reflectance=0.4, bounces=1, **options)
    assert 0 < once.reflected.sum() < by_file.reflected.sum()
    with pytest.raises(ins.DataError, match="twelve"):
        ins.radiation(model, sensors, weather, materials={"*": {"density": [1, 2]}}, **options)
    with pytest.raises(ins.UsageError, match=r"materials: \* is 0.5; give a mapping"):
        ins.radiation(model, sensors, weather, materials={"*": 0.5}, **options)
    with pytest.raises(ins.UsageError, match=r"sensors 3: give their numbers, as \[3\]"):
        by_name.hours(3)


def test_groups_weigh_by_area(summer):
    frame = summer.to_dataframe()
    groups = summer.groups("object")
    energy = (frame["total"].astype(float) * frame["area"]).groupby(frame["object"]).sum()
    assert set(groups.index) == set(energy.index)
    for name, sum_of in energy.items():
        assert groups.loc[name, ("total", "sum")] == pytest.approx(sum_of, rel=1e-6)
        assert groups.loc[name, ("total", "mean")] * groups.loc[name, ("area", "")] == pytest.approx(sum_of, rel=1e-6)
    both = summer.groups("orientation", "tilt")
    assert both[("sensors", "")].sum() == len(frame)
    assert both.index.names == ["orientation", "tilt"]
    assert summer.groups("orientation,tilt").equals(both)
    assert len(summer.groups()) == len(summer.groups("all")) == 1
    with pytest.raises(ins.UsageError, match="--by"):
        summer.groups("colour")


def test_an_open_roof_gets_what_the_weather_has(box, weather):
    result = ins.radiation(box, box.select("roof").sensors(grid=5), weather)
    np.testing.assert_allclose(result.total, weather.ghi.astype(float).sum(), rtol=2e-3)
    np.testing.assert_allclose(result.sky_view, 100.0, atol=1e-3)


def test_threads_change_nothing(model, sensors, weather, summer):
    alone = ins.radiation(model, sensors, weather, period="6/1-8/31", open_ground=True, threads=1)
    for name in summer:
        np.testing.assert_array_equal(alone[name], summer[name], err_msg=name)


def test_progress_counts_up_to_all(model, sensors, weather):
    calls = []
    ins.radiation(model, sensors, weather, period="6/21", sun_tolerance=1, progress=lambda *c: calls.append(c))
    assert calls == sorted(calls)
    assert calls[-1] == (len(sensors), len(sensors))


def test_an_error_in_progress_ends_the_work(model, weather):
    class Enough(Exception):
        pass

    def raising(done, total):
        raise Enough

    with pytest.raises(Enough):
        ins.radiation(model, model.sensors(grid=0.5), weather, progress=raising)


def test_ctrl_c_stops_soon_and_other_threads_go_on(model, weather):
    sensors = model.sensors(grid=0.4)
    beats = []
    timer = threading.Timer(1.0, lambda: (beats.append(time.monotonic()), signal.raise_signal(signal.SIGINT)))
    timer.start()
    with pytest.raises(KeyboardInterrupt):
        ins.radiation(model, sensors, weather, sun_tolerance=0.25, sky_tolerance=0.25)
    assert time.monotonic() - beats[0] < 5.0  # a fraction of a second on a machine at rest


def test_several_models_cast_shadows(box, weather):
    tower = ins.Model(box.vertices * [1, 1, 5] + [0, -15, 0], box.faces)
    roof = box.select("roof").sensors(grid=5)
    alone = ins.radiation(box, roof, weather).total
    both = ins.radiation([box, tower], roof, weather).total
    assert (both < 0.9 * alone).all()
    turned = ins.Model(tower.vertices, tower.faces, north=90, name="tower")
    with pytest.raises(ins.UsageError, match="true north at 0 and 90"):
        ins.radiation([box, turned], roof, weather)


def test_switches_are_on_or_off(box, weather):
    wall = box.select(facing="south").sensors(grid=10)
    given = {"period": "6/21", "reflectance": 0}
    totals = [
        ins.radiation(box, wall, weather, open_ground=on, **given).total for on in (True, np.True_, False, np.False_)
    ]
    np.testing.assert_array_equal(totals[0], totals[1])
    np.testing.assert_array_equal(totals[2], totals[3])
    for wrong in (1, "yes"):
        with pytest.raises(ins.UsageError, match="neither true nor false"):
            ins.radiation(box, wall, weather, open_ground=wrong, **given)


def test_views_of_the_sky(box):
    around = ins.Sensors([[-5, 5, 0.5], [5, 5, 0.5]], [[-1, 0, 0], [0, 0, 1]])
    view = ins.sky_view(box, around)
    # A wall without anything before it sees half of its view as sky, half as ground; inside is dark.
    np.testing.assert_allclose(view.sky_view, [50.0, 0.0], atol=0.1)
    np.testing.assert_allclose(view.ground_view, [50.0, 0.0], atol=0.1)


def test_rays(box):
    through = [[4, 5, 20], [15, 5, 5], [5, 5, 5]]
    ways = [[0, 0, -1], [0, 0, -9], [1, 2, 3]]
    assert ins.visible(box, through, ways).tolist() == [False, True, False]
    far = ins.Model(box.vertices + 5e6, box.faces)
    assert ins.visible(far, np.array(through) + 5e6, ways).tolist() == [False, True, False]
    # The edge between two triangles is closed, wherever the rays come from; the rim of all is one.
    east, north = 450000, 4640000
    roof = ins.Model([[east + x, north + y, 10] for x, y in ((0, 0), (10, 0), (10, 10), (0, 10))], [[0, 1, 2, 3]])
    below = [[east + x + 0.5, north + x + 0.5, 0] for x in range(-2, 12)]
    assert ins.visible(roof, below, [0, 0, 1]).tolist() == [True] * 2 + [False] * 10 + [True] * 2
    for directions in ([0, 0, 0], [0, 0, np.nan], [[0, 1]]):
        with pytest.raises((ins.DataError, ValueError)):
            ins.visible(box, [5, 5, 20], directions)
