/// The place of a question that needs no weather.
#pragma once

#include "study/export.h"

#include <filesystem>
#include <optional>
#include <string>

#include <insolate/insolate.h>

namespace insolate::study {

struct SiteOptions {
    std::optional<std::filesystem::path> weather; ///< names the site; else latitude and longitude
    std::optional<double> latitude;               ///< degrees, north positive
    std::optional<double> longitude;              ///< degrees, east positive
    std::optional<double> timeZone; ///< hours from UTC; absent: from the map of time zones
};

struct NamedSite {
    std::string name; ///< with coordinates and zone
    Site site;
    std::string note; ///< on its clock; empty where there is nothing to say
};

/// @throws UsageError, DataError
INSOLATE_STUDY_EXPORT NamedSite namedSite(const SiteOptions& options);

} // namespace insolate::study
