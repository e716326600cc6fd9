#include "study/model/cityjson_coordinates.h"

#include "study/support/errors.h"
#include "study/support/numbers.h"
#include "study/support/readable.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <optional>
#include <string>

#include <fmt/format.h>

namespace insolate::study::cityjson {

namespace {

/// Systems of coordinates in degrees, or about the earth's centre, that city models come in.
constexpr std::array<int, 34> unfitSystems = {4152, 4156, 4167, 4171, 4230, 4258, 4267, 4269, 4275,
                                              4277, 4283, 4289, 4301, 4312, 4313, 4314, 4326, 4490,
                                              4612, 4619, 4674, 4737, 4759, 4936, 4937, 4955, 4957,
                                              4978, 4979, 6318, 6319, 6668, 6697, 7844};

/// The number at the end of "https://www.opengis.net/def/crs/EPSG/0/7415",
/// "urn:ogc:def:crs:EPSG::7415" or "EPSG:7415".
std::optional<int> epsgOf(const std::string& system) {
    const std::size_t end = system.find_last_of(":/");
    if (end == std::string::npos || system.find("EPSG") == std::string::npos) {
        return std::nullopt;
    }
    return parseNumber<int>(std::string_view(system).substr(end + 1));
}

} // namespace

CityTransform readHead(const Json& city, const CityDocuments& source) {
    CityTransform result;
    const std::string type = textOf(city, "type");
    if (type != "CityJSON") {
        source.fail(
            type == "CityJSONFeature"
                ? "the sequence begins with a feature; put the line with the CityJSON object "
                  "and its transform first"
                : "this is not CityJSON: its \"type\" is not \"CityJSON\"; give a CityJSON "
                  "file");
    }
    const std::string version = textOf(city, "version");
    if (!version.starts_with("1.0") && !version.starts_with("1.1") && !version.starts_with("2.")) {
        source.fail(fmt::format("CityJSON of version {} is not read; upgrade the file to 2.0",
                                quoteText(version)));
    }
    if (const Json* transform = memberOf(city, "transform")) {
        const Json* scale = memberOf(*transform, "scale");
        const Json* translate = memberOf(*transform, "translate");
        const auto s = scale != nullptr ? pointOf(*scale) : std::nullopt;
        const auto t = translate != nullptr ? pointOf(*translate) : std::nullopt;
        if (!s || !t) {
            source.fail("the transform needs three numbers each of scale and translate; export the "
                        "model again");
        }
        result.scale = *s;
        result.translate = *t;
    } else if (!version.starts_with("1.0")) {
        source.fail("the transform is missing, which this version demands; export the model again");
    }
    const Json* metadata = memberOf(city, "metadata");
    const std::string system =
        metadata != nullptr ? textOf(*metadata, "referenceSystem") : std::string();
    const auto epsg = epsgOf(system);
    if (system.find("CRS84") != std::string::npos ||
        (epsg &&
         std::find(unfitSystems.begin(), unfitSystems.end(), *epsg) != unfitSystems.end())) {
        source.fail(
            fmt::format("the coordinates are in {}, not in metres on a plane; reproject the "
                        "model, for instance to its UTM zone",
                        quoteText(system)));
    }
    return result;
}

void requireMetres(const Mesh& mesh, const std::filesystem::path& file) {
    Bounds bounds;
    bounds.add(mesh.vertices);
    const auto& [low, high] = bounds;
    const bool isOnGlobe = std::max(std::abs(low.x), std::abs(high.x)) <= 180.0 &&
                           std::max(std::abs(low.y), std::abs(high.y)) <= 180.0 &&
                           std::max(std::abs(low.x), std::abs(low.y)) > 1.0;
    const bool isNarrow = std::max(high.x - low.x, high.y - low.y) < 0.3 && high.z - low.z > 1.0;
    if (!mesh.vertices.empty() && isOnGlobe && isNarrow) {
        throw DataError(fmt::format(
            "{}: the model is {:.2g} by {:.2g} wide and {:.2g} high at ({:.4g}, {:.4g}): its "
            "coordinates look like degrees, not metres; reproject it, for instance to its UTM "
            "zone",
            place(file), high.x - low.x, high.y - low.y, high.z - low.z, low.x, low.y));
    }
}

} // namespace insolate::study::cityjson
