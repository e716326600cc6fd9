/// What each sensor sees of the sky, one bit for each of the 1,296 cells, in memory and in a file.
///
/// The expensive part of a study is finding out which cells are visible; with these bits a mask is
/// made again in microseconds, for any weather, period or method.
///
/// The file, all numbers little-endian:
///
///     offset  size  content
///          0     8  "INSOMASK"
///          8     4  version of the format, 1
///         12     4  size of a sensor's record, 162
///         16     8  number of sensors
///         24     8  number of triangles of the scene
///         32    16  XXH3 128-bit hash (low half first) of triangles, positions and normals
///         48     8  north, degrees clockwise from the model's +Y (IEEE double)
///         56   162  for each sensor: bit k % 8 of byte k / 8 says whether cell k is visible;
///                   cell k is azimuth sector k % 72 (clockwise from north), altitude band k / 72
///        end     8  XXH3 64-bit hash of everything before
#pragma once

#include "study/files/output_folder.h"
#include "study/model/scene.h"

#include <insolate/insolate.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <span>
#include <vector>

namespace insolate::study {

/// What visibility depends on.
struct VisibilityKey {
    std::uint64_t sensors = 0;
    std::uint64_t triangles = 0;
    std::array<std::uint64_t, 2> hash = {};
    double north = 0.0; ///< degrees

    bool operator==(const VisibilityKey&) const = default;
};

VisibilityKey visibilityKey(const Scene& scene, const SensorField& field, double north);

class SkyVisibilityStore {
public:
    static constexpr std::size_t recordSize = skyGrid::cellCount / 8;

    SkyVisibilityStore() = default;
    explicit SkyVisibilityStore(std::size_t sensors) : m_bits(sensors * recordSize) {}

    [[nodiscard]] std::size_t size() const { return m_bits.size() / recordSize; }

    /// Keeps which cells of the mask have any exposure. Different sensors may be set at the same
    /// time.
    void set(std::size_t sensor, const EShadingMask& mask);
    [[nodiscard]] SkyCellSet visibleSky(std::size_t sensor) const;

    /// The bits of some sensors, as the file holds them.
    [[nodiscard]] std::span<std::uint8_t> records(std::size_t first, std::size_t count) {
        return {m_bits.data() + first * recordSize, count * recordSize};
    }

    void write(OutputFile& out, const VisibilityKey& key) const;
    /// Whether a file is a store that write() made, of whatever study.
    static bool isStore(const std::filesystem::path& file);

    /// @throws DataError when the file is not such a store, is damaged, or was made for another
    ///         scene, other sensors or another north
    static SkyVisibilityStore read(const std::filesystem::path& file, const VisibilityKey& key);

private:
    std::vector<std::uint8_t> m_bits;
};

} // namespace insolate::study
