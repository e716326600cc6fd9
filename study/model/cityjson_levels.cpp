#include "study/model/cityjson_levels.h"

#include "study/support/numbers.h"

#include <string>

namespace insolate::study::cityjson {

std::optional<Lod> parseLod(std::string_view text) {
    const std::size_t point = text.find('.');
    const auto major = parseNumber<int>(text.substr(0, point));
    const auto minor = point == std::string_view::npos ? std::optional(-1)
                                                       : parseNumber<int>(text.substr(point + 1));
    if (!major || !minor || *major < 0 || *major > 9 || *minor > 9 || *minor < -1 ||
        (point != std::string_view::npos && *minor < 0)) {
        return std::nullopt;
    }
    return Lod{*major, *minor};
}

Lod lodOf(const Json& geometry) {
    const Json* lod = memberOf(geometry, "lod");
    if (lod == nullptr) {
        return noLod;
    }
    const std::string text = lod->is_string() ? lod->get<std::string>() : lod->dump();
    return parseLod(text).value_or(noLod);
}

bool isMeant(const Lod& lod, const Lod& wanted) {
    return lod == wanted || (wanted.second < 0 && lod.first == wanted.first);
}

bool isBetter(const Lod& a, const Lod& b, const std::optional<Lod>& wanted) {
    if (!wanted) {
        return a > b;
    }
    const auto rank = [&](const Lod& lod) {
        return isMeant(lod, *wanted) ? 2 : lod < *wanted ? 1 : 0;
    };
    return rank(a) != rank(b) ? rank(a) > rank(b) : rank(a) == 0 ? a < b : a > b;
}

} // namespace insolate::study::cityjson
