/// What a study would take, before it is run.
#pragma once

#include "study/export.h"

#include <cstddef>
#include <string>

namespace insolate::study {

struct INSOLATE_STUDY_EXPORT StudyEstimate {
    std::size_t sensors = 0;
    double area = 0.0; ///< of their cells [m2]; 0 for sensors without cells
    std::size_t triangles = 0;
    double bytes = 0.0;   ///< of memory, at the most that is used at a time
    double seconds = 0.0; ///< from the end of the reading to the last file
    int threads = 1;      ///< that the seconds are for

    /// A line each.
    [[nodiscard]] std::string text() const;
};

} // namespace insolate::study
