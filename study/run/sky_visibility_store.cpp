#include "study/run/sky_visibility_store.h"

#include "study/files/input_file.h"
#include "study/support/errors.h"
#include "study/support/readable.h"

#include <bit>
#include <cstring>
#include <memory>
#include <span>
#include <string_view>
#include <system_error>

#include <fmt/format.h>
#include <xxhash.h>

namespace insolate::study {

namespace {

static_assert(std::endian::native == std::endian::little, "the file is written as memory stands");
static_assert(skyGrid::cellCount % 8 == 0);

constexpr std::string_view maskMagic = "INSOMASK";
constexpr std::uint32_t maskVersion = 1;

struct Header {
    char magic[8];
    std::uint32_t version;
    std::uint32_t recordSize;
    std::uint64_t sensors;
    std::uint64_t triangles;
    std::uint64_t hash[2];
    double north;
};
static_assert(sizeof(Header) == 56);

struct HashStateDeleter {
    void operator()(XXH3_state_t* state) const { XXH3_freeState(state); }
};
using HashState = std::unique_ptr<XXH3_state_t, HashStateDeleter>;

HashState newHash() {
    HashState state(XXH3_createState());
    if (!state) {
        throw std::bad_alloc();
    }
    return state;
}

} // namespace

VisibilityKey visibilityKey(const Scene& scene, const SensorField& field, double north) {
    const HashState state = newHash();
    XXH3_128bits_reset(state.get());
    for (const auto* points : {&scene.vertices, &field.positions, &field.normals}) {
        XXH3_128bits_update(state.get(), points->data(), points->size() * sizeof(Vector3));
    }
    const XXH128_hash_t hash = XXH3_128bits_digest(state.get());
    return {field.size(), scene.triangleCount(), {hash.low64, hash.high64}, north};
}

void SkyVisibilityStore::set(std::size_t sensor, const EShadingMask& mask) {
    std::uint8_t* record = m_bits.data() + sensor * recordSize;
    std::memset(record, 0, recordSize);
    for (int cell = 0; cell < skyGrid::cellCount; ++cell) {
        if (mask.getExposure(cell % skyGrid::azimuthCount, cell / skyGrid::azimuthCount) > 0.0f) {
            record[cell / 8] = static_cast<std::uint8_t>(record[cell / 8] | (1U << (cell % 8)));
        }
    }
}

SkyCellSet SkyVisibilityStore::visibleSky(std::size_t sensor) const {
    const std::uint8_t* record = m_bits.data() + sensor * recordSize;
    SkyCellSet visible;
    for (int cell = 0; cell < skyGrid::cellCount; ++cell) {
        if ((record[cell / 8] >> (cell % 8) & 1U) != 0) {
            visible.insert(cell % skyGrid::azimuthCount, cell / skyGrid::azimuthCount);
        }
    }
    return visible;
}

bool SkyVisibilityStore::isStore(const std::filesystem::path& file) {
    return fileBeginning(file, maskMagic.size()) == maskMagic;
}

void SkyVisibilityStore::write(OutputFile& out, const VisibilityKey& key) const {
    Header header = {};
    maskMagic.copy(header.magic, maskMagic.size());
    header.version = maskVersion;
    header.recordSize = recordSize;
    header.sensors = key.sensors;
    header.triangles = key.triangles;
    header.hash[0] = key.hash[0];
    header.hash[1] = key.hash[1];
    header.north = key.north;
    const HashState state = newHash();
    XXH3_64bits_reset(state.get());
    XXH3_64bits_update(state.get(), &header, sizeof header);
    XXH3_64bits_update(state.get(), m_bits.data(), m_bits.size());
    const std::uint64_t check = XXH3_64bits_digest(state.get());
    out.write(&header, sizeof header);
    out.write(m_bits.data(), m_bits.size());
    out.write(&check, sizeof check);
}

SkyVisibilityStore SkyVisibilityStore::read(const std::filesystem::path& file,
                                            const VisibilityKey& key) {
    constexpr std::string_view again = "make it again with --save-masks";
    InputFile in(file, inputKinds::masks);
    Header header = {};
    if (!in.readValue(header) || std::string_view(header.magic, maskMagic.size()) != maskMagic) {
        throw DataError(fmt::format("{}: not a mask file; give the sensors.masks that a run with "
                                    "--save-masks wrote",
                                    place(file)));
    }
    if (header.version != maskVersion || header.recordSize != recordSize) {
        throw DataError(fmt::format("{}: the mask file has version {}, this program reads {}; {}",
                                    place(file), header.version, maskVersion, again));
    }
    if (header.sensors != key.sensors || header.triangles != key.triangles) {
        throw DataError(fmt::format(
            "{}: made for {} {} and {} {}, but the study has {} and {}; {}", place(file),
            header.sensors, counted(header.sensors, "sensor", "sensors"), header.triangles,
            counted(header.triangles, "triangle", "triangles"), key.sensors, key.triangles, again));
    }
    if (header.north != key.north) {
        throw DataError(fmt::format("{}: made with --north {}, but the study has {}; {}",
                                    place(file), header.north, key.north, again));
    }
    if (header.hash[0] != key.hash[0] || header.hash[1] != key.hash[1]) {
        throw DataError(
            fmt::format("{}: made for another scene or other sensors; {}", place(file), again));
    }
    // Only now is memory taken: the count is the study's own.
    SkyVisibilityStore store(static_cast<std::size_t>(key.sensors));
    std::uint64_t check = 0;
    const std::span<char> bits(reinterpret_cast<char*>(store.m_bits.data()), store.m_bits.size());
    if (in.size() != sizeof header + bits.size() + sizeof check || in.read(bits) != bits.size() ||
        !in.readValue(check)) {
        throw DataError(fmt::format("{}: the mask file is cut short; {}", place(file), again));
    }
    const HashState state = newHash();
    XXH3_64bits_reset(state.get());
    XXH3_64bits_update(state.get(), &header, sizeof header);
    XXH3_64bits_update(state.get(), store.m_bits.data(), store.m_bits.size());
    if (XXH3_64bits_digest(state.get()) != check) {
        throw DataError(fmt::format("{}: the mask file is damaged; {}", place(file), again));
    }
    return store;
}

} // namespace insolate::study
