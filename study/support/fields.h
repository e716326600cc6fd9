/// Lines of tables as their fields.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace insolate::study {

/// Splits at each of the separators, but not between double quotes; where blanks separate, several
/// are one. The views keep the quotes and lose the blanks around.
/// @param fields receives them; its memory is used again
void splitFields(std::string_view line, std::string_view separators,
                 std::vector<std::string_view>& fields);

/// Whether a field that begins with a quote also ends with the one that closes it.
bool hasClosedQuotes(std::string_view field);

/// The text of a field: without its quotes, with one for each two between them.
std::string unquoted(std::string_view field);

} // namespace insolate::study
