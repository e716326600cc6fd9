/// Seeded triangle scenes that ray casters find hard.
#pragma once

#include <insolate/geometry/xyzf.h>
#include <insolate/rt/input_package.h>
#include <insolate/rt/input_package_util.h>

#include <cmath>
#include <random>
#include <vector>

namespace insolate::test {

/// Nine doubles a triangle.
using Scene = std::vector<double>;

inline void addTriangle(Scene& scene, Vector3d a, Vector3d b, Vector3d c) {
    for (const Vector3d& vertex : {a, b, c}) {
        scene.insert(scene.end(), vertex.begin(), vertex.end());
    }
}

/// A parallelogram as two triangles that share the diagonal from corner + u + v.
inline void addQuad(Scene& scene, Vector3d corner, Vector3d u, Vector3d v) {
    const auto at = [&](double s, double t) {
        Vector3d point{};
        for (std::size_t axis = 0; axis < 3; ++axis) {
            point[axis] = corner[axis] + s * u[axis] + t * v[axis];
        }
        return point;
    };
    addTriangle(scene, at(0, 0), at(1, 0), at(1, 1));
    addTriangle(scene, at(0, 0), at(1, 1), at(0, 1));
}

/// Triangles of the given size at random places of a cube of 100 units; with a quarter of them
/// degenerate, far too long, or doubled when wild.
inline Scene randomScene(int count, double size, unsigned seed, bool wild = false) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> place(0.0, 100.0);
    std::uniform_real_distribution<double> offset(-size, size);
    Scene scene;
    for (int i = 0; i < count; ++i) {
        const Vector3d a = {place(random), place(random), place(random)};
        const auto near = [&] {
            return Vector3d{a[0] + offset(random), a[1] + offset(random), a[2] + offset(random)};
        };
        const Vector3d b = near();
        const Vector3d c = near();
        switch (wild ? i % 16 : 0) {
        case 1:
            addTriangle(scene, a, a, c); // no area
            break;
        case 2:
            addTriangle(scene, a, {place(random), place(random), place(random)},
                        {place(random), place(random), place(random)});
            break;
        case 3:
            addTriangle(scene, a, {a[0], a[1], a[2] + 50.0}, {a[0] + 1e-9, a[1], a[2] + 25.0});
            break;
        case 4:
            addTriangle(scene, a, b, c);
            addTriangle(scene, c, b, a);
            break;
        default:
            addTriangle(scene, a, b, c);
        }
    }
    return scene;
}

/// Unit squares on an integer lattice of the given length, a power of two: with the scene box
/// [0, length]^3 their vertices lie exactly on the octants' faces.
inline Scene latticeScene(int length) {
    Scene scene;
    for (int x = 0; x < length; ++x) {
        for (int y = 0; y < length; ++y) {
            const Vector3d corner = {1.0 * x, 1.0 * y, 1.0 * ((x * 7 + y * 3) % length)};
            addQuad(scene, corner, {1, 0, 0}, {0, 1, 0});
            addQuad(scene, corner, {0, 1, 0}, {0, 0, 1});
        }
    }
    return scene;
}

/// The definition of a blocked ray: any triangle of the scene is hit.
inline bool isBlocked(const Scene& scene, const XYZf& origin, const XYZf& direction) {
    const Vector3d o = {origin.x, origin.y, origin.z};
    const Vector3d d = {direction.x, direction.y, direction.z};
    for (std::size_t at = 0; at + 9 <= scene.size(); at += 9) {
        if (hitsTriangle(o, d, makeTriangle(&scene[at]))) {
            return true;
        }
    }
    return false;
}

/// Makes the scene the only content of the process-wide package, in a box of its own.
inline RT::InputPackage& loadScene(Scene scene, bool inflate = true) {
    RT::InputPackage& package = RT::InputPackage::instance();
    package = RT::InputPackage();
    RT::InputPackageUitl::AddTriangles(scene.data(), static_cast<int>(scene.size()));
    if (inflate) {
        RT::InputPackageUitl::InflateBoundingBox();
    }
    return package;
}

} // namespace insolate::test
