/// Files that the user names: opened within bounds and read, or refused.
///
/// Whatever stands under a name (an endless device, a pipe that nobody writes into, a film by
/// mistake) costs no more memory than its kind of file may have, and no wait outlasts a stop.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <stop_token>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace insolate::study {

/// A kind of file, with what is too much for it.
struct InputKind {
    std::string_view name;              ///< in messages, "weather file"
    std::uintmax_t mostBytes = 0;       ///< of a regular file
    std::size_t mostLineBytes = 0xFFFF; ///< in one line
    /// Whether a pipe or a device will do, for what is read once and from front to back.
    bool mayStream = false;
    bool isText = true; ///< refused when it begins with the mark of UTF-16 or UTF-32
};

/// What a pipe or a device may hand over, whatever it stands for.
inline constexpr std::uintmax_t mostStreamBytes = 64U << 20U;

namespace inputKinds {
/// Larger studies than 4 MB would be lists of sensors, which belong in tables.
inline constexpr InputKind study = {
    .name = "study file", .mostBytes = 4U << 20U, .mayStream = true};
inline constexpr InputKind materials = {
    .name = "file of materials", .mostBytes = 4U << 20U, .mayStream = true};
/// A year of minutes in the EPW format has 105 MB.
inline constexpr InputKind weather = {.name = "weather file", .mostBytes = 256U << 20U};
inline constexpr InputKind sensorTable = {
    .name = "sensor table", .mostBytes = 16ULL << 30U, .mayStream = true};
/// Is read again for each picture and page; a pipe would keep them waiting for a writer.
inline constexpr InputKind resultTable = {.name = "table of results", .mostBytes = 16ULL << 30U};
/// A polygon's corners stand in one line of an OBJ.
inline constexpr InputKind model = {
    .name = "model", .mostBytes = 64ULL << 30U, .mostLineBytes = 64U << 20U};
/// 162 bytes for each of the 1,000 million sensors that a study may have, and finished results.
inline constexpr InputKind masks = {
    .name = "mask file", .mostBytes = 256ULL << 30U, .isText = false};
inline constexpr InputKind ownResults = {
    .name = "file of an earlier run", .mostBytes = 1ULL << 40U, .isText = false};
} // namespace inputKinds

/// A file that is being read.
class InputFile {
public:
    /// @throws DataError when there is no such file, it may not be read, is not of a sort that will
    ///         do or is too large; Stopped
    explicit InputFile(std::filesystem::path file, const InputKind& kind,
                       std::stop_token stop = {});
    /// The file, or nothing when the constructor would refuse it.
    static std::unique_ptr<InputFile> ifReadable(const std::filesystem::path& file,
                                                 const InputKind& kind);
    ~InputFile();
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;

    /// Fills the span; the count is smaller only at the end of the file.
    /// @throws DataError when the disk fails, more comes than the kind may have, or a pipe is
    ///         silent for a minute; Stopped
    std::size_t read(std::span<char> bytes);

    /// Whether the file still had all bytes of the value.
    template <typename Value>
    bool readValue(Value& value) {
        static_assert(std::is_trivially_copyable_v<Value>);
        return read({reinterpret_cast<char*>(&value), sizeof value}) == sizeof value;
    }

    /// The next line without its '\n'; false at the end of the file.
    /// @throws as read does, and DataError when the line is longer than the kind may have
    bool readLine(std::string& line);

    /// What is left of the file.
    std::string readAll();

    /// Goes to a place of a regular file, counted from its beginning.
    void seek(std::uintmax_t place);

    [[nodiscard]] std::uintmax_t size() const { return m_size; } ///< when opened; 0 for a stream
    [[nodiscard]] int descriptor() const { return m_descriptor; }

private:
    bool fill();
    std::size_t readSome(std::span<char> bytes);
    void waitForBytes();
    void refuseWideText() const;

    std::filesystem::path m_file;
    InputKind m_kind;
    std::stop_token m_stop;
    int m_descriptor = -1;
    bool m_isStream = false;
    std::uintmax_t m_size = 0;
    std::uintmax_t m_handedOver = 0; ///< by the system, since the last seek
    std::size_t m_line = 0;
    std::vector<char> m_buffer;
    std::size_t m_at = 0;
    std::size_t m_end = 0;
};

} // namespace insolate::study
