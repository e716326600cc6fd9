#include <insolate/platform/simd.h>

#include <insolate/platform/simd_targets.h>

#include <hwy/highway.h>

#include <cstdint>
#include <cstdlib>
#include <string_view>

namespace insolate {

namespace {

struct Level {
    SimdLevel level;
    const char* name;
    std::int64_t target;
};

constexpr Level levels[] = {
    {SimdLevel::plain, "plain", HWY_STATIC_TARGET},
    {SimdLevel::neon, "neon", HWY_NEON},
    {SimdLevel::avx2, "avx2", HWY_AVX2},
    {SimdLevel::avx512, "avx512", HWY_AVX3},
};

// Lower bits are better targets, so the targets above a level are the bits below its own.
std::int64_t targetsAbove(std::int64_t target) {
    return target - 1;
}

bool compiled(std::int64_t target) {
    return (HWY_TARGETS & target) != 0;
}

std::int64_t supportedByProcessor() {
    static const std::int64_t supported = hwy::SupportedTargets() & HWY_TARGETS;
    return supported;
}

} // namespace

std::vector<SimdLevel> availableSimdLevels() {
    applySimdChoice();
    std::vector<SimdLevel> available;
    for (const Level& level : levels) {
        const bool isPlain = level.level == SimdLevel::plain;
        if (isPlain || (compiled(level.target) && (supportedByProcessor() & level.target) != 0 &&
                        level.target != HWY_STATIC_TARGET)) {
            available.push_back(level.level);
        }
    }
    return available;
}

SimdLevel simdLevel() {
    applySimdChoice();
    const std::int64_t supported = hwy::SupportedTargets() & HWY_TARGETS;
    SimdLevel best = SimdLevel::plain;
    for (const Level& level : levels) {
        if ((supported & level.target) != 0) {
            best = level.level;
        }
    }
    return best;
}

bool setSimdLevel(SimdLevel wanted) {
    for (const SimdLevel level : availableSimdLevels()) {
        if (level == wanted) {
            hwy::DisableTargets(targetsAbove(levels[static_cast<int>(level)].target));
            return true;
        }
    }
    return false;
}

const char* simdLevelName(SimdLevel level) {
    return levels[static_cast<int>(level)].name;
}

void applySimdChoice() {
    static const bool applied = [] {
        supportedByProcessor();
        const char* choice = std::getenv("INSOLATE_SIMD");
        for (const Level& level : levels) {
            if (choice != nullptr && std::string_view(choice) == level.name) {
                hwy::DisableTargets(targetsAbove(level.target));
            }
        }
        return true;
    }();
    static_cast<void>(applied);
}

} // namespace insolate
