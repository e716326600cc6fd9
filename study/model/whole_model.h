/// Whether a model's file is whole, as far as its format says how much it holds.
///
/// Readers take a file that is cut off for a smaller model, or fill it up with copies of what they
/// read last. So counts and end marks of PLY, OFF, STL, DXF and IFC are compared with what is
/// there. Readers of the other formats refuse what is cut by themselves (3DS, GLB and all of XML),
/// but for those that say nowhere where they end (ASCII FBX). A last number that is cut in its
/// middle looks whole.
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
