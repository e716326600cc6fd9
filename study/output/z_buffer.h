/// A plain software rasteriser for the pictures: triangles into samples, the nearest one wins. What
/// goes over all samples throws Stopped soon after its token asks to stop.
#pragma once

#include "study/model/scene.h"
#include "study/output/color_map.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <stop_token>
#include <vector>

namespace insolate::study {

/// A point of the picture: x to the right and y downwards in samples, depth towards the viewer in
/// samples as well.
struct ViewPoint {
    double x = 0.0;
    double y = 0.0;
    double depth = 0.0;
};

/// What a triangle belongs to.
enum class Surface {
    scene,      ///< what stands around
    cell,       ///< what is coloured
    cellInFront ///< the same, before every scene surface, of which only the edges stay
};

class ZBuffer {
public:
    /// @param oversampling samples per pixel and direction, 1 or 2
    ZBuffer(int width, int height, int oversampling);

    [[nodiscard]] int oversampling() const { return m_oversampling; }

    /// @param color 0xRRGGBB, by pack()
    /// @param normal unit vector in view axes (right, up, towards the viewer), for the edges
    void drawTriangle(const ViewPoint& a, const ViewPoint& b, const ViewPoint& c,
                      std::uint32_t color, const Vector3& normal, Surface surface);

    /// Samples that drawing this triangle looks at, those of its rows' beginnings included: about a
    /// nanosecond each.
    [[nodiscard]] double workOf(const ViewPoint& a, const ViewPoint& b, const ViewPoint& c) const;

    /// How many samples show a cell.
    [[nodiscard]] std::size_t cellSamples() const;

    void clear();

    /// Remembers the edges of the scene as drawn so far, for cells drawn before it.
    void keepSceneEdges(const std::stop_token& stop = {});

    /// Darkens the samples where one surface ends before another, or folds by more than 25 degrees,
    /// and the remembered edges of the scene that cells were drawn over.
    void darkenEdges(const std::stop_token& stop = {});

    /// Averages the samples over `background` into 0xAARRGGBB pixels, `stride` pixels per row.
    void resolve(const Color& background, std::span<std::uint32_t> pixels, std::size_t stride,
                 const std::stop_token& stop = {}) const;

    static std::uint32_t pack(const Color& color);

private:
    template <Surface surface>
    void fillTriangle(const ViewPoint& a, const ViewPoint& b, const ViewPoint& c,
                      std::uint32_t color, std::uint32_t normal);
    [[nodiscard]] std::size_t indexOf(int x, int y) const {
        return static_cast<std::size_t>(y) * static_cast<std::size_t>(m_columns) +
               static_cast<std::size_t>(x);
    }
    void compareNeighbours(std::size_t here, std::size_t there,
                           std::vector<std::uint8_t>& marks) const;
    [[nodiscard]] std::vector<std::uint8_t> edges(const std::stop_token& stop) const;

    int m_width;
    int m_height;
    int m_oversampling;
    int m_columns; ///< samples per row
    int m_rows;
    std::vector<float> m_depth;
    std::vector<std::uint32_t> m_color;  ///< 0xRRGGBB and, above it, the marks of the sample
    std::vector<std::uint32_t> m_normal; ///< three components of 10 bits
};

} // namespace insolate::study
