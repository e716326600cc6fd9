"""Python and the command do the same."""

from __future__ import annotations

import json

import numpy as np
import pytest
from conftest import courtyard

import insolate as ins


@pytest.mark.filterwarnings("ignore::insolate.InsolateWarning")
@pytest.mark.parametrize(
    ("arguments", "options"),
    [
        (["--period", "6/1-8/31", "--hours", "9-17"], {"period": "6/1-8/31", "hours": (9, 17)}),
        (["--method", "perez-sky", "--north", "30"], {"method": "perez-sky", "north": 30}),
        (
            ["--period", "6/21", "--sun-tolerance", "0.5", "--albedo", "0.4", "--hours-of", "3,0"],
            {"period": "6/21", "sun_tolerance": 0.5, "albedo": 0.4, "hours_of": [3, 0]},
        ),
    ],
)
def test_the_files_are_the_commands(command, tmp_path, model, weather, arguments, options):
    scene = courtyard / "courtyard.obj"
    place = ["--scene", scene, "--weather", courtyard / "weather.epw", "--out", tmp_path / "command"]
    command("run", *place, "--select", "surface", "--facing", "up", "--grid", "5", *arguments)
    sensors = model.select("surface", facing="up").sensors(grid=5)
    ins.radiation(model, sensors, weather, **options).save(tmp_path / "python")
    names = sorted(path.name for path in (tmp_path / "command").iterdir())
    assert sorted(path.name for path in (tmp_path / "python").iterdir()) == names
    for name in names:
        made, wanted = ((tmp_path / folder / name).read_bytes() for folder in ("python", "command"))
        if name == "summary.json":
            made, wanted = (
                {key: value for key, value in json.loads(text).items() if key != "timings"} for text in (made, wanted)
            )
        assert made == wanted, name


def test_a_plane_and_a_table_are_the_commands(command, tmp_path, model, weather):
    place = ["--scene", courtyard / "courtyard.obj", "--weather", courtyard / "weather.epw", "--period", "6/21"]
    table = tmp_path / "points.csv"
    table.write_text("x,y,z,nx,ny,nz\n0,0,1,0,0,1\n5,3,20,0,-2,0\n")
    plane = model.plane(np.float64(1.5), np.int64(8))
    for text, sensors in (("plane:z=1.5,grid=8", plane), (table, ins.read_sensors(table))):
        out = tmp_path / f"command{len(str(text))}"
        command("run", *place, "--sensors", text, "--out", out)
        made = tmp_path / f"python{len(str(text))}"
        ins.radiation(model, sensors, weather, period="6/21", sun_tolerance=0).save(made)
        assert (made / "sensors.csv").read_bytes() == (out / "sensors.csv").read_bytes()


@pytest.mark.parametrize(
    ("arguments", "options", "kind"),
    [
        (["--period", "13/1"], {"period": "13/1"}, ins.UsageError),
        (["--step", "2"], {"step": 2}, ins.UsageError),
        (["--method", "best"], {"method": "best"}, ins.UsageError),
        (["--albedo", "3"], {"albedo": 3}, ins.UsageError),
        (["--hours-of", "99999"], {"hours_of": [99999]}, ins.UsageError),
    ],
)
def test_errors_have_the_commands_text(command, tmp_path, model, sensors, weather, arguments, options, kind):
    place = ["--scene", courtyard / "courtyard.obj", "--weather", courtyard / "weather.epw", "--out", tmp_path]
    said = command("run", *place, "--select", "surface", "--grid", 4, *arguments, fails=True)
    with pytest.raises(kind) as error:
        ins.radiation(model, sensors, weather, **options)
    assert str(error.value) in said
    assert isinstance(error.value, ins.Error)


def test_a_missing_file_is_the_commands_error(command, tmp_path):
    missing = tmp_path / "none.obj"
    place = ["--weather", courtyard / "weather.epw", "--out", tmp_path / "out"]
    said = command("run", "--scene", missing, *place, fails=True)
    with pytest.raises(ins.DataError) as error:
        ins.read_model(missing)
    assert str(error.value) in said


def test_hours_of_sun_are_the_commands(command, tmp_path, model):
    place = ["--scene", courtyard / "courtyard.obj", "--lat", 45.76, "--lon", 4.84, "--tz", 1]
    rule = ["--dates", "3/21,12/21", "--year", 2026, "--hours", "9-15", "--min", 2]
    out = tmp_path / "out"
    command("sunhours", *place, *rule, "--select", "surface", "--facing", "south", "--grid", 5, "--out", out)
    sensors = model.select("surface", facing="south").sensors(grid=5)
    result = ins.sun_hours(
        model,
        sensors,
        latitude=45.76,
        longitude=4.84,
        time_zone=1,
        dates=["2026-03-21", "2026-12-21"],
        hours=(9, 15),
        min=2,
    )
    lines = (out / "sensors.csv").read_text().splitlines()
    header = [name.split(" [")[0].strip('"') for name in lines[0].split(",")]
    for name in result:
        place_of = header.index(name)
        written = [float(line.split(",")[place_of]) for line in lines[1:]]
        assert written == pytest.approx(result[name].tolist(), rel=1e-6, nan_ok=True), name
    assert result.judgement is False
    assert (
        result.groups().loc["surface" if "surface" in result.groups().index else result.groups().index[0], "area"] > 0
    )
