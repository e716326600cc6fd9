/// When the sun shines on a point of a scene: exact spans, not counted samples.
#pragma once

#include <insolate/export.h>
#include <insolate/sunlight/sun_path.h>

#include <cstddef>
#include <memory>
#include <span>
#include <vector>

namespace insolate {

/// A scene's triangles, ordered for the question when any of them hides the sun.
///
/// The sun's course is a chain of short parabolas (SunPath). On each, the condition that a triangle
/// stands before the sun is a handful of quadratic inequalities, whose ends are found in closed
/// form: a slit however narrow lets the sun through, and nothing is sampled. A hit is what it is to
/// OcclusionIndex: both sides block, and what is nearer than 0.01 model units does not count. Light
/// for less than a fifteenth of a second between two triangles does not count either, so that
/// triangles with a common edge close up. The sun is a point; where its disc is half hidden, the
/// span ends.
///
/// Queries are const and may run on any number of threads; the answer never depends on them.
class INSOLATE_EXPORT SunlightIndex {
public:
    /// Nothing hides the sun.
    explicit SunlightIndex(const SkyAxes& axes);

    /// @param coordinates nine doubles per triangle (x, y, z of p0, p1, p2) [model units]; copied.
    ///        Triangles with a coordinate beyond 1e9 or that is no number are tested one by one.
    SunlightIndex(std::span<const double> coordinates, const SkyAxes& axes);

    SunlightIndex(SunlightIndex&&) noexcept;
    SunlightIndex& operator=(SunlightIndex&&) noexcept;
    ~SunlightIndex();

    std::size_t triangleCount() const;

    /// Memory of a query, so that asking again and again takes none from the heap. One for each
    /// thread.
    class INSOLATE_EXPORT Workspace {
    public:
        Workspace();
        Workspace(Workspace&&) noexcept;
        Workspace& operator=(Workspace&&) noexcept;
        ~Workspace();

    private:
        friend class SunlightIndex;
        struct Content;
        std::unique_ptr<Content> m_content;
    };

    /// The spans of the path in which the sun shines on a point, in order.
    ///
    /// @param origin of the point [model units]
    /// @param facings the sun must stand before each of these planes through the point: the
    ///        surface's normal, for one. In model axes, of any length; one of no length asks
    ///        nothing
    /// @param path made with the axes of this index; the answer is empty for any other
    void sunlight(const Direction& origin, std::span<const Direction> facings, const SunPath& path,
                  Workspace& workspace, std::vector<TimeSpan>& lit) const;

    /// The same with memory of its own.
    std::vector<TimeSpan> sunlight(const Direction& origin, std::span<const Direction> facings,
                                   const SunPath& path) const;

private:
    struct Tree;
    struct Search;

    SkyAxes m_axes;
    std::unique_ptr<const Tree> m_tree;
};

} // namespace insolate
