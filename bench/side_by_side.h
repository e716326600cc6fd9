/// Times contenders in turn, so that the machine's moods fall on all of them alike.
#pragma once

#include <algorithm>
#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace insolate::bench {

struct Contender {
    std::string name;
    std::function<void()> run; ///< one round's work
    std::vector<double> seconds{};

    double median() const {
        std::vector<double> sorted = seconds;
        std::sort(sorted.begin(), sorted.end());
        return sorted.empty() ? 0.0 : sorted[sorted.size() / 2];
    }
};

inline double secondsOf(const std::function<void()>& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/// One round to warm up, then `rounds` of all contenders in turn.
inline void race(std::vector<Contender>& contenders, int rounds) {
    for (int round = -1; round < rounds; ++round) {
        for (Contender& contender : contenders) {
            const double seconds = secondsOf(contender.run);
            if (round >= 0) {
                contender.seconds.push_back(seconds);
            }
        }
    }
}

} // namespace insolate::bench
