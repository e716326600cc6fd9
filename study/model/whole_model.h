/// Whether a model's file is whole, as far as its format says how much it holds.
///
/// Readers take a file that is cut off for a smaller model, or fill it up with copies of what they
/// read last. What says where it ends is asked here first: counts, lengths and end marks. A format
/// with nothing of the kind (OBJ, ASCII FBX) and a last number that is cut in its middle look
/// whole.
#pragma once

#include "study/model/model_formats.h"

#include <filesystem>
#include <string_view>

namespace insolate::study {

/// Takes time in proportion to the bytes. What is not of the format is left to its reader.
/// @throws DataError when the file ends before what it promises
void checkIsWhole(std::string_view bytes, const std::filesystem::path& file,
                  const ModelFormat& format);

} // namespace insolate::study
