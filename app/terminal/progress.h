/// What a person sees while the command works, on standard error.
///
/// On a terminal one line is redrawn: bar, share, rate and time left. Into a file or pipe, plain
/// lines are written at every tenth of the work. --quiet leaves warnings and errors.
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

/// "  45 %  12,000 of 26,000 sensors  9,100/s  2 s left", without the bar.
std::string progressText(std::size_t done, std::size_t total, double seconds,
                         std::string_view things);

class TerminalProgress final : public study::Progress {
public:
    enum class Style { quiet, plain, bar };

    /// The style that suits standard error.
    static Style styleOf(std::FILE* stream, bool quiet);

    /// @param interruption hears which output folder is in use; may be null
    TerminalProgress(std::FILE* stream, Style style, Interruption* interruption = nullptr)
        : m_stream(stream), m_style(style), m_interruption(interruption) {}

    /// A line of its own about what happens; nothing when quiet.
    void note(const std::string& text) override;

    /// A line that a person should not overlook; written when quiet too.
    void warn(const std::string& text) override;

    /// Begins counting `total` things, named in the plural.
    void begin(std::size_t total, std::string_view things) override;

    /// May be called from any thread.
    void advance(std::size_t count) override;

    /// Ends the count and leaves the terminal's line clean; harmless when nothing was begun.
    void end() override;

    void holdsFolder(study::OutputFolder* folder) override;

private:
    /// Writes and flushes. What nobody can read is no reason to stop the work, so a closed or full
    /// stream is passed over.
    void print(const std::string& text);
    void printLine(const std::string& text);
    void eraseBar();
    void draw(double seconds);

    std::FILE* m_stream;
    Style m_style;
    Interruption* m_interruption;
    std::mutex m_mutex;
    std::string m_things;
    std::size_t m_total = 0;
    std::size_t m_done = 0;
    std::size_t m_nextPlain = 0;
    bool m_running = false;
    bool m_barShown = false;
    std::chrono::steady_clock::time_point m_start;
    std::chrono::steady_clock::time_point m_lastDrawn;
};

} // namespace insolate::app
