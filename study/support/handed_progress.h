/// Reports that go on to somebody else.
#pragma once

#include "study/support/progress.h"

#include <cstddef>
#include <string>
#include <string_view>

namespace insolate::study {

/// Hands everything on; who wants something else overrides it.
class HandedProgress : public Progress {
public:
    explicit HandedProgress(Progress& to) : m_to(to) {}

    void note(const std::string& text) override { m_to.note(text); }
    void warn(const std::string& text) override { m_to.warn(text); }
    void begin(std::size_t total, std::string_view things) override { m_to.begin(total, things); }
    void advance(std::size_t count) override { m_to.advance(count); }
    void end() override { m_to.end(); }
    void holdsFolder(OutputFolder* folder) override { m_to.holdsFolder(folder); }

private:
    Progress& m_to;
};

} // namespace insolate::study
