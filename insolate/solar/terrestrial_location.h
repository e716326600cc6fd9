/// A site on Earth, as a plain record to hand to ESolarPosition::setLocation.
#pragma once

#include <cstddef>
#include <cstdint>

/// The first six fields of ESolarPosition, with the same meaning.
struct ETerrestrialLocation {
    char name[50] = "";              ///< NUL-terminated
    double latitude = 0.0;           ///< [radians], north positive
    double longitude = 0.0;          ///< [radians], east positive
    double referenceLongitude = 0.0; ///< meridian of the time zone [radians], 15 degrees an hour
    double northOffset = 0.0;        ///< [radians], see ESolarPosition
    std::int32_t daylightSaving = 0; ///< hours added to standard time
};

static_assert(offsetof(ETerrestrialLocation, latitude) == 56);
static_assert(offsetof(ETerrestrialLocation, daylightSaving) == 88);
