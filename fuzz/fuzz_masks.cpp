// Any bytes as a mask file for a study of three sensors. A first byte that is odd has the header
// and the check value put right, which chance would never hit.
#include "memory_file.h"

#include "study/run/sky_visibility_store.h"
#include "study/support/errors.h"

#include <cstring>
#include <fstream>
#include <iterator>

#include <unistd.h>
#include <xxhash.h>

INSOLATE_FUZZ_TARGET(masks)(const std::uint8_t* bytes, std::size_t size) {
    using namespace insolate::study;
    using insolate::fuzz::require;
    constexpr std::size_t headerSize = 56;
    constexpr std::size_t wholeSize = headerSize + 3 * SkyVisibilityStore::recordSize + 8;
    if (size == 0) {
        return 0;
    }
    const VisibilityKey key = {3, 12, {0x0123456789ABCDEFULL, 42}, 30.0};
    std::string image(reinterpret_cast<const char*>(bytes) + 1, size - 1);
    if (bytes[0] % 2 == 1) {
        image.resize(wholeSize);
        std::memcpy(image.data(), "INSOMASK\x01\0\0\0\xA2\0\0\0", 16);
        std::memcpy(image.data() + 16, &key.sensors, 8);
        std::memcpy(image.data() + 24, &key.triangles, 8);
        std::memcpy(image.data() + 32, key.hash.data(), 16);
        std::memcpy(image.data() + 48, &key.north, 8);
        const std::uint64_t check = XXH3_64bits(image.data(), wholeSize - 8);
        std::memcpy(image.data() + wholeSize - 8, &check, 8);
    }
    const insolate::fuzz::MemoryFile file(image.data(), image.size());
    SkyVisibilityStore store;
    try {
        store = SkyVisibilityStore::read(file.name(), key);
    } catch (const DataError&) {
        require(bytes[0] % 2 == 0, "a right file is read");
        return 0;
    }
    require(store.size() == 3 && image.size() == wholeSize, "a file that is read is whole");
    for (std::size_t sensor = 0; sensor < 3; ++sensor) {
        const insolate::SkyCellSet seen = store.visibleSky(sensor);
        for (int k = 0; k < 1296; ++k) {
            const std::size_t at = headerSize + sensor * SkyVisibilityStore::recordSize +
                                   static_cast<std::size_t>(k / 8);
            require(seen.contains(k % 72, k / 72) == ((image[at] >> (k % 8) & 1) != 0),
                    "bits are cells");
        }
    }
    return 0;
}
