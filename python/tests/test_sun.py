from __future__ import annotations

from datetime import datetime, timedelta, timezone

import numpy as np
import pandas as pd
import pytest

import insolate as ins


def test_the_published_example():
    # Reda and Andreas (2004), Solar Energy 76(5), table A5.1: 2003-10-17 12:30:30 UTC-7.
    time = datetime(2003, 10, 17, 12, 30, 30, tzinfo=timezone(timedelta(hours=-7)))
    sun = ins.sun_position([time], 39.742476, -105.1786, elevation=1830.14, pressure=82000, temperature=11)
    assert sun.apparent_zenith[0] == pytest.approx(50.11162, abs=0.01)
    assert sun.azimuth[0] == pytest.approx(194.34024, abs=0.01)
    assert sun.equation_of_time[0] == pytest.approx(14.641503, abs=0.02)


def test_instants_are_instants_in_whatever_form():
    index = pd.date_range("2026-03-29 00:00", periods=24, freq="h", tz="Europe/Paris")  # summer time begins
    forms = [
        index,
        pd.Series(index),
        index.tz_convert("UTC").tz_localize(None),
        index.tz_convert("UTC").tz_localize(None).to_numpy(),
        list(index.to_pydatetime()),
        index.tz_convert("Asia/Tokyo"),
    ]
    results = [ins.sun_position(form, 48.86, 2.35) for form in forms]
    for result in results[1:]:
        np.testing.assert_array_equal(result.azimuth, results[0].azimuth)
    frame = results[0].to_dataframe()
    assert frame.index.equals(index)
    np.testing.assert_allclose(frame["zenith"] + frame["elevation"], 90.0)
    # Without air nothing lifts the sun.
    bare = ins.sun_position(index, 48.86, 2.35, pressure=0)
    np.testing.assert_allclose(bare.apparent_elevation, bare.elevation)


@pytest.mark.parametrize("times", [[1, 2], ["2026-01-01", "NaT"], ["today-ish"]])
def test_what_is_no_instant(times):
    with pytest.raises((TypeError, ValueError)):
        ins.sun_position(times, 0, 0)


def test_places_off_the_earth():
    with pytest.raises(ins.UsageError, match="not on earth"):
        ins.sun_position(np.array(["2026-01-01"], "datetime64[D]"), 91, 0)


@pytest.mark.parametrize("time", ["1600-06-21T12:00", "1949-12-31T23:59", "2051-01-01", "9999-01-01"])
def test_years_without_a_known_sun(time):
    for times in (np.array([time], "datetime64[s]"), [datetime.fromisoformat(time)]):
        with pytest.raises(ins.UsageError, match="known from 1950 to 2050"):
            ins.sun_position(times, 48, 0)


@pytest.mark.parametrize(
    "air", [{"temperature": -273}, {"temperature": np.nan}, {"pressure": 1e30}, {"elevation": np.nan}]
)
def test_air_that_is_none(air):
    with pytest.raises(ins.UsageError, match="is none of the air"):
        ins.sun_position(["2026-06-21"], 48, 0, **air)
