// The north offset as all parts of the hourly method take it.
#pragma once

#include <cmath>

namespace insolate {

/// The offset, or 0 where it is no finite number: whoever fills or changes a sky's options may have
/// left none there.
inline double finiteOffset(double northOffset) {
    return std::isfinite(northOffset) ? northOffset : 0.0;
}

} // namespace insolate
