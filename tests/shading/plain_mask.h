/// A mask's calculation cell by cell, as its definition reads: what the vector code is compared
/// with.
#pragma once

#include <insolate/geometry/arc_cosine.h>
#include <insolate/geometry/geometry.h>
#include <insolate/geometry/vector_math.h>
#include <insolate/shading/cell_directions.h>
#include <insolate/shading/shading_mask.h>

#include <algorithm>
#include <cmath>

namespace insolate::test {

struct PlainMask {
    EShadingMask mask; ///< its planes and factors; the normal's altitude cannot be set
    int raysCast = 0;
};

inline PlainMask plainMask(GetTransparencyValueOnRay& rays, const XYZf& point, XYZf* normal) {
    PlainMask result;
    const bool doubleSided = rays.getSurfaceDoubleSided();
    float u = 0, ud = 0, o = 0, od = 0, h = 0, hd = 0;
    for (int b = 0; b < 18; ++b) {
        const float a0 = static_cast<float>(b) * 0.08726647f;
        const float a1 = std::min(a0 + 0.08726647f, 1.5707964f);
        const float w = (std::sin(a1) - std::sin(a0)) * 6.2831855f / 72.0f;
        const float m = (a0 + a1) * 0.5f;
        const float l = (1.0f + 2.0f * std::sin(m)) / 3.0f;
        for (int a = 0; a < 72; ++a) {
            const XYZf d = cellDirection(a, b);
            float t = 0;
            float c = 1;
            if (normal != nullptr) {
                const float g = EGeometry::Angle(point, sum(point, scaled(*normal, 100.0f)),
                                                 sum(point, scaled(d, 100.0f)), nullptr);
                c = roundedCosine(g);
                if (doubleSided) {
                    c = std::fabs(c);
                } else if (g >= 1.5707964f) {
                    c = 0;
                }
            }
            if (c != 0) {
                t = rays.getTransparencyValue(point, d, normal);
                ++result.raysCast;
            }
            result.mask.setExposureValue(a, b, t);
            result.mask.setIncidenceValue(a, b, c);
            if (c > 1e-12f) {
                u += c * w * t;
                o += c * w * t * l;
                h += b < 3 ? t * w : 0.0f;
            }
            od += std::sin(m) * w * l;
            ud += std::sin(m) * w;
            hd += b < 3 ? w : 0.0f;
        }
    }
    result.mask.setOvercastSkyComponent(o / od * 100.0f);
    result.mask.setUniformSkyComponent(u / ud * 100.0f);
    result.mask.setPerezHorizonFactor(h / hd);
    return result;
}

} // namespace insolate::test
