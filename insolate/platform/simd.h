/// Which vector instructions the library's fast loops use.
///
/// The loops are compiled for several instruction sets; the best one that the processor has is
/// taken at run time. The environment variable INSOLATE_SIMD (plain, avx2 or avx512), read once,
/// holds the choice at or below a level. Every level gives the same results.
#pragma once

#include <vector>

namespace insolate {

enum class SimdLevel {
    plain,  ///< portable code without wide instructions
    neon,   ///< Arm, 4 single-precision lanes
    avx2,   ///< x86, 8 lanes
    avx512, ///< x86, 16 lanes
};

/// The levels that this processor can run, lowest first; never empty.
std::vector<SimdLevel> availableSimdLevels();

/// The level in use.
SimdLevel simdLevel();

/// Takes a level from now on, in all threads, whatever the environment says; for tests and
/// benchmarks. False, and no change, where the processor lacks it.
bool setSimdLevel(SimdLevel level);

const char* simdLevelName(SimdLevel level);

/// Applies the environment's choice on the first call, and does nothing later. Every dispatching
/// function calls it before its first HWY_DYNAMIC_DISPATCH.
void applySimdChoice();

} // namespace insolate
