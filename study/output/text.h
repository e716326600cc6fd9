/// Text from model and weather files made safe for the formats that the results are written in.
#pragma once

#include "study/results/result_column.h"

#include <string>
#include <string_view>

namespace insolate::study {

/// The text with U+FFFD for whatever is not UTF-8, and for control characters other than tab, line
/// feed and carriage return.
std::string validText(std::string_view text);

/// The text as one CSV field: quoted where needed, and never taken for a formula by a spreadsheet.
std::string csvField(std::string_view text);

/// A column's heading with its unit, as a CSV field.
std::string csvHeading(const ResultColumn& column);

/// The text for an XML attribute or element; characters that XML cannot hold become U+FFFD.
std::string xmlText(std::string_view text);

} // namespace insolate::study
