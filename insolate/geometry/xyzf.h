/// The one point, direction and normal type of the library.
#pragma once

/// Three single-precision components. In model coordinates x points east, y north and z up (at
/// north offset 0); positions are in model units. A zero vector is legal.
struct XYZf {
    float x;
    float y;
    float z;
};
