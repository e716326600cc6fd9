/// Text as UTF-8.
#pragma once

#include <cstddef>
#include <string_view>

namespace insolate::study {

/// The length of the UTF-8 sequence at the start of `text`, which is not empty, that encodes one
/// Unicode scalar value, or 0 where there is none (RFC 3629, section 4).
std::size_t utf8Length(std::string_view text);

/// Whether the whole text consists of such sequences.
bool isUtf8(std::string_view text);

} // namespace insolate::study
