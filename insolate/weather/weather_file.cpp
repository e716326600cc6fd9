#include <insolate/weather/weather_file.h>

#include <insolate/platform/file_name.h>

#include <filesystem>
#include <system_error>

namespace insolate {

FileHandle openWeatherFile(const std::wstring& fileName) {
    const std::string name = narrowFileName(fileName);
    // A folder opens on POSIX systems and only its first read fails.
    std::error_code ignored;
    if (std::filesystem::is_directory(std::filesystem::path(name.c_str()), ignored)) {
        return nullptr;
    }
    return FileHandle(std::fopen(name.c_str(), "rb"));
}

} // namespace insolate
