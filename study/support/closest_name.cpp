#include "study/support/closest_name.h"

#include "study/support/errors.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <utility>
#include <vector>

namespace insolate::study {

namespace {

std::size_t typingErrors(std::string_view a, std::string_view b) {
    std::vector<std::size_t> beforeLast(b.size() + 1);
    std::vector<std::size_t> last(b.size() + 1);
    std::vector<std::size_t> row(b.size() + 1);
    for (std::size_t j = 0; j <= b.size(); ++j) {
        row[j] = j;
    }
    const auto lower = [](char c) { return std::tolower(static_cast<unsigned char>(c)); };
    const auto same = [&](std::size_t i, std::size_t j) { return lower(a[i]) == lower(b[j]); };
    for (std::size_t i = 1; i <= a.size(); ++i) {
        std::swap(beforeLast, last);
        std::swap(last, row);
        row[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            row[j] = std::min(
                {last[j] + 1, row[j - 1] + 1, last[j - 1] + (same(i - 1, j - 1) ? 0U : 1U)});
            if (i > 1 && j > 1 && same(i - 1, j - 2) && same(i - 2, j - 1)) {
                row[j] = std::min(row[j], beforeLast[j - 2] + 1);
            }
        }
    }
    return row[b.size()];
}

} // namespace

std::string closestName(std::string_view word, std::span<const std::string> names) {
    std::size_t allowed = std::clamp<std::size_t>(word.size() / 3, 1, 3);
    const auto begins = [](std::string_view longer, std::string_view shorter) {
        return shorter.size() > 2 && shorter.size() <= longer.size() &&
               typingErrors(longer.substr(0, shorter.size()), shorter) == 0;
    };
    const bool isShort = allowed == 1; // then another first letter makes another word
    std::string closest;
    for (const std::string& name : names) {
        const std::size_t longer = std::max(name.size(), word.size());
        const bool isBeginning = begins(name, word) || begins(word, name);
        const bool isOther = longer - std::min(name.size(), word.size()) > allowed ||
                             (isShort && (name.empty() || word.empty() ||
                                          typingErrors(word.substr(0, 1), name.substr(0, 1)) != 0));
        if (!isBeginning && isOther) {
            continue;
        }
        const std::size_t errors = isBeginning ? 1 : typingErrors(word, name);
        if (errors < allowed || (errors == allowed && closest.empty() && errors < longer)) {
            closest = name;
            allowed = errors;
        }
    }
    return closest;
}

std::string didYouMean(std::string_view word, std::span<const std::string> names) {
    const std::string closest = closestName(word, names);
    return closest.empty() ? closest : "; did you mean " + quoteText(closest) + "?";
}

} // namespace insolate::study
