#include "app/terminal/progress.h"

#include "study/support/readable.h"

#include <algorithm>
#include <cmath>

#include <fmt/format.h>
#include <unistd.h>

namespace insolate::app {

using study::durationText;
using study::groupedDigits;

std::string progressText(std::size_t done, std::size_t total, double seconds,
                         std::string_view things) {
    const double share = total == 0 ? 1.0 : static_cast<double>(done) / static_cast<double>(total);
    std::string text = fmt::format("{:3.0f} %  {} of {} {}", std::floor(share * 100.0),
                                   groupedDigits(done), groupedDigits(total), things);
    if (done == 0 || seconds <= 0.0) {
        return text;
    }
    const double rate = static_cast<double>(done) / seconds;
    text += fmt::format("  {}/s", groupedDigits(static_cast<std::size_t>(std::llround(rate))));
    if (done < total) {
        text += fmt::format("  {} left", durationText(static_cast<double>(total - done) / rate));
    }
    return text;
}

TerminalProgress::Style TerminalProgress::styleOf(std::FILE* stream, bool quiet) {
    if (quiet) {
        return Style::quiet;
    }
    return isatty(fileno(stream)) == 1 ? Style::bar : Style::plain;
}

void TerminalProgress::print(const std::string& text) {
    std::fputs(text.c_str(), m_stream);
    std::fflush(m_stream);
}

void TerminalProgress::eraseBar() {
    if (m_barShown) {
        std::fputs("\r\033[K", m_stream);
        m_barShown = false;
    }
}

void TerminalProgress::note(const std::string& text) {
    if (m_style != Style::quiet) {
        printLine(text);
    }
}

void TerminalProgress::warn(const std::string& text) {
    printLine("warning: " + text);
}

void TerminalProgress::printLine(const std::string& text) {
    const std::lock_guard lock(m_mutex);
    eraseBar();
    print(fmt::format("insolate: {}\n", text));
}

void TerminalProgress::begin(std::size_t total, std::string_view things) {
    const std::lock_guard lock(m_mutex);
    m_total = total;
    m_done = 0;
    m_nextPlain = total / 10;
    m_things = things;
    m_running = true;
    m_start = std::chrono::steady_clock::now();
    m_lastDrawn = m_start;
}

void TerminalProgress::advance(std::size_t count) {
    const std::lock_guard lock(m_mutex);
    m_done += count;
    if (m_style == Style::quiet || !m_running) {
        return;
    }
    const auto now = std::chrono::steady_clock::now();
    const double seconds = std::chrono::duration<double>(now - m_start).count();
    if (m_style == Style::bar) {
        if (now - m_lastDrawn >= std::chrono::milliseconds(100)) {
            m_lastDrawn = now;
            draw(seconds);
        }
    } else if (m_done >= m_nextPlain && m_done < m_total) {
        // Work of less than a second needs no report on the way.
        if (seconds >= 1.0) {
            print(fmt::format("insolate: {}\n", progressText(m_done, m_total, seconds, m_things)));
        }
        m_nextPlain = m_done + std::max<std::size_t>(m_total / 10, 1);
    }
}

void TerminalProgress::draw(double seconds) {
    constexpr std::size_t width = 24;
    const std::size_t filled =
        m_total == 0 ? width : std::min(width, width * m_done / std::max<std::size_t>(m_total, 1));
    print(fmt::format("\r\033[K[{}{}] {}", std::string(filled, '#'),
                      std::string(width - filled, '.'),
                      progressText(m_done, m_total, seconds, m_things)));
    m_barShown = true;
}

void TerminalProgress::end() {
    const std::lock_guard lock(m_mutex);
    if (!m_running) {
        return;
    }
    m_running = false;
    eraseBar();
    if (m_style != Style::quiet && m_done == m_total) {
        const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - m_start).count();
        print(fmt::format("insolate: {}\n", progressText(m_done, m_total, seconds, m_things)));
    }
}

void TerminalProgress::holdsFolder(study::OutputFolder* folder) {
    if (m_interruption != nullptr) {
        m_interruption->holdsFolder(folder);
    }
}

} // namespace insolate::app
