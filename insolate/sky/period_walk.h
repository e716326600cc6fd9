/// How the sky and point calculations walk over an analysis period. Shared by all methods, so that
/// their rules for steps, dates and hourly values cannot drift apart.
#pragma once

#include <insolate/sky/cumulative_sky.h>
#include <insolate/solar/cell_lookup.h>
#include <insolate/solar/solar_position.h>

class EWeatherData;

namespace insolate {

/// The time steps of one day [decimal hours], in the single precision in which they are walked.
struct DaySteps {
    float start;
    float end;
    float increment;
};

/// The steps of a sky's period. A single instant on a single day becomes one step of one hour; a
/// range below an hour is walked in steps of a minute. An increment by which the clock cannot
/// advance over the whole range (0, negative, NaN, or lost in the rounding of the time) leaves the
/// one step at the start. The sky's stored range stays as it is.
DaySteps dayStepsOf(const ECumulativeSky& sky);

/// The last day of a period that may run over the new year: raised by whole years until it is not
/// before the first.
int unwrappedEndDate(int startDate, int endDate);

/// The day 1..365 of a day that may lie past the new year.
constexpr int dayWithinYear(int day) {
    return day > 365 ? day - 365 : day;
}

/// A private solar position at the sky's site.
ESolarPosition sunAtSite(const ECumulativeSky& sky);

/// Moves the sun to noon of a day, which settles declination, sunrise and sunset.
void moveToDay(ESolarPosition& sun, int day);

/// The cell of the sun by its plan angle; an index outside the grid where there is none.
SkyCell cellOfSun(const ESolarPosition& sun);

/// Calls step(sun, day of the year, time) for every step of the sky's dates, with the sun moved to
/// the day but not to the time; the dates must be unwrapped.
template <typename Step>
void walkSteps(const ECumulativeSky& sky, const DaySteps& steps, Step&& step) {
    ESolarPosition sun = sunAtSite(sky);
    for (long long date = sky.getStartDate(); date <= sky.getEndDate(); ++date) {
        const int day = dayWithinYear(static_cast<int>(date));
        moveToDay(sun, day);
        float next = 0.0f;
        for (float time = steps.start; time < steps.end; time = next) {
            next = time + steps.increment;
            if (!(next > time)) {
                next = steps.end; // a step that does not advance would never end the day
            }
            step(sun, day, time);
        }
    }
}

/// Direct normal and diffuse horizontal radiation [W/m2].
struct HourlyRadiation {
    float direct;
    float diffuse;
};

/// The record of the hour that ends at hour + 1, read one row further on, as the hourly methods
/// have always done; 0 outside the store. Beside sunrise and sunset the values are put in
/// proportion to the part of the hour with the sun up: divided by (hour + 1) - sunrise in the hour
/// after the sunrise hour, by sunset - hour in the sunset hour. A divisor of 0 (polar day and
/// night) leaves them as read.
///
/// day: index of the weather store, 0..364; hour: whole hour of the step's time; sunrise, sunset:
/// of that day [clock hours].
HourlyRadiation hourlyRadiation(const EWeatherData& weather, int day, int hour, float sunrise,
                                float sunset);

/// The whole hour that a time of day lies in; times beyond any clock give an hour outside the
/// store.
int wholeHour(float time);

/// A step's time rounded to a tenth of an hour [decimal hours].
float roundToTenth(float time);

} // namespace insolate
