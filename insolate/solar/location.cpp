#include <insolate/solar/solar_position.h>
#include <insolate/solar/time_zone_list.h>
#include <insolate/solar/time_zone_map.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numbers>

constinit ESolarPosition ESolarPosition::Global;

namespace {

using std::numbers::pi;

// Single-precision pi, widened: meridians taken from the map of time zones are computed with it.
constexpr float narrowPi = 3.1415927f;
constexpr double widenedPi = 3.1415927410125732;

// A cell number of the map, held within 0 to last; NaN counts as the first cell.
int cellNumber(double position, int last) {
    return position > 0.0 ? static_cast<int>(std::min(position, static_cast<double>(last))) : 0;
}

} // namespace

void ESolarPosition::setLatitudeInRadians(double angle) {
    latitude = angle;
    setDayOfTheYear(dayOfTheYear);
}

void ESolarPosition::setLongitudeInRadians(double angle) {
    longitude = angle;
    setDayOfTheYear(dayOfTheYear);
}

void ESolarPosition::setReferenceLongitudeInRadians(double angle) {
    referenceLongitude = angle;
    setDayOfTheYear(dayOfTheYear);
}

void ESolarPosition::setTimeZone(double hours) {
    referenceLongitude = hours * 15.0 / 180.0 * pi;
    setDayOfTheYear(dayOfTheYear);
}

double ESolarPosition::getTimeZone() const {
    return referenceLongitude / pi * 180.0 / 15.0;
}

double ESolarPosition::getLatitudeInDegrees() const {
    return convertRadiansToDegrees(latitude);
}

double ESolarPosition::getLatitudeInRadians() const {
    return latitude;
}

double ESolarPosition::getLongitudeInDegrees() const {
    return convertRadiansToDegrees(longitude);
}

double ESolarPosition::getLongitudeInRadians() const {
    return longitude;
}

double ESolarPosition::getReferenceLongitudeInDegrees() const {
    return convertRadiansToDegrees(referenceLongitude);
}

double ESolarPosition::getReferenceLongitudeInRadians() const {
    return referenceLongitude;
}

bool ESolarPosition::isSouthernHemisphere() const {
    return latitude < 0.0;
}

void ESolarPosition::setLocation(double newLatitude, double newLongitude) {
    setLocation(newLatitude, newLongitude,
                determineReferenceLongitudeInRadians(newLatitude, newLongitude));
}

void ESolarPosition::setLocation(double newLatitude, double newLongitude,
                                 double newReferenceLongitude) {
    latitude = newLatitude;
    longitude = newLongitude;
    referenceLongitude = newReferenceLongitude;
    setDayOfTheYear(dayOfTheYear);
}

void ESolarPosition::setGlobalLocation(float newLatitude, float newLongitude,
                                       float newReferenceLongitude) {
    Global.setLocation(static_cast<double>(newLatitude), static_cast<double>(newLongitude),
                       static_cast<double>(newReferenceLongitude));
}

void ESolarPosition::setLocation(const ETerrestrialLocation* location) {
    if (location == nullptr) {
        return;
    }
    latitude = location->latitude;
    longitude = location->longitude;
    referenceLongitude = location->referenceLongitude;
    setName(location->name);
    daylightSaving = location->daylightSaving;
    northOffset = location->northOffset;
    setDayOfTheYear(dayOfTheYear);
}

void ESolarPosition::setLocation(const ESolarPosition* other, int day, double time) {
    if (other == nullptr) {
        return;
    }
    latitude = other->latitude;
    longitude = other->longitude;
    referenceLongitude = other->referenceLongitude;
    setName(other->name);
    daylightSaving = other->daylightSaving;
    northOffset = other->northOffset;
    const bool knownDay = day >= 1 && day <= DAYS_PER_YEAR;
    const bool knownTime = time >= 0.0 && time < HOURS_PER_DAY;
    setDayOfTheYear(knownDay ? day : other->dayOfTheYear, knownTime ? time : other->localTime);
}

void ESolarPosition::setLocation(const ESolarPosition* other) {
    if (other != nullptr) {
        setLocation(other, other->dayOfTheYear, other->localTime);
    }
}

void ESolarPosition::setName(const char* newName) {
    if (newName == nullptr) {
        return;
    }
    // The source may be this object's own name.
    std::size_t length = 0;
    while (length < sizeof(name) - 1 && newName[length] != '\0') {
        ++length;
    }
    std::memmove(name, newName, length);
    std::memset(name + length, 0, sizeof(name) - length);
}

double ESolarPosition::calculateDistanceFrom(double otherLatitude, double otherLongitude) const {
    // Haversine formula: Sinnott (1984), Sky and Telescope 68(2), on a sphere of 6371 km.
    const double sinLatitude = std::sin((latitude - otherLatitude) / 2.0);
    const double sinLongitude = std::sin((longitude - otherLongitude) / 2.0);
    const double h = sinLatitude * sinLatitude +
                     std::cos(latitude) * std::cos(otherLatitude) * sinLongitude * sinLongitude;
    // At the antipode rounding may carry h past 1.
    return 2.0 * std::atan2(std::sqrt(h), std::sqrt(std::max(0.0, 1.0 - h))) * 6.371e6;
}

double ESolarPosition::determineTimeZone(double placeLatitude, double placeLongitude) const {
    const double latitudeDegrees = placeLatitude / widenedPi * 180.0;
    const double longitudeDegrees = placeLongitude / widenedPi * 180.0;
    const int column = cellNumber((longitudeDegrees + 180.0) / 360.0 * 720.0, 719);
    const int row = cellNumber((90.0 - latitudeDegrees) / 180.0 * 360.0, 356);
    return static_cast<double>(insolate::timeZoneOfCell(row, column));
}

double ESolarPosition::determineReferenceLongitudeInDegrees(double placeLatitude,
                                                            double placeLongitude) const {
    return determineTimeZone(placeLatitude, placeLongitude) * 15.0;
}

double ESolarPosition::determineReferenceLongitudeInRadians(double placeLatitude,
                                                            double placeLongitude) const {
    return determineTimeZone(placeLatitude, placeLongitude) * 15.0 / 180.0 * widenedPi;
}

int ESolarPosition::getTimeZoneListIndex(double meridian) const {
    double degrees = static_cast<double>(static_cast<float>(meridian) / narrowPi * 180.0f);
    if (degrees > 3600.0 || degrees < -3600.0) {
        degrees = 0.0;
    }
    while (degrees > 180.0) {
        degrees -= 360.0;
    }
    while (degrees < -180.0) {
        degrees += 360.0;
    }
    const double hours = degrees / 15.0;
    for (int index = 0; insolate::timeZoneList[index].name[0] != '\0'; ++index) {
        if (static_cast<double>(insolate::timeZoneList[index].offset + 0.1f) > hours) {
            return index;
        }
    }
    return -1;
}
