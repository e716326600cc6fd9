/// Bodies of a model and the side to which their faces look.
///
/// A surface is what hangs together by its edges: corners at exactly the same place are one corner.
/// It is closed when each of its edges is shared by two of its faces (or by more in pairs, as where
/// two bodies touch along an edge), so that it has an inside.
#pragma once

#include "study/export.h"

#include "study/model/mesh.h"

#include <cstddef>
#include <cstdint>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

namespace insolate::study {

enum class Winding {
    outward, ///< the faces of a closed body look away from it
    inward,  ///< they look into it
    mixed,   ///< some do this, some that
    open,    ///< the surface has a border, or is folded flat and encloses nothing
};

struct Body {
    Winding winding = Winding::open;
    std::uint32_t firstFace = 0; ///< the lowest number
    std::size_t faces = 0;
    double area = 0.0;   ///< [m2]
    double volume = 0.0; ///< [m3]; 0 when open
    /// The hollow of another body, whose faces look the other way: its own look into the hollow
    /// when the winding is outward.
    bool isHollow = false;
};

struct INSOLATE_STUDY_EXPORT Bodies {
    std::vector<Body> bodies;          ///< in the order of their first faces
    std::vector<std::uint32_t> bodyOf; ///< by face, into bodies
    /// By face: whether it must be turned for its body to be wound outward; none of open ones.
    std::vector<char> isTurned;

    [[nodiscard]] std::size_t count(Winding winding) const;
};

/// Faces without area belong to bodies like others.
/// @throws Stopped
INSOLATE_STUDY_EXPORT Bodies findBodies(const Mesh& mesh, const std::stop_token& stop = {});

/// What becomes of the winding: closed bodies turned outward, every face turned, or nothing.
enum class Orient { outward, flip, keep };

struct OrientReport {
    std::size_t closed = 0; ///< bodies, hollows among them
    std::size_t inward = 0; ///< of these, as they were
    std::size_t mixed = 0;
    std::size_t open = 0;         ///< surfaces that are not closed, whose winding is taken as it is
    std::size_t facesAgainst = 0; ///< faces of the inward and mixed bodies that looked inwards
    std::size_t facesTurned = 0;
};

/// Turns faces by reversing their corners behind the first.
/// @throws Stopped; the mesh is as it was then
INSOLATE_STUDY_EXPORT OrientReport orientFaces(Mesh& mesh, Orient orient,
                                               const std::stop_token& stop = {});

/// A sentence for the user about bodies that pointed inwards and what was done about them; empty
/// when there is nothing to say.
INSOLATE_STUDY_EXPORT std::string orientText(const OrientReport& report, Orient orient,
                                             const std::string& source);

/// "outward", "flip" or "keep".
INSOLATE_STUDY_EXPORT const char* orientName(Orient orient);

/// The orientation of that name.
/// @throws UsageError
INSOLATE_STUDY_EXPORT Orient parseOrient(std::string_view text);

} // namespace insolate::study
