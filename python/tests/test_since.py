"""A changed model calculates little, and gives the same bytes."""

from __future__ import annotations

import numpy as np
import pytest
from hypothesis import HealthCheck, given, settings
from hypothesis import strategies as st

import insolate as ins

quick = {"period": "3/21", "step": 1, "reflectance": 0, "tolerance": 0}
faces = [[0, 2, 3, 1], [4, 5, 7, 6], [0, 1, 5, 4], [1, 3, 7, 5], [3, 2, 6, 7], [2, 0, 4, 6]]


def box(x, y, width, height):
    return [[x + dx * width, y + dy * width, z * height] for z in (0, 1) for dy in (0, 1) for dx in (0, 1)]


def city(tower):
    """A tower among 36 houses, with a mast far off that holds the extent of the scene."""
    boxes = [("tower", tower), ("mast", box(-40, -40, 1, 90)), ("mast", box(140, 140, 1, 90))]
    boxes += [(f"house{i}{j}", box(18 * i, 18 * j, 11, 9 + (5 * i + 3 * j) % 7)) for i in range(6) for j in range(6)]
    vertices = np.concatenate([corners for _, corners in boxes])
    listed = [[8 * place + corner for corner in face] for place in range(len(boxes)) for face in faces]
    return ins.Model(vertices, listed, objects=[name for name, _ in boxes for _ in faces])


def calculated(result):
    words = next(note for note in result.notes if "are calculated" in note).split()
    return None if words[0] == "more" else int(words[0].replace(",", ""))


def assert_same(made, wanted):
    for name in wanted:
        assert made[name].tobytes() == wanted[name].tobytes(), name


@pytest.mark.filterwarnings("ignore::insolate.InsolateWarning")
@settings(max_examples=12, deadline=None, derandomize=True, suppress_health_check=list(HealthCheck))
@given(
    st.tuples(st.floats(-20, 110), st.floats(-20, 110), st.floats(2, 15), st.floats(2, 80)),
    st.tuples(st.floats(-20, 110), st.floats(-20, 110), st.floats(2, 15), st.floats(2, 80)),
    st.sampled_from([{}, {"sun_tolerance": 1.0}, {"reflectance": 0.4}]),
)
def test_the_bytes_are_those_from_scratch(weather, before, after, others):
    options = {**quick, **others}
    first, second = city(box(*before)), city(box(*after))
    earlier = ins.radiation(first, first.sensors(grid=12), weather, **options)
    sensors = second.sensors(grid=12)
    made = ins.radiation(second, sensors, weather, since=earlier, **options)
    assert_same(made, ins.radiation(second, sensors, weather, **options))
    assert calculated(made) is not None


@pytest.mark.filterwarnings("ignore::insolate.InsolateWarning")
def test_little_is_calculated(weather):
    model = city(box(50, 50, 3, 12))
    sensors = model.select("house*").sensors(grid=4)
    earlier = ins.radiation(model, sensors, weather, **quick)
    moved = model.replace("tower", ins.Model(box(50, 51, 3, 12), faces))
    assert moved.objects.count("tower") == 6
    made = ins.radiation(moved, sensors, weather, since=earlier, **quick)
    assert 0 < calculated(made) < 0.5 * len(sensors)
    assert_same(made, ins.radiation(moved, sensors, weather, **quick))
    again = ins.radiation(moved, sensors, weather, since=made, **quick)
    assert calculated(again) == 0
    assert_same(again, made)
    # The same triangles in another order are no change.
    shuffled = ins.Model(moved.vertices, moved.faces[::-1], orient="keep")
    assert calculated(ins.radiation(shuffled, sensors, weather, since=made, **quick)) == 0


@pytest.mark.filterwarnings("ignore::insolate.InsolateWarning")
def test_other_questions_are_calculated_anew(weather):
    model = city(box(50, 50, 3, 12))
    sensors = model.select("house00").sensors(grid=4)
    earlier = ins.radiation(model, sensors, weather, **quick)
    for options in ({"period": "3/22"}, {"north": 10}, {"albedo": 0.3}, {"open_ground": True}, {"sun_tolerance": 1}):
        asked = {**quick, **options}
        made = ins.radiation(model, sensors, weather, since=earlier, **asked)
        assert calculated(made) is None, options
        assert_same(made, ins.radiation(model, sensors, weather, **asked))


def test_what_cannot_be_replaced():
    with pytest.raises(ins.DataError, match="no object 'towr'; did you mean 'tower'"):
        city(box(50, 50, 3, 12)).replace("towr", ins.Model(box(0, 0, 1, 1), faces))
