/// What a study warned of, kept for its summary.
#pragma once

#include "study/support/handed_progress.h"

#include <string>
#include <vector>

namespace insolate::study {

/// Hands everything on, and keeps the warnings.
class KeptWarnings final : public HandedProgress {
public:
    using HandedProgress::HandedProgress;

    void warn(const std::string& text) override {
        m_warnings.push_back(text);
        HandedProgress::warn(text);
    }

    [[nodiscard]] const std::vector<std::string>& warnings() const { return m_warnings; }

private:
    std::vector<std::string> m_warnings;
};

} // namespace insolate::study
