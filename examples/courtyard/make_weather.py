#!/usr/bin/env python3
"""Makes weather.epw, a synthetic year for the demo: an invented place at 47 N, 8 E, 430 m.

The sun's position follows Spencer (1971). Global radiation of the clear sky is Haurwitz (1945),
G = 1098 sin h exp(-0.059 / sin h), summed over five-minute steps. Clouds are a seeded random series:
days keep some memory of the day before, hours scatter about their day. The split of the hourly
global radiation into beam and diffuse is Erbs, Klein and Duffie (1982); the beam follows from the
closure global = diffuse + direct normal x sin h. Temperature, humidity, wind and pressure are plain
yearly and daily waves with noise: they do not matter for radiation.

Usage: make_weather.py > weather.epw        (the same bytes every time; checks itself before)
"""

import math
import random
import sys

LATITUDE, LONGITUDE, ZONE, ELEVATION = 47.0, 8.0, 1.0, 430.0
DAYS_IN_MONTH = [31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31]
SOLAR_CONSTANT = 1361.0
STEPS = 12  # per hour


def sun(day, clock):
    """Sine of the sun's altitude, and the sun's distance factor; Spencer (1971)."""
    g = 2.0 * math.pi * (day - 1) / 365.0
    declination = (0.006918 - 0.399912 * math.cos(g) + 0.070257 * math.sin(g)
                   - 0.006758 * math.cos(2 * g) + 0.000907 * math.sin(2 * g)
                   - 0.002697 * math.cos(3 * g) + 0.00148 * math.sin(3 * g))
    equation = 229.18 * (0.000075 + 0.001868 * math.cos(g) - 0.032077 * math.sin(g)
                         - 0.014615 * math.cos(2 * g) - 0.040849 * math.sin(2 * g))  # minutes
    distance = (1.00011 + 0.034221 * math.cos(g) + 0.00128 * math.sin(g)
                + 0.000719 * math.cos(2 * g) + 0.000077 * math.sin(2 * g))
    solar_time = clock + equation / 60.0 + (LONGITUDE - 15.0 * ZONE) / 15.0
    hour_angle = math.radians(15.0 * (solar_time - 12.0))
    latitude = math.radians(LATITUDE)
    return (math.sin(latitude) * math.sin(declination)
            + math.cos(latitude) * math.cos(declination) * math.cos(hour_angle)), distance


def clear_hour(day, hour):
    """Means over the hour that begins at `hour`: clear global, extraterrestrial, sine of altitude."""
    clear = outside = sine = 0.0
    for step in range(STEPS):
        s, distance = sun(day, hour + (step + 0.5) / STEPS)
        if s > 0.0:
            clear += 1098.0 * s * math.exp(-0.059 / s) / STEPS
            outside += SOLAR_CONSTANT * distance * s / STEPS
            sine += s / STEPS
    return clear, outside, sine


def diffuse_share(clearness):
    """Diffuse / global for the hour's clearness index; Erbs, Klein and Duffie (1982), eq. 1."""
    k = clearness
    if k <= 0.22:
        return 1.0 - 0.09 * k
    if k <= 0.80:
        return 0.9511 - 0.1604 * k + 4.388 * k ** 2 - 16.638 * k ** 3 + 12.336 * k ** 4
    return 0.165


