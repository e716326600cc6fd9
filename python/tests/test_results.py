"""What can be made of a result: parts of the period, pictures, pages, comparisons, meshes."""

from __future__ import annotations

import html
import importlib.util
import json
import re
import sys
import types
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

import numpy as np
import pandas as pd
import pytest
from conftest import courtyard

import insolate as ins


@pytest.fixture(scope="module")
def raised(model):
    """The courtyard with its southern pitched roof four metres higher."""
    used = [face for face, name in zip(model.faces, model.objects, strict=True) if name == "roof_pitched_south"]
    return model.replace(
        "roof_pitched_south", ins.Model(model.vertices + np.array([0.0, 0.0, 4.0]), used, orient="keep")
    )


def test_months_and_periods_are_runs_of_their_own(model, sensors, weather):
    black = {"reflectance": 0}  # whose cells and their light differ too
    split = ins.radiation(model, sensors, weather, period="6/1-7/31", split="month", periods=["6/21:9-15"], **black)
    june = ins.radiation(model, sensors, weather, period="6/1-6/30", **black)
    noon = ins.radiation(model, sensors, weather, period="6/21", hours=(9, 15), **black)
    # By the same rays, whose cells of the sky have the whole period's sun: sensors differ at edges of shadows, by
    # 0.4 % of the mean here, and means hardly.
    assert split["total_jun"].mean() == pytest.approx(june.total.mean(), rel=0.001)
    assert np.sqrt(np.mean((split["total_jun"] - june.total) ** 2)) < 0.01 * june.total.mean()
    np.testing.assert_allclose(split["total_jun"] + split["total_jul"], split.total, rtol=1e-5, atol=1.0)
    part = next(name for name in split if name.startswith("total_06_21"))
    assert split[part].mean() == pytest.approx(noon.total.mean(), rel=0.02)
    assert split.units["total_jul"] == "Wh/m2"


def test_a_comparison_is_the_commands(command, tmp_path, model, raised, sensors, weather):
    before, after = (ins.radiation(one, sensors, weather, period="12/1-12/31") for one in (model, raised))
    found = before.compare(after, value="total")
    np.testing.assert_array_equal(found.sensors_b, np.arange(len(sensors)))
    np.testing.assert_array_equal(found["total_difference"], after.total - before.total)
    assert found["total_difference"].min() < 0.0
    before.save(tmp_path / "a")
    after.save(tmp_path / "b")
    command("compare", tmp_path / "a", tmp_path / "b", "--value", "total", "--out", tmp_path / "out")
    lines = (tmp_path / "out" / "sensors.csv").read_text().splitlines()
    place = [name.split(" [")[0].strip('"') for name in lines[0].split(",")].index("total_difference")
    written = [float(line.split(",")[place]) for line in lines[1:]]
    np.testing.assert_allclose(found["total_difference"], written, rtol=1e-6)
    # Saved from memory it is what the command makes of the two folders, which passes on the dates of peaks, too.
    found.save(tmp_path / "saved")
    saved, made = (pd.read_csv(tmp_path / one / "sensors.csv", dtype=str) for one in ("saved", "out"))
    pd.testing.assert_frame_equal(saved, made[saved.columns])
    assert (tmp_path / "saved" / "groups.csv").read_bytes() == (tmp_path / "out" / "groups.csv").read_bytes()
    back = after.compare(before, value="total")  # whose model is that of a file, which the command finds again
    back.save(tmp_path / "back")
    back.picture(tmp_path / "mine.png", value="total_difference", view="top")
    command(
        "picture", tmp_path / "back", "--value", "total_difference", "--view", "top", "--file", tmp_path / "its.png"
    )
    assert (tmp_path / "mine.png").read_bytes() == (tmp_path / "its.png").read_bytes()
    page = back.page(tmp_path / "back" / "mine.html")
    viewed = ins.view(tmp_path / "back", tmp_path / "back" / "its.html")
    assert Path(page).read_bytes() == Path(viewed).read_bytes()
    # Half of the sensors have no partner in the other half.
    half = ins.Sensors(sensors.points[::2], sensors.normals[::2])
    partial = before.compare(ins.radiation(model, half, weather, period="12/1-12/31"), tolerance=0)
    assert len(partial.only_b) == 0
    assert len(partial.sensors) + len(partial.only_a) == len(sensors)
    with pytest.raises(ins.DataError, match="period"):
        before.compare(ins.radiation(model, sensors, weather, period="6/21"))
    with pytest.raises(ins.UsageError, match="totl"):
        before.compare(after, value="totl")


