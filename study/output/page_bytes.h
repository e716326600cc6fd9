/// Bytes of a page: small whole numbers, compression, text.
#pragma once

#include <cstdint>
#include <stop_token>
#include <string>
#include <string_view>

namespace insolate::study {

/// Whole numbers in as few bytes as they need, seven bits in each, the lowest first.
class ByteWriter {
public:
    void number(std::uint64_t value) {
        while (value >= 0x80U) {
            m_bytes.push_back(static_cast<char>((value & 0x7FU) | 0x80U));
            value >>= 7U;
        }
        m_bytes.push_back(static_cast<char>(value));
    }
    /// A number of either sign: 0, -1, 1, -2 ... become 0, 1, 2, 3 ...
    void difference(std::int64_t value) {
        const auto bits = static_cast<std::uint64_t>(value);
        number((bits << 1U) ^ (value < 0 ? ~std::uint64_t{0} : std::uint64_t{0}));
    }
    [[nodiscard]] std::string take() && { return std::move(m_bytes); }

private:
    std::string m_bytes;
};

/// The zlib format (RFC 1950), which browsers call "deflate".
/// @throws Stopped soon after the token asks to stop
std::string deflated(std::string_view bytes, const std::stop_token& stop = {});

/// RFC 4648, section 4, without line ends.
std::string base64(std::string_view bytes);

} // namespace insolate::study
