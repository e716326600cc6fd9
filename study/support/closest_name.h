/// What a mistyped name was probably meant to be.
#pragma once

#include "study/export.h"

#include <span>
#include <string>
#include <string_view>

namespace insolate::study {

/// The name that differs least from the word, letters' case aside; empty when none is close: within
/// one typing error for each three letters, at least one and three at most, where two swapped
/// neighbours are one error (optimal string alignment; Damerau 1964, Communications of the ACM
/// 7(3), 171-176), and so is an end left out or added.
INSOLATE_STUDY_EXPORT std::string closestName(std::string_view word,
                                              std::span<const std::string> names);

/// "; did you mean 'NAME'?", or nothing when no name is close.
INSOLATE_STUDY_EXPORT std::string didYouMean(std::string_view word,
                                             std::span<const std::string> names);

} // namespace insolate::study