def make_year():
    """Rows of (month, day, hour 1..24, global, direct normal, diffuse, mean sine, cover, ...)."""
    rng = random.Random(1947)
    rows = []
    mood = 0.0       # of the day: low is overcast
    wobble = 0.0     # of the hour
    wind = 2.5
    day_of_year = 0
    for month, days in enumerate(DAYS_IN_MONTH, 1):
        for day in range(1, days + 1):
            day_of_year += 1
            mood = 0.55 * mood + math.sqrt(1 - 0.55 ** 2) * rng.gauss(0.0, 1.0)
            summer = -math.cos(2.0 * math.pi * (day_of_year - 15) / 365.0)  # -1 winter, 1 summer
            # Winters lie under fog and stratus more often than summers under clouds.
            clear_day = 1.0 / (1.0 + math.exp(-(1.8 * mood + 0.05 + 0.35 * summer)))
            for hour in range(24):
                wobble = 0.7 * wobble + math.sqrt(1 - 0.7 ** 2) * rng.gauss(0.0, 1.0)
                spread = 0.55 * clear_day * (1.0 - clear_day) + 0.03
                index = min(max(0.16 + 0.90 * clear_day + spread * wobble, 0.08), 1.05)
                clear, outside, sine = clear_hour(day_of_year, hour)
                total = min(index * clear, 0.82 * outside)
                diffuse = direct = 0
                if total >= 0.5:
                    diffuse = round(total * diffuse_share(total / outside))
                    direct = round((total - diffuse) / sine) if sine > 0.03 else 0
                    direct = min(max(direct, 0), 1000)
                total = round(diffuse + direct * sine)
                cover = round(10.0 * min(max(1.08 - index, 0.0), 1.0))
                wave = math.cos(2.0 * math.pi * (hour - 15) / 24.0)
                dry = 9.5 + 9.5 * summer + (1.5 + 4.5 * clear_day) * wave + 1.5 * mood * summer
                spread_dew = 1.0 + (3.0 + 6.0 * clear_day) * (0.5 + 0.5 * wave)
                dew = dry - spread_dew
                humidity = 100.0 * math.exp(17.625 * dew / (243.04 + dew) - 17.625 * dry / (243.04 + dry))
                wind = max(0.2, 0.85 * wind + 0.15 * 2.6 + rng.gauss(0.0, 0.35))
                direction = int(rng.choice((50, 60, 70, 230, 240, 250, 260, 270)))
                pressure = 96200 + round(350.0 * mood)
                emissivity = (0.787 + 0.764 * math.log((dew + 273.15) / 273.0)) * (
                    1.0 + 0.0224 * cover - 0.0035 * cover ** 2 + 0.00028 * cover ** 3)
                infrared = round(5.6697e-8 * emissivity * (dry + 273.15) ** 4)
                rows.append((month, day, hour + 1, dry, dew, round(humidity), pressure,
                             outside, outside / sine if sine > 0.0 else 0.0, infrared,
                             total, direct, diffuse, direction, wind, cover, sine))
    return rows


def header():
    return [
        f"LOCATION,Courtyard Demo (synthetic weather),,,made by make_weather.py,000000,{LATITUDE:.2f},{LONGITUDE:.2f},{ZONE:.1f},{ELEVATION:.1f}",
        "DESIGN CONDITIONS,0",
        "TYPICAL/EXTREME PERIODS,0",
        "GROUND TEMPERATURES,0",
        "HOLIDAYS/DAYLIGHT SAVINGS,No,0,0,0",
        "COMMENTS 1,Synthetic year; clear sky Haurwitz (1945) with a seeded series of clouds",
        "COMMENTS 2,Beam and diffuse split after Erbs et al. (1982); not a measurement of any place",
        "DATA PERIODS,1,1,Data,Sunday,1/1,12/31",
    ]


def line(row):
    (month, day, hour, dry, dew, humidity, pressure, outside, outside_normal, infrared,
     total, direct, diffuse, direction, wind, cover, _) = row
    # Illuminance by one round figure of 110 lm/W: no use is made of it here.
    fields = [2001, month, day, hour, 0, "S", f"{dry:.1f}", f"{dew:.1f}", humidity, pressure,
              round(outside), round(outside_normal), infrared, total, direct, diffuse,
              total * 110, direct * 110, diffuse * 110, 0, direction, f"{wind:.1f}", cover, cover,
              20, 77777, 9, 999999999, 15, ".100", 0, 88, ".200", 0, 0]
    assert len(fields) == 35
    return ",".join(map(str, fields))


def check(rows):
    """A year that a solar engineer would believe, or nothing is written."""
    assert len(rows) == 8760
    yearly = [sum(row[k] for row in rows) / 1000.0 for k in (10, 11, 12)]
    total, direct, diffuse = yearly
    assert 1200.0 < total < 1350.0, yearly
    assert 1050.0 < direct < 1450.0, yearly
    assert 0.42 < diffuse / total < 0.58, yearly
    by_month = [sum(r[10] for r in rows if r[0] == m) / 1000.0 for m in range(1, 13)]
    assert max(by_month) in by_month[4:7] and min(by_month) in (by_month[11], by_month[0])
    assert 3.5 < max(by_month) / min(by_month) < 9.0, by_month
    for row in rows:
        sine, g, b, d, outside = row[16], row[10], row[11], row[12], row[7]
        assert abs(g - (d + b * sine)) <= 0.51, row
        assert 0 <= d <= g + 1 and g <= outside + 1 and 0 <= row[5] <= 100, row
        assert sine > 0.0 or (g == b == d == 0), row
    noons = [row[10] for row in rows if row[2] == 13 and row[0] == 6]
    assert max(noons) > 850 and min(noons) < 350, (max(noons), min(noons))
    print(f"global {total:.0f}, direct normal {direct:.0f}, diffuse {diffuse:.0f} kWh/m2 a year",
          file=sys.stderr)


def main():
    rows = make_year()
    check(rows)
    sys.stdout.write("\n".join(header() + [line(row) for row in rows]) + "\n")


if __name__ == "__main__":
    main()
