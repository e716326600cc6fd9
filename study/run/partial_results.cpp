#include "study/run/partial_results.h"

#include "study/files/input_file.h"
#include "study/files/result_name.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <new>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <unistd.h>
#include <xxhash.h>

namespace insolate::study {

namespace {

constexpr std::string_view partialMagic = "INSOPART";
constexpr std::uint32_t partialVersion = 1;

struct BlockHeader {
    std::uint64_t first;
    std::uint32_t count;
    std::uint32_t size;
};
static_assert(sizeof(BlockHeader) == 16);

template <typename Number>
void append(std::string& bytes, const Number& value) {
    bytes.append(reinterpret_cast<const char*>(&value), sizeof value);
}

/// Of an empty file when it cannot be read.
std::uint64_t contentHash(const std::filesystem::path& file) {
    const std::unique_ptr<XXH3_state_t, decltype(&XXH3_freeState)> state(XXH3_createState(),
                                                                         &XXH3_freeState);
    if (!state) {
        throw std::bad_alloc();
    }
    XXH3_64bits_reset(state.get());
    if (const auto in = InputFile::ifReadable(file, inputKinds::ownResults)) {
        std::vector<char> bytes(1U << 20U);
        while (const std::size_t count = in->read(bytes)) {
            XXH3_64bits_update(state.get(), bytes.data(), count);
        }
    }
    return XXH3_64bits_digest(state.get());
}

} // namespace

PartialResults::Key PartialResults::keyOf(const std::string& options,
                                          const VisibilityKey& visibility,
                                          std::span<const std::filesystem::path> files) {
    std::string all = options;
    append(all, visibility.sensors);
    append(all, visibility.triangles);
    append(all, visibility.hash);
    append(all, visibility.north);
    for (const std::filesystem::path& file : files) {
        append(all, contentHash(file));
    }
    const XXH128_hash_t hash = XXH3_128bits(all.data(), all.size());
    return {hash.low64, hash.high64};
}

PartialResults::Leftover PartialResults::leftover() const {
    struct Header {
        std::array<char, partialMagic.size()> magic;
        std::uint32_t version;
        std::uint32_t columns;
        std::uint64_t sensors;
        Key key;
    };
    static_assert(sizeof(Header) == 40);
    if (isForeign()) {
        return {.isForeign = true};
    }
    const auto in = InputFile::ifReadable(m_file, inputKinds::ownResults);
    Header header = {};
    if (!in || !in->readValue(header) ||
        std::string_view(header.magic.data(), header.magic.size()) != partialMagic ||
        header.version != partialVersion) {
        return {};
    }
    Leftover left{.ofThisStudy = header.key == m_key};
    std::uintmax_t at = sizeof header;
    BlockHeader block = {};
    while (at < in->size()) {
        in->seek(at);
        at += sizeof block + sizeof(std::uint64_t);
        if (!in->readValue(block) || (at += block.size) > in->size()) {
            break;
        }
        left.sensors += block.count;
    }
    left.sensors = std::min(left.sensors, static_cast<std::size_t>(header.sensors));
    return left;
}

/// Whether something stands in the place of the file that is none of ours, as far as it goes: a run
/// may have died within the first bytes.
bool PartialResults::isForeign() const {
    std::error_code problem;
    if (!std::filesystem::exists(std::filesystem::symlink_status(m_file, problem))) {
        return false;
    }
    std::string expected(partialMagic);
    append(expected, partialVersion);
    return !std::filesystem::is_regular_file(m_file, problem) ||
           !expected.starts_with(fileBeginning(m_file, expected.size()));
}

std::size_t PartialResults::attach(std::span<ResultColumn> columns, SkyVisibilityStore* masks,
                                   std::size_t blockSize) {
    m_columns = columns;
    m_masks = masks;
    m_blockSize = blockSize;
    m_finished.assign((sensorCount() + blockSize - 1) / blockSize, 0);
    if (m_resume) {
        read();
    }
    return m_kept;
}

void PartialResults::detach() {
    const std::lock_guard lock(m_mutex);
    if (m_descriptor >= 0) {
        write();
    }
    m_waiting.clear();
    m_columns = {};
}

std::size_t PartialResults::blockCount(std::size_t first) const {
    return std::min(m_blockSize, sensorCount() - first);
}

std::size_t PartialResults::payloadSize(std::size_t count) const {
    return count * (m_columns.size() * sizeof(float) +
                    (m_masks != nullptr ? SkyVisibilityStore::recordSize : 0));
}

std::string PartialResults::headerBytes() const {
    std::string bytes(partialMagic);
    append(bytes, partialVersion);
    append(bytes, static_cast<std::uint32_t>(m_columns.size()));
    append(bytes, static_cast<std::uint64_t>(sensorCount()));
    append(bytes, m_key);
    return bytes;
}

void PartialResults::read() {
    const std::string expected = headerBytes();
    auto in = InputFile::ifReadable(m_file, inputKinds::ownResults);
    std::string bytes(expected.size(), '\0');
    if (!in || in->read(bytes) != bytes.size() || bytes != expected) {
        return;
    }
    auto good = static_cast<std::uintmax_t>(bytes.size());
    BlockHeader header = {};
    while (in->readValue(header)) {
        if (header.first >= sensorCount() || header.first % m_blockSize != 0 ||
            header.count != blockCount(header.first) || header.size != payloadSize(header.count) ||
            isFinished(header.first)) {
            break;
        }
        bytes.assign(reinterpret_cast<const char*>(&header), sizeof header);
        bytes.resize(sizeof header + header.size);
        std::uint64_t check = 0;
        const std::span<char> payload(bytes.data() + sizeof header, header.size);
        if (in->read(payload) != payload.size() || !in->readValue(check) ||
            check != XXH3_64bits(bytes.data(), bytes.size())) {
            break;
        }
        const char* at = bytes.data() + sizeof header;
        for (ResultColumn& column : m_columns) {
            std::memcpy(column.values.data() + header.first, at, header.count * sizeof(float));
            at += header.count * sizeof(float);
        }
        if (m_masks != nullptr) {
            const std::span<std::uint8_t> records = m_masks->records(header.first, header.count);
            std::memcpy(records.data(), at, records.size());
        }
        m_finished[header.first / m_blockSize] = 1;
        m_kept += header.count;
        good += bytes.size() + sizeof check;
    }
    in.reset();
    m_descriptor = open(m_file.c_str(), O_WRONLY | O_CLOEXEC | O_NOFOLLOW);
    if (m_descriptor < 0 || ftruncate(m_descriptor, static_cast<off_t>(good)) != 0 ||
        lseek(m_descriptor, 0, SEEK_END) < 0) {
        m_failed = true;
    }
}

void PartialResults::finish(std::size_t first) {
    const std::lock_guard lock(m_mutex);
    m_finished[first / m_blockSize] = 1;
    m_waiting.push_back(first);
    if (std::chrono::steady_clock::now() - m_written >= interval) {
        write();
    }
}

void PartialResults::write() {
    m_written = std::chrono::steady_clock::now();
    const std::vector<std::size_t> blocks = std::exchange(m_waiting, {});
    if (m_failed || blocks.empty()) {
        return;
    }
    std::string bytes;
    if (m_descriptor < 0) {
        if (isForeign()) {
            m_failed = true;
            return;
        }
        unlink(m_file.c_str()); // of another study
        m_descriptor = open(m_file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW,
                            mode_t{0666});
        bytes = headerBytes();
    }
    std::size_t sensors = 0;
    for (const std::size_t first : blocks) {
        const std::size_t count = blockCount(first);
        const std::size_t start = bytes.size();
        append(bytes, BlockHeader{first, static_cast<std::uint32_t>(count),
                                  static_cast<std::uint32_t>(payloadSize(count))});
        for (const ResultColumn& column : m_columns) {
            bytes.append(reinterpret_cast<const char*>(column.values.data() + first),
                         count * sizeof(float));
        }
        if (m_masks != nullptr) {
            const std::span<std::uint8_t> records = m_masks->records(first, count);
            bytes.append(reinterpret_cast<const char*>(records.data()), records.size());
        }
        append(bytes, XXH3_64bits(bytes.data() + start, bytes.size() - start));
        sensors += count;
    }
    const char* at = bytes.data();
    std::size_t left = bytes.size();
    while (left > 0) {
        const ssize_t written = ::write(m_descriptor, at, left);
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            m_failed = true;
            if (m_kept == 0) {
                unlink(m_file.c_str());
            }
            return;
        }
        at += written;
        left -= static_cast<std::size_t>(written);
    }
    m_kept += sensors;
}

void PartialResults::closeFile() {
    if (m_descriptor >= 0) {
        close(std::exchange(m_descriptor, -1));
    }
}

void PartialResults::remove() {
    const std::lock_guard lock(m_mutex);
    closeFile();
    m_kept = 0;
    if (!isForeign()) {
        unlink(m_file.c_str());
    }
}

} // namespace insolate::study
