from __future__ import annotations

import numpy as np
import pandas as pd
import pytest

import insolate as ins

names = ("dni", "dhi", "ghi", "temp_air", "temp_dew", "pressure")


def arrays(weather):
    return {name: getattr(weather, name) for name in names}


def assert_same(made, wanted):
    for name, values in arrays(wanted).items():
        np.testing.assert_array_equal(getattr(made, name), values, err_msg=name)


def of_frame(frame, weather, label, **more):
    site = weather.site
    more = {"elevation": site.elevation, **more}
    return ins.Weather.from_dataframe(frame, latitude=site.latitude, longitude=site.longitude, label=label, **more)


@pytest.mark.parametrize("label", ["left", "right", "center"])
def test_a_frame_comes_back_as_the_weather_that_made_it(weather, label):
    made = of_frame(weather.to_dataframe(label=label), weather, label)
    assert_same(made, weather)
    assert made.site[:4] == weather.site[:4]
    assert made._core.sample_offset == 0.0


def test_the_clock_of_the_index_does_not_matter(weather):
    frame = weather.to_dataframe()
    for zone in ("UTC", "America/Denver", "Asia/Kathmandu"):
        assert_same(of_frame(frame.tz_convert(zone), weather, "left", time_zone=weather.site.time_zone), weather)
    summer_time = frame.tz_convert("Europe/Paris")
    assert of_frame(summer_time, weather, "left").site.time_zone == 1.0


def test_half_hours_are_averaged_and_labels_move_the_sun(weather):
    frame = weather.to_dataframe()
    halves = frame.loc[frame.index.repeat(2)]
    halves.index = pd.date_range(frame.index[0], periods=17520, freq="30min")
    assert_same(of_frame(halves, weather, "left"), weather)
    # Values taken at the full hour: the sun stands where their instant is.
    instants = of_frame(frame, weather, "center")
    assert instants._core.sample_offset == -0.5
    assert any("29.9" in text or "30" in text for text in instants.findings)


def test_what_a_frame_lacks_is_refused(weather):
    frame = weather.to_dataframe()
    with pytest.raises(TypeError, match="label"):
        ins.Weather.from_dataframe(frame, latitude=0, longitude=0)
    for broken, label, text in (
        (frame.drop(columns="dni"), "left", "no column 'dni'"),
        (frame.tz_localize(None), "left", "no time zone"),
        (frame, "middle", "no such label"),
        (frame.iloc[:0], "left", "no hourly data"),
        (frame.iloc[::5], "left", "300 minutes apart"),
        (pd.concat([frame, frame.iloc[100:103]]), "left", "3 rows are of times of the year that others have"),
        (pd.concat([frame, frame.shift(freq=pd.Timedelta(days=365))]), "left", "8760 rows are of times"),
    ):
        with pytest.raises(ins.Error, match=text):
            of_frame(broken, weather, label, time_zone=1)
    with pytest.raises(ins.DataError, match="latitude 91"):
        ins.Weather.from_dataframe(frame, latitude=91, longitude=0, label="left")


def test_gaps_need_leave(weather, model, sensors):
    endless = weather.to_dataframe()
    endless.iloc[4000:4010, endless.columns.get_loc("dni")] = -np.inf
    assert of_frame(endless, weather, "left").gaps == 10
    holed = of_frame(weather.to_dataframe().drop(index=weather.to_dataframe().index[4000:4010]), weather, "left")
    assert holed.gaps == 10
    with pytest.raises(ins.DataError, match="data frame"):
        ins.radiation(model, sensors, holed, period="6/21")
    with pytest.warns(ins.InsolateWarning, match="10 hours"):
        ins.radiation(model, sensors, holed, period="6/21", sun_tolerance=1, allow_gaps=True)


def test_other_methods_need_a_file(weather, model, sensors):
    made = of_frame(weather.to_dataframe(), weather, "left")
    with pytest.raises(ins.UsageError, match="reads its weather from a file"):
        ins.radiation(model, sensors, made, method="perez-sky")