def test_a_picture_is_the_commands(command, tmp_path, model, weather):
    sensors = model.select("surface").sensors(grid=4.0)
    result = ins.radiation(model, sensors, weather, period="6/21")
    result.save(tmp_path / "out")
    options = ["--value", "beam", "--view", "155,42", "--hide", "tree_*", "--scale", "0,6", "--size", "600x400"]
    command("picture", tmp_path / "out", *options, "--file", tmp_path / "command.png")
    result.picture(tmp_path / "python.png", value="beam", view=(155, 42), hide="tree_*", scale=(0, 6), size=(600, 400))
    assert (tmp_path / "python.png").read_bytes() == (tmp_path / "command.png").read_bytes()
    with pytest.raises(ins.UsageError, match="--value"):
        result.picture(tmp_path / "wrong.png", value="beems")
    assert not (tmp_path / "wrong.png").exists()


def test_sun_hours_are_saved_and_drawn_as_by_the_command(command, tmp_path, model):
    sensors = model.select("surface").sensors(grid=4.0)
    place = {"latitude": 41.98, "longitude": -87.92, "time_zone": -6.0}
    result = ins.sun_hours(model, sensors, dates="2025-03-21", hours=(9, 15), min=2, page=True, **place)
    result.save(tmp_path / "out")
    files = {one.name: one.read_bytes() for one in (tmp_path / "out").iterdir() if one.name != "summary.json"}
    options = ["--lat", 41.98, "--lon", -87.92, "--tz", -6, "--dates", "3/21", "--hours", "9-15", "--min", 2]
    cells = ["--scene", courtyard / "courtyard.obj", "--select", "surface", "--grid", 4]
    command("sunhours", *cells, *options, "--page", "--out", tmp_path / "out")
    assert files.keys() >= {"page.html", "sensors.csv", "groups.csv", "heatmap.png"}
    for name, held in files.items():
        assert (tmp_path / "out" / name).read_bytes() == held, name
    result.page(tmp_path / "out" / "page.html")
    assert (tmp_path / "out" / "page.html").read_bytes() == files["page.html"]
    command("picture", tmp_path / "out", "--view", "top", "--only", "surface", "--file", tmp_path / "command.png")
    result.picture(tmp_path / "python.png", view="top", only="surface")
    assert (tmp_path / "python.png").read_bytes() == (tmp_path / "command.png").read_bytes()


def test_rows_say_when_the_peak_is_and_what_is_closed_in(box, weather):
    inner = 0.2 * (box.vertices - 5.0) + 5.0  # a room within the box
    faces = [*box.faces, *(face + len(box.vertices) for face in box.faces)]
    model = ins.Model(np.vstack([box.vertices, inner]), faces, objects=[*box.objects, *box.objects])
    with pytest.warns(ins.InsolateWarning, match="left out of means"):
        result = ins.radiation(model, model.select("roof").sensors(grid=2.0), weather, period="6/21", reflectance=0)
    frame = result.to_dataframe()
    inside = (np.abs(result.sensors.points - 5.0) < 1.5).all(axis=1)
    assert 0 < inside.sum() < len(frame)
    np.testing.assert_array_equal(frame["enclosed"], inside)
    assert frame["peak_start"][inside].isna().all()
    # The hour of the file that is brightest on the roof lies near noon of 21 June, by the site's clock.
    first = frame[~inside].iloc[0]
    hours = result.hours([int(frame.index[~inside][0])])["poa_global"].isel(sensor=0)
    assert first["peak_start"] == pd.Timestamp(hours["time"].values[hours.values.argmax()]).tz_localize(
        first["peak_start"].tz
    )
    assert (frame["face"] == result.sensors.faces).all()


def test_groups_are_those_of_the_saved_table(tmp_path, box, weather):
    # A room within the box: its walls see neither sky nor ground, and stay out of means.
    vertices = np.vstack([box.vertices, 0.2 * (box.vertices - 5.0) + 5.0])
    faces = [*box.faces, *(face + len(box.vertices) for face in box.faces)]
    model = ins.Model(vertices, faces, objects=[*box.objects, *box.objects])
    with pytest.warns(ins.InsolateWarning, match="left out of means"):
        result = ins.radiation(model, model.select("roof", "wall").sensors(grid=2.0), weather, period="6/21")
    result.save(tmp_path / "out")
    table = pd.read_csv(tmp_path / "out" / "groups.csv")
    table = table[table["by"] == "object"].set_index("object")
    groups = result.groups("object")
    assert list(groups.index) == list(table.index)
    np.testing.assert_array_equal(groups["sensors"], table["sensors"])
    np.testing.assert_allclose(groups["total", "mean"], table["total_mean [kWh/m2]"] * 1e3, rtol=1e-6)
    assert groups["sensors"].sum() < len(result.sensors)
    # Nor do they count in comparisons, as those of saved results.
    difference = result.compare(result, value="total")["total_difference"]
    assert np.isnan(difference).sum() == len(result.sensors) - groups["sensors"].sum()


