from __future__ import annotations

import doctest
import inspect
import subprocess
import sys
from importlib import import_module
from pathlib import Path

import pytest
from conftest import root

import insolate as ins
from insolate import _core


def test_importing_is_light():
    code = "import insolate, sys; print([m for m in ('numpy', 'pandas', 'xarray', 'tqdm') if m in sys.modules])"
    said = subprocess.run([sys.executable, "-c", code], capture_output=True, text=True, check=True).stdout
    assert said.strip() == "[]"
    code = (
        "import insolate as i, sys; i.radiation; i.sun_hours; print('pandas' in sys.modules, 'xarray' in sys.modules)"
    )
    said = subprocess.run([sys.executable, "-c", code], capture_output=True, text=True, check=True).stdout
    assert said.strip() == "False False"


#: Options of the command that Python has by other means.
elsewhere = {
    "scene": "the model",
    "sensors": "the sensors",
    "weather": "the weather",
    "lat": "latitude",
    "lon": "longitude",
    "tz": "time_zone",
    "dates": "dates",
    "pass": "passing",
    "out": "save()",
    "rays": "a check of the command: the answers are the same",
    "resume": "a stopped run of the command",
    "dry-run": "an estimate of the command",
    "baseline": "results of the command",
    "ratio": "results of the command",
    "spans": "a file of the command",
}
made_by = {"run": (ins.radiation, "run_options"), "sunhours": (ins.sun_hours, "sun_hours_options")}


@pytest.mark.parametrize("name", made_by)
def test_every_option_of_the_command_is_a_keyword(name):
    function, table = made_by[name]
    keywords = set()
    for one in (function, ins.read_model, ins.Model.select, type(ins.Model.select), ins.Model.sensors):
        keywords |= set(inspect.signature(one).parameters) if inspect.isfunction(one) else set()
        assert "{options}" not in (one.__doc__ or "")
    for option in getattr(_core, table)():
        assert option.name in elsewhere or option.name.replace("-", "_") in keywords, option.name
    assert "Reflectance of the ground" in ins.radiation.__doc__ or "reflectance of the ground" in ins.radiation.__doc__


def test_all_names_are_there():
    for name in ins.__all__:
        assert getattr(ins, name) is not None
    with pytest.raises(AttributeError):
        _ = ins.radiaton


@pytest.mark.parametrize("name", ["_sun", "_radiation", "_model", "_weather"])
def test_the_examples_of_the_docstrings_run(name):
    failures, _ = doctest.testmod(import_module("insolate." + name))
    assert failures == 0


@pytest.mark.parametrize("text", ["README.md", "docs/python.md"])
def test_the_first_lines_that_people_see_run(text, tmp_path, monkeypatch, capsys):
    lines = (root / text).read_text().split("```python\n", 1)[1].split("```", 1)[0]
    (tmp_path / "examples").symlink_to(root / "examples")
    monkeypatch.chdir(tmp_path)
    exec(compile(lines, text, "exec"), {})
    assert list(tmp_path.glob("out/**/summary.json"))


def test_the_stub_is_that_of_the_module(tmp_path):
    nanobind = pytest.importorskip("nanobind.stubgen")
    made = tmp_path / "_core.pyi"
    nanobind.main(["-q", "-m", "insolate._core", "-o", str(made)])
    stub = Path(ins.__file__).with_name("_core.pyi")
    assert made.read_text() == stub.read_text(), f"python -m nanobind.stubgen -m insolate._core -o {stub}"
