/// What a study warned of, kept for its summary.
#pragma once

#include "study/support/progress.h"

#include <string>
#include <vector>

namespace insolate::study {

/// Hands everything on, and keeps the warnings.
class KeptWarnings final : public Progress {
public:
    explicit KeptWarnings(Progress& to) : m_to(to) {}

    void note(const std::string& text) override { m_to.note(text); }
    void warn(const std::string& text) override {
        m_warnings.push_back(text);
        m_to.warn(text);
    }
    void begin(std::size_t total, std::string_view things) override { m_to.begin(total, things); }
    void advance(std::size_t count) override { m_to.advance(count); }
    void end() override { m_to.end(); }
    void holdsFolder(OutputFolder* folder) override { m_to.holdsFolder(folder); }

    [[nodiscard]] const std::vector<std::string>& warnings() const { return m_warnings; }

private:
    Progress& m_to;
    std::vector<std::string> m_warnings;
};

} // namespace insolate::study