def test_threads_save_one_result_at_the_same_time(tmp_path, model, sensors, weather):
    result = ins.radiation(model, sensors, weather, period="6/21", hours_of=[0])
    before = result.summary
    folders = [tmp_path / "/".join("abcd"[: depth + 1]) / "out" for depth in range(4)]
    with ThreadPoolExecutor() as pool:
        list(pool.map(result.save, folders))
        list(pool.map(result.page, (folder / "page.html" for folder in folders)))
    for folder in folders:
        (place,) = json.loads((folder / "summary.json").read_text())["scene"]["files_from_here"]
        assert (folder / place).samefile(courtyard / "courtyard.obj")
        assert (folder / "hours.nc").exists()
    assert {**result.summary, "timings": None} == {**before, "timings": None}


def test_a_page_is_the_commands(command, tmp_path, model, weather):
    place = ["--scene", courtyard / "courtyard.obj", "--weather", courtyard / "weather.epw"]
    out = tmp_path / "out"
    command("run", *place, "--select", "surface", "--grid", 4, "--period", "6/21", "--page", "--out", out)
    wanted = (out / "page.html").read_bytes()
    result = ins.radiation(model, model.select("surface").sensors(grid=4), weather, period="6/21")
    page = result.page(out / "page.html")  # replaces the command's own
    assert (out / "page.html").read_bytes() == wanted
    frame = re.fullmatch('<iframe srcdoc="([^"<>]*)" style="[^"<>]*"></iframe>', page._repr_html_())
    assert html.unescape(frame[1]).encode() == wanted
    mine = tmp_path / "notes.html"
    mine.write_text("mine")
    with pytest.raises(ins.OutputError):
        result.page(mine)
    assert mine.read_text() == "mine"


def test_models_of_different_units_come_back_as_they_were_read(command, tmp_path, model, weather):
    # A tower given in centimetres beside the court in metres: the saved results know how to read each.
    tower = tmp_path / "tower.obj"
    tower.write_text("v 2000 2000 0\nv 3000 2000 0\nv 3000 2000 9000\nv 2000 2000 9000\nf 1 2 3 4\n")
    scene = [model, ins.read_model(tower, units="cm")]
    result = ins.radiation(scene, model.select("surface").sensors(grid=4), weather, period="6/21")
    result.save(tmp_path / "out")
    said = command("view", tmp_path / "out", "--out", tmp_path / "later.html")
    assert "warning" not in said  # the models give the scene that was computed, so the page shows it
    read = result.summary["scene"]["files_read"]
    assert [one["metres_per_unit"] for one in read] == [1, 0.01]


def test_a_notebook_shows_groups(summer):
    shown = summer._repr_html_()
    assert "court_wall_north" in shown or "more</p>" in shown
    assert "total [Wh/m2]" in shown


class Mesh:
    """What pyvista's PolyData does with its arguments, without the hundred megabytes of VTK."""

    def __init__(self, points, faces=None):
        self.points, self.faces = points, faces
        self.cell_data, self.point_data = Data(), Data()

    def polygons(self):
        place = 0
        while place < len(self.faces):
            count = self.faces[place]
            yield self.points[self.faces[place + 1 : place + 1 + count]]
            place += 1 + count


class Data(dict):
    active_scalars_name = None


def test_a_mesh_of_the_cells(monkeypatch, summer, sensors, weather):
    if importlib.util.find_spec("pyvista") is None:
        monkeypatch.setitem(sys.modules, "pyvista", types.SimpleNamespace(PolyData=Mesh))
    mesh = summer.to_pyvista()
    polygons = list(mesh.polygons() if isinstance(mesh, Mesh) else (cell.points for cell in mesh.cell))
    assert len(polygons) == len(sensors)
    for polygon, cell, normal, area in zip(polygons, sensors.cells, sensors.normals, sensors.areas, strict=True):
        np.testing.assert_allclose(polygon, cell)
        # Its corners run so that it looks where the sensor does.
        across = 0.5 * np.cross(polygon, np.roll(polygon, -1, axis=0)).sum(axis=0)
        assert across @ normal == pytest.approx(area, rel=1e-4)
    np.testing.assert_array_equal(mesh.cell_data["total"], summer.total)
    assert mesh.cell_data.active_scalars_name == "total"
    bare = ins.Sensors(sensors.points, sensors.normals)
    points = ins.radiation(summer.models, bare, weather, period="6/21", open_ground=True).to_pyvista()
    np.testing.assert_allclose(points.points, sensors.points)
    assert len(points.point_data["total"]) == len(sensors)
