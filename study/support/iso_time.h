/// Times as ISO 8601 writes them, with the offset of the site's clock.
#pragma once

#include "study/export.h"

#include <string>

namespace insolate::study {

/// The year that hours of a weather file are written in: a year of 365 days stands for none in
/// particular, as its months may come from different years. 2001 begins on a Monday and is no leap
/// year.
inline constexpr int nominalYear = 2001;

/// "+01:00".
/// @param timeZone hours from UTC
INSOLATE_STUDY_EXPORT std::string isoOffset(double timeZone);

/// When an hour begins: "2001-05-22T11:00+01:00".
/// @param hourOfYear 0..8,759
INSOLATE_STUDY_EXPORT std::string isoHourStart(int hourOfYear, double timeZone);

} // namespace insolate::study
