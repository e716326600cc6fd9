#include "study/output/page_bytes.h"

#include "study/support/errors.h"

#include <algorithm>
#include <array>
#include <new>

#include <zlib.h>

namespace insolate::study {

std::string deflated(std::string_view bytes, const std::stop_token& stop) {
    z_stream stream = {};
    // Level 9 takes twice as long as 6 and saves a hundredth; what costs is the noise of the rays.
    if (deflateInit(&stream, 6) != Z_OK) {
        throw std::bad_alloc();
    }
    std::string result;
    constexpr std::size_t piece = std::size_t{1} << 18U;
    std::string buffer(piece, '\0');
    int state = Z_OK;
    while (state != Z_STREAM_END) {
        if (stop.stop_requested()) {
            deflateEnd(&stream);
            throwIfStopped(stop);
        }
        const std::size_t count = std::min(piece, bytes.size());
        // zlib does not write into its input, but its interface is older than const.
        stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
        stream.avail_in = static_cast<uInt>(count);
        bytes.remove_prefix(count);
        do {
            stream.next_out = reinterpret_cast<Bytef*>(buffer.data());
            stream.avail_out = static_cast<uInt>(piece);
            state = deflate(&stream, bytes.empty() ? Z_FINISH : Z_NO_FLUSH);
            result.append(buffer, 0, piece - stream.avail_out);
        } while (stream.avail_out == 0);
    }
    deflateEnd(&stream);
    return result;
}

std::string base64(std::string_view bytes) {
    constexpr std::string_view digits =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        std::uint32_t three = 0;
        const std::size_t count = std::min<std::size_t>(3, bytes.size() - i);
        for (std::size_t k = 0; k < 3; ++k) {
            three = three << 8U | (k < count ? static_cast<unsigned char>(bytes[i + k]) : 0U);
        }
        for (std::size_t k = 0; k < 4; ++k) {
            text.push_back(k <= count ? digits[three >> (18U - 6U * k) & 63U] : '=');
        }
    }
    return text;
}

} // namespace insolate::study
