/// A plain software rasteriser for the pictures: triangles into samples, the nearest one wins.
#pragma once

#include "study/model/scene.h"
#include "study/output/color_map.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace insolate::study {

/// A point of the picture: x to the right and y downwards in samples, depth towards the viewer in
/// samples as well.
struct ViewPoint {
    double x = 0.0;
    double y = 0.0;
    double depth = 0.0;
};

class ZBuffer {
public:
    /// @param oversampling samples per pixel and direction, 1 or 2
    ZBuffer(int width, int height, int oversampling);

    [[nodiscard]] int oversampling() const { return m_oversampling; }

    /// @param normal unit vector in view axes (right, up, towards the viewer), for the edges
    void drawTriangle(const ViewPoint& a, const ViewPoint& b, const ViewPoint& c,
                      const Color& color, const Vector3& normal);

    /// Darkens the samples where one surface ends before another, or folds by more than 25 degrees.
    void darkenEdges();

    /// Averages the samples over `background` into 0xAARRGGBB pixels, `stride` pixels per row.
    void resolve(const Color& background, std::span<std::uint32_t> pixels,
                 std::size_t stride) const;

private:
    [[nodiscard]] std::size_t indexOf(int x, int y) const {
        return static_cast<std::size_t>(y) * static_cast<std::size_t>(m_columns) +
               static_cast<std::size_t>(x);
    }
    void compareNeighbours(std::size_t here, std::size_t there,
                           std::vector<std::uint8_t>& marks) const;

    int m_width;
    int m_height;
    int m_oversampling;
    int m_columns; ///< samples per row
    int m_rows;
    std::vector<float> m_depth;
    std::vector<std::uint32_t> m_color;
    std::vector<std::uint32_t> m_normal; ///< three components of 10 bits
};

} // namespace insolate::study
