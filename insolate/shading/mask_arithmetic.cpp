#include <insolate/shading/mask_arithmetic.h>

#include <insolate/geometry/geometry.h>
#include <insolate/geometry/vector_math.h>

#include <cmath>
#include <cstddef>

namespace insolate {

void computeIncidence(const XYZf& point, const XYZf& normal, bool doubleSided,
                      const CellDirections& directions, CellIncidence& incidence) {
    const XYZf normalTip = sum(point, scaled(normal, 100.0f));
    for (std::size_t cell = 0; cell < directions.direction.size(); ++cell) {
        const XYZf cellTip = sum(point, scaled(directions.direction[cell], 100.0f));
        const float angle = EGeometry::Angle(point, normalTip, cellTip, nullptr);
        const bool inFront = doubleSided || !(angle >= skyGrid::halfPi);
        const float cosine = std::cos(angle);
        incidence.inFront[cell] = inFront;
        incidence.cosine[cell] = !inFront ? 0.0f : doubleSided ? std::fabs(cosine) : cosine;
    }
}

} // namespace insolate
