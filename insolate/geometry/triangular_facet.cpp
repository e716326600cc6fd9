#include <insolate/geometry/triangular_facet.h>

#include <insolate/geometry/vector_math.h>

namespace {

using insolate::crossProduct;
using insolate::difference;
using insolate::dotProduct;
using insolate::scaled;
using insolate::sum;

bool isVertex(int index) {
    return index >= 0 && index < 3;
}

} // namespace

void ETriangularFacet::set(XYZf a, XYZf b, XYZf c) {
    vertices[0] = a;
    vertices[1] = b;
    vertices[2] = c;
}

bool ETriangularFacet::getVertex(int index, XYZf* out) const {
    if (!isVertex(index)) {
        return false;
    }
    *out = vertices[index];
    return true;
}

bool ETriangularFacet::setVertex(int index, float x, float y, float z) {
    if (!isVertex(index)) {
        return false;
    }
    vertices[index] = {x, y, z};
    return true;
}

bool ETriangularFacet::isHitBy(XYZf origin, XYZf direction, XYZf* hit) const {
    const XYZf normal =
        crossProduct(difference(vertices[1], vertices[0]), difference(vertices[2], vertices[1]));
    const float denominator = dotProduct(direction, normal);
    if (!(denominator < 0.0f)) {
        return false;
    }
    const float t = -dotProduct(difference(origin, vertices[0]), normal) / denominator;
    if (t < 0.0f) {
        return false;
    }
    const XYZf point = sum(origin, scaled(direction, t));
    *hit = point;
    for (int i = 0; i < 3; ++i) {
        const XYZf edge = difference(vertices[(i + 1) % 3], vertices[i]);
        if (dotProduct(normal, crossProduct(edge, difference(point, vertices[i]))) < 0.0f) {
            return false;
        }
    }
    return true;
}
