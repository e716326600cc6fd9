/// Finished sensors of a study that is under way, kept in its output folder so that a stopped run
/// can go on where it was.
///
/// The file ".insolate-partial", all numbers little-endian:
///
///     offset  size  content
///          0     8  "INSOPART"
///          8     4  version of the format, 1
///         12     4  number of result columns
///         16     8  number of sensors
///         24    16  XXH3 128-bit hash (low half first) of all inputs and options
///         40        blocks, in the order in which they were finished
///
/// and each block:
///
///          0     8  first sensor
///          8     4  number of sensors
///         12     4  size of what follows, without the check value
///         16        for each column its values (IEEE single); then, when masks are kept, 162 bytes
///                   of visible cells for each sensor
///        end     8  XXH3 64-bit hash of the block before
///
/// Blocks are only ever appended. Whatever stands after the last block that agrees with its check
/// value was being written when the run died, and is cut off.
#pragma once

#include "study/results/result_column.h"
#include "study/run/sky_visibility_store.h"

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <mutex>
#include <span>
#include <string>
#include <vector>

namespace insolate::study {

class PartialResults {
public:
    static constexpr const char* fileName = ".insolate-partial";
    /// Short runs leave nothing behind: they are sooner done again.
    static constexpr std::chrono::milliseconds interval{500};

    /// What the results depend on, hashed.
    using Key = std::array<std::uint64_t, 2>;
    /// @param files whose content counts; one that cannot be read counts as empty
    static Key keyOf(const std::string& options, const VisibilityKey& visibility,
                     std::span<const std::filesystem::path> files);

    /// @param folder held by this run alone
    /// @param resume take over what a stopped run of the same study has left
    PartialResults(const std::filesystem::path& folder, const Key& key, bool resume)
        : m_file(folder / fileName), m_key(key), m_resume(resume) {}
    ~PartialResults() { closeFile(); }
    PartialResults(const PartialResults&) = delete;
    PartialResults& operator=(const PartialResults&) = delete;

    /// What a stopped run has left in the folder.
    struct Leftover {
        std::size_t sensors = 0; ///< finished ones; 0 when there is no file
        bool ofThisStudy = false;
        bool isForeign = false; ///< something else, or of a newer version: it stays as it is
    };
    [[nodiscard]] Leftover leftover() const;

    /// Names what is to be kept, until detach().
    /// @param columns sized for all sensors
    /// @param masks what the sensors see, or null
    /// @param blockSize sensors of every block but the last
    /// @return the number of sensors that were taken over
    std::size_t attach(std::span<ResultColumn> columns, SkyVisibilityStore* masks,
                       std::size_t blockSize);
    /// Writes down what is finished, if the run has lasted long enough to be worth it.
    void detach();

    [[nodiscard]] bool isFinished(std::size_t first) const {
        return m_finished[first / m_blockSize] != 0;
    }
    /// Notes that the block's results stand in the columns. From any thread.
    void finish(std::size_t first);

    /// Sensors that the file holds; 0 when there is no file.
    [[nodiscard]] std::size_t sensorsKept() const { return m_kept; }
    /// The study is complete. What is foreign stays.
    void remove();

private:
    [[nodiscard]] std::size_t sensorCount() const { return m_columns.front().values.size(); }
    [[nodiscard]] std::size_t blockCount(std::size_t first) const;
    [[nodiscard]] std::size_t payloadSize(std::size_t count) const;
    [[nodiscard]] std::string headerBytes() const;
    [[nodiscard]] bool isForeign() const;
    void read();
    void write();
    void closeFile();

    std::filesystem::path m_file;
    Key m_key;
    bool m_resume;
    std::span<ResultColumn> m_columns;
    SkyVisibilityStore* m_masks = nullptr;
    std::size_t m_blockSize = 1;
    std::vector<std::uint8_t> m_finished; ///< by block; each written by one thread
    std::mutex m_mutex;
    std::vector<std::size_t> m_waiting; ///< first sensors of blocks that are not in the file
    std::size_t m_kept = 0;             ///< sensors in the file
    std::chrono::steady_clock::time_point m_written = std::chrono::steady_clock::now();
    int m_descriptor = -1;
    bool m_failed = false; ///< the file cannot be written; the run goes on without
};

} // namespace insolate::study
