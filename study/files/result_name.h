/// Names of results, and whether a file that has such a name may be replaced.
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>

namespace insolate::study {

/// The name of a result. Each writer says how its files are recognised, so that a run replaces the
/// results of earlier ones and nothing else.
struct ResultName {
    std::string_view name; ///< without folders: "sensors.csv"
    /// Whether a file was written by insolate under such a name; not asked of an empty one.
    bool (*isOurs)(const std::filesystem::path& file);
};

/// The first or last bytes of a regular file, at most `size`; empty when there are none to read.
std::string fileBeginning(const std::filesystem::path& file, std::size_t size);
std::string fileEnd(const std::filesystem::path& file, std::size_t size);

} // namespace insolate::study
