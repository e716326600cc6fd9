/// Levels of detail of city objects, and which is taken.
#pragma once

#include "study/model/cityjson_document.h"

#include <optional>
#include <string_view>
#include <utility>

namespace insolate::study::cityjson {

/// 2.2 is {2, 2}, 2 is {2, -1}.
using Lod = std::pair<int, int>;
inline constexpr Lod noLod = {-1, -1};

/// Nothing when the text is no level.
std::optional<Lod> parseLod(std::string_view text);
/// The level of a geometry: text, or a number before version 1.1.
Lod lodOf(const Json& geometry);

/// Whether the level is the one that is meant: "2" means all from 2.0 to 2.3.
bool isMeant(const Lod& lod, const Lod& wanted);
/// Whether a is the better of two levels for the one that is wanted, if any is.
bool isBetter(const Lod& a, const Lod& b, const std::optional<Lod>& wanted);

} // namespace insolate::study::cityjson
