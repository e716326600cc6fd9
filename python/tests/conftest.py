"""What the tests share: the demo of the repository as model and weather, and the command."""

from __future__ import annotations

import os
import subprocess
from pathlib import Path

import pytest

import insolate as ins

root = Path(__file__).resolve().parents[2]
courtyard = root / "examples" / "courtyard"


@pytest.fixture(scope="session")
def weather():
    return ins.read_weather(courtyard / "weather.epw")


@pytest.fixture(scope="session")
def model():
    return ins.read_model(courtyard / "courtyard.obj")


@pytest.fixture(scope="session")
def sensors(model):
    return model.select("surface").sensors(grid=4.0)


@pytest.fixture(scope="session")
def summer(model, sensors, weather):
    return ins.radiation(model, sensors, weather, period="6/1-8/31", open_ground=True)


@pytest.fixture(scope="session")
def command():
    """Runs the command and gives what it has said on standard error."""
    program = os.environ.get("INSOLATE_COMMAND")
    if not program:
        pytest.skip("INSOLATE_COMMAND does not name the command")

    def run(*arguments: object, fails: bool = False) -> str:
        done = subprocess.run([program, *map(str, arguments)], capture_output=True, text=True, check=False)
        assert (done.returncode != 0) == fails, done.stderr
        return done.stderr

    return run


@pytest.fixture
def box():
    """A box of 10 x 10 x 10 m whose walls are named "wall" and whose top is named "roof"."""
    vertices = [[x, y, z] for z in (0, 10) for y in (0, 10) for x in (0, 10)]
    faces = [[0, 2, 3, 1], [4, 5, 7, 6], [0, 1, 5, 4], [1, 3, 7, 5], [3, 2, 6, 7], [2, 0, 4, 6]]
    objects = ["floor", "roof", "wall", "wall", "wall", "wall"]
    return ins.Model(vertices, faces, objects=objects, materials="brick")
