/// What a program sees while the command works: on standard error, a JSON object a line.
///
///     {"event":"note","text":"scene: 12 triangles, 10 x 10 x 3 m"}
///     {"event":"warning","text":"..."}
///     {"event":"begin","total":400,"things":"sensors"}
///     {"event":"progress","done":100,"total":400,"seconds":0.5}
///     {"event":"end","done":400,"total":400,"seconds":2.0}
///     {"event":"error","text":"...","exit_code":1}
///
/// Texts are those that people read; "progress" comes ten times a second at most.
#pragma once

#include "app/terminal/interrupt.h"
#include "study/support/progress.h"

#include <chrono>
#include <cstddef>
#include <cstdio>
#include <mutex>
#include <string>
#include <string_view>

namespace insolate::app {

class JsonProgress final : public study::Progress {
public:
    /// @param quiet leaves warnings alone
    /// @param interruption hears which output folder is in use; may be null
    JsonProgress(std::FILE* stream, bool quiet, Interruption* interruption = nullptr)
        : m_stream(stream), m_isQuiet(quiet), m_interruption(interruption) {}

    void note(const std::string& text) override;
    void warn(const std::string& text) override;
    void begin(std::size_t total, std::string_view things) override;
    /// From any thread.
    void advance(std::size_t count) override;
    void end() override;
    void holdsFolder(study::OutputFolder* folder) override;

private:
    void printText(const char* event, const std::string& text);
    void printCount(const char* event, std::chrono::steady_clock::time_point now);

    std::FILE* m_stream;
    bool m_isQuiet;
    Interruption* m_interruption;
    std::mutex m_mutex;
    std::size_t m_total = 0;
    std::size_t m_done = 0;
    bool m_isRunning = false;
    std::chrono::steady_clock::time_point m_start;
    std::chrono::steady_clock::time_point m_lastPrinted;
};

/// The line of an error that ends the command.
std::string errorAsJson(const std::string& text, int exitCode);

} // namespace insolate::app
