// Any bytes as the file that a stopped run left behind, for a study of ten sensors in blocks of
// four. Of the first byte, bit 0 puts the header right, bit 1 the check values of blocks whose
// sizes fit, which chance would never hit, and bit 2 asks for masks too.
#include "memory_file.h"

#include "study/run/partial_results.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <vector>

#include <unistd.h>
#include <xxhash.h>

INSOLATE_FUZZ_TARGET(partial)(const std::uint8_t* bytes, std::size_t size) {
    using namespace insolate::study;
    using insolate::fuzz::require;
    constexpr std::size_t sensors = 10;
    constexpr std::size_t blockSize = 4;
    constexpr std::size_t headerSize = 40;
    constexpr PartialResults::Key key = {1, 2};
    static const insolate::fuzz::Folder folder;
    if (size == 0) {
        return 0;
    }
    std::string image(reinterpret_cast<const char*>(bytes) + 1, size - 1);
    if ((bytes[0] & 1U) != 0) {
        image.resize(std::max(image.size(), headerSize));
        const std::uint64_t count = sensors;
        std::memcpy(image.data(), "INSOPART\x01\0\0\0\x02\0\0\0", 16);
        std::memcpy(image.data() + 16, &count, 8);
        std::memcpy(image.data() + 24, key.data(), 16);
    }
    for (std::size_t at = headerSize; (bytes[0] & 2U) != 0 && at + 24 <= image.size();) {
        std::uint32_t payload = 0;
        std::memcpy(&payload, image.data() + at + 12, 4);
        if (payload > image.size() - at - 24) {
            break;
        }
        const std::uint64_t check = XXH3_64bits(image.data() + at, 16 + payload);
        std::memcpy(image.data() + at + 16 + payload, &check, 8);
        at += 24 + payload;
    }
    const std::filesystem::path file = folder.path() / PartialResults::fileName;
    const auto resumed = [&](std::vector<std::uint8_t>& finished) {
        std::vector<ResultColumn> columns(2);
        for (ResultColumn& column : columns) {
            column.values.assign(sensors, -1.0f);
        }
        SkyVisibilityStore masks(sensors);
        PartialResults results(folder.path(), key, true);
        static_cast<void>(results.leftover()); // of any study, so that its counts may be any
        const std::size_t taken =
            results.attach(columns, (bytes[0] & 4U) != 0 ? &masks : nullptr, blockSize);
        std::size_t counted = 0;
        for (std::size_t first = 0; first < sensors; first += blockSize) {
            const std::size_t count = std::min(blockSize, sensors - first);
            finished.push_back(results.isFinished(first) ? 1 : 0);
            counted += results.isFinished(first) ? count : 0;
            for (std::size_t i = first; i < first + count && !results.isFinished(first); ++i) {
                require(columns[0].values[i] == -1.0f && columns[1].values[i] == -1.0f,
                        "sensors that were not taken over keep their values");
            }
        }
        require(counted == taken, "sensors taken over are those of the finished blocks");
        results.detach();
        return taken;
    };
    std::ofstream(file, std::ios::binary) << image;
    std::vector<std::uint8_t> once;
    std::vector<std::uint8_t> twice;
    const std::size_t taken = resumed(once);
    require(taken == 0 || image.compare(0, 8, "INSOPART") == 0,
            "only a file of ours is taken over");
    require(taken == resumed(twice) && once == twice, "what was whole is whole the next time");
    return 0;
}
