#include <insolate/platform/file_name.h>

#include <cstddef>
#include <cstdint>

namespace insolate {
namespace {

constexpr std::size_t maxFileNameLength = 260;

} // namespace

std::string narrowFileName(const std::wstring& name) {
    std::string bytes;
    bytes.reserve(name.size());
    std::size_t taken = 0;
    for (const wchar_t character : name) {
        if (taken++ == maxFileNameLength) {
            break;
        }
        const std::uint32_t code = std::char_traits<wchar_t>::to_int_type(character);
        const auto append = [&bytes](std::uint32_t byte) { bytes += static_cast<char>(byte); };
        if (code < 0x80) {
            append(code);
        } else if (code < 0x800) {
            append(0xC0 | (code >> 6));
            append(0x80 | (code & 0x3F));
        } else if (code >= 0xD800 && code < 0xE000) {
            append('?');
        } else if (code < 0x10000) {
            append(0xE0 | (code >> 12));
            append(0x80 | ((code >> 6) & 0x3F));
            append(0x80 | (code & 0x3F));
        } else if (code < 0x110000) {
            append(0xF0 | (code >> 18));
            append(0x80 | ((code >> 12) & 0x3F));
            append(0x80 | ((code >> 6) & 0x3F));
            append(0x80 | (code & 0x3F));
        } else {
            append('?');
        }
    }
    return bytes;
}

} // namespace insolate
