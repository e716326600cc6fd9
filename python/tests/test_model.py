from __future__ import annotations

from types import SimpleNamespace

import numpy as np
import pytest
from conftest import courtyard

import insolate as ins


def test_arrays_make_the_model_that_a_file_does(model, summer, weather):
    made = ins.Model(
        model.vertices, model.faces, objects=model.objects, materials=model.materials, orient="keep", name=model.name
    )
    np.testing.assert_array_equal(made.triangles, model.triangles)
    sensors = made.select("surface").sensors(grid=4.0)
    result = ins.radiation(made, sensors, weather, period="6/1-8/31", open_ground=True)
    np.testing.assert_array_equal(result.total, summer.total)


def test_meshes_of_other_packages(box):
    triangles = np.arange(3 * len(box.triangles)).reshape(-1, 3)
    like_trimesh = SimpleNamespace(vertices=box.triangles.reshape(-1, 3), faces=triangles)
    padded = np.hstack([np.full((len(triangles), 1), 3), triangles]).ravel()
    like_pyvista = SimpleNamespace(points=box.triangles.reshape(-1, 3), faces=padded)
    for mesh in (like_trimesh, like_pyvista):
        np.testing.assert_array_equal(ins.Model(mesh).triangles, box.triangles)
    with pytest.raises(TypeError, match="no mesh"):
        ins.Model(SimpleNamespace())


def test_selection_and_cells(box):
    roof = box.select("roof").sensors(grid=2.5, offset=0.1)
    assert len(roof) == 16
    np.testing.assert_allclose(roof.points[:, 2], 10.1)
    np.testing.assert_allclose(roof.areas, 6.25)
    assert set(roof.objects) == {"roof"}
    assert set(roof.materials) == {"brick"}
    assert all(cell.shape == (4, 3) for cell in roof.cells)
    np.testing.assert_array_equal(roof.tilts, 0.0)
    east = box.select(facing="east").sensors(grid=5)
    np.testing.assert_allclose(east.azimuths(), 90.0)
    np.testing.assert_allclose(east.azimuths(north=20.0), 70.0)
    assert len(box.select("wall:brick", exclude=["roof"], tilt=(80, 100)).sensors(grid=10)) == 4
    with pytest.raises(ins.DataError, match="did you mean 'roof'"):
        box.select("rof").sensors()


def test_the_models_north_turns_facings(box):
    turned = ins.Model(box.vertices, box.faces, objects=box.objects, north=90.0)
    np.testing.assert_allclose(turned.select(facing="north").sensors(grid=10).normals, [[1.0, 0.0, 0.0]], atol=1e-12)


def test_units_and_axes(box):
    tall = ins.Model(box.vertices[:, [0, 2, 1]] * [1, 1, -1], box.faces, units="mm", up="y")
    np.testing.assert_allclose(tall.vertices, box.vertices / 1000, atol=1e-15)


def test_texts_that_are_not_utf_8_reach_python(tmp_path, weather):
    (tmp_path / "box.obj").write_bytes(b"o w\xe4nde\nusemtl gr\xfcn\nv 0 0 0\nv 9 0 0\nv 9 0 9\nf 1 2 3\n")
    city = (courtyard / "weather.epw").read_bytes().split(b",", 2)
    (tmp_path / "year.epw").write_bytes(b",".join([city[0], b"M\xfcnchen", city[2]]))
    model = ins.read_model(tmp_path / "box.obj", orient="keep")
    assert (model.objects, model.materials) == (["w\ufffdnde"], ["gr\ufffdn"])
    with pytest.raises(ins.DataError, match="w\ufffdnde"):
        model.select("waende").sensors()
    year = ins.read_weather(tmp_path / "year.epw")
    assert "M\ufffdnchen" in year.site.name
    result = ins.radiation(model, model.select("w*nde").sensors(), year, period="6/21")
    assert "M\ufffdnchen" in repr(result)
    assert any("M\ufffdnchen" in text for text in result.notes)
    assert set(result.to_dataframe()["object"]) == {"w\ufffdnde"}
    assert list(result.groups("object", "material").index) == [("w\ufffdnde", "gr\ufffdn")]


@pytest.mark.parametrize(
    ("vertices", "faces", "options", "text"),
    [
        ([[0, 0, 0]] * 3, [[0, 1, 3]], {}, "numbered from 0 to 2"),
        ([[0, 0, 0]] * 3, [[0, 1]], {}, "2 corners"),
        ([[0, 0, 0], [0, 0, np.nan], [1, 1, 1]], [[0, 1, 2]], {}, "vertex 1"),
        ([[0, 0], [0, 1], [1, 1]], [[0, 1, 2]], {}, r"shape \(n, 3\)"),
        ([[0, 0, 0]] * 3, [[0, 1, -1]], {}, "counted from 0"),
        ([[0, 0, 0]] * 3, [[0.0, 1.0, 2.0]], {}, "numbers of vertices"),
        ([[0, 0, 0]] * 3, [[0, 1, 2]], {"objects": ["a", "b"]}, "2 objects for 1 face"),
        ([[0, 0, 0]] * 3, [], {}, "no faces"),
        ([[0, 0, 0]] * 24, np.arange(24).reshape(1, 6, 4), {}, r"shape \(m, corners\)"),
        ([[0, 0, 0]] * 3, [[0, 1, 2]], {"units": "yard"}, "--units"),
    ],
)
def test_arrays_that_are_no_model(vertices, faces, options, text):
    with pytest.raises(ins.Error, match=text):
        ins.Model(vertices, faces, **options)


def test_sensors_of_arrays():
    sensors = ins.Sensors([[0, 0, 1], [1, 1, 1]], [[0, 0, 2], [3, 0, 4]], areas=[1, 2])
    np.testing.assert_allclose(sensors.normals, [[0, 0, 1], [0.6, 0, 0.8]])
    np.testing.assert_array_equal(sensors.areas, [1, 2])
    assert np.isnan(ins.Sensors([[0, 0, 1]]).tilts).all()
    for points, normals, areas, text in (
        ([[0, 0, np.inf]], None, None, "sensor 0 has a coordinate"),
        ([[0, 0, 0]], [[0, 0, 0]], None, "normal of sensor 0"),
        ([[0, 0, 0]], [[0, 0, 1]] * 2, None, "2 normals for 1"),
        ([[0, 0, 0]], None, [-1.0], "area of sensor 0"),
        (np.empty((0, 3)), None, None, "no sensors"),
    ):
        with pytest.raises(ins.DataError, match=text):
            ins.Sensors(points, normals, areas)


def test_views_cannot_be_written_to(box):
    with pytest.raises(ValueError, match="read-only"):
        box.vertices[0, 0] = 5.0
