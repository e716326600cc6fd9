/// A ray object that answers by a formula and counts what it was asked.
#pragma once

#include <insolate/rt/ray_transparency.h>

#include <functional>
#include <utility>

namespace insolate::test {

struct FormulaRays : GetTransparencyValueOnRay {
    using Formula = std::function<float(const XYZf& direction)>;

    explicit FormulaRays(Formula answer, bool isDoubleSided = false)
        : formula(std::move(answer)), doubleSided(isDoubleSided) {}

    bool getSurfaceDoubleSided() override { return doubleSided; }
    float getTransparencyValue(const XYZf& /*origin*/, const XYZf& direction,
                               const XYZf* normal) override {
        ++cast;
        lastNormal = normal;
        return formula(direction);
    }
    int initialise() override { return 0; }

    Formula formula;
    bool doubleSided;
    int cast = 0;
    const XYZf* lastNormal = nullptr;
};

/// Every ray passes that much.
inline FormulaRays uniformRays(float transparency, bool isDoubleSided = false) {
    return FormulaRays([transparency](const XYZf&) { return transparency; }, isDoubleSided);
}

} // namespace insolate::test
