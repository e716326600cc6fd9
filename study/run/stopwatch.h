/// How long the stages of a study took.
#pragma once

#include <chrono>
#include <string>
#include <utility>
#include <vector>

namespace insolate::study {

class Stopwatch {
public:
    void lap(const char* stage) {
        const auto now = std::chrono::steady_clock::now();
        m_stages.emplace_back(stage, std::chrono::duration<double>(now - m_last).count());
        m_last = now;
    }
    /// Seconds since the beginning.
    [[nodiscard]] double whole() const {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - m_start).count();
    }
    /// Seconds of each stage, in order.
    [[nodiscard]] const std::vector<std::pair<std::string, double>>& stages() const {
        return m_stages;
    }

private:
    std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
    std::chrono::steady_clock::time_point m_last = m_start;
    std::vector<std::pair<std::string, double>> m_stages;
};

} // namespace insolate::study
