// Any bytes as an EPW file: the reader must fill the store exactly as the plain reader does.
#include "../tests/support/plain_epw_reader.h"
#include "memory_file.h"

#include <cstring>
#include <memory>

INSOLATE_FUZZ_TARGET(epw)(const std::uint8_t* bytes, std::size_t size) {
    using insolate::fuzz::require;
    const insolate::fuzz::MemoryFile file(bytes, size);
    static EWeatherData read;
    static EWeatherData expected;
    // The start state shows what is left untouched.
    std::memset(static_cast<void*>(&read.getDataForWrite()), 0x11, sizeof(EWeaFileFormatData));
    expected = read;

    auto result = ResultLoadWeatherData{};
    require(read.loadFile_EPW(file.wideName(), 1, result), "a file that opens gives true");
    require(result == ResultLoadWeatherData{}, "the result is written on failure only");
    const insolate::test::PlainEpwReader plain(
        std::string(reinterpret_cast<const char*>(bytes), size), expected);
    require(std::memcmp(&read, &expected, sizeof(read)) == 0, "both readers agree");
    return 0;
}
