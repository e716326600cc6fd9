/// The file formats of pictures.
#pragma once

#include "study/export.h"

#include <filesystem>

namespace insolate::study {

/// SVG and PDF hold lettering and lines as such, and the model as an image of twice the detail.
enum class PictureFormat { png, svg, pdf };

/// By the ending of the file's name.
/// @throws UsageError for other endings
INSOLATE_STUDY_EXPORT PictureFormat pictureFormat(const std::filesystem::path& file);

/// Whether insolate wrote this picture: each one says so within.
INSOLATE_STUDY_EXPORT bool isOurPicture(const std::filesystem::path& file);

} // namespace insolate::study
