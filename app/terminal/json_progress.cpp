#include "app/terminal/json_progress.h"

#include <nlohmann/json.hpp>

namespace insolate::app {

namespace {

using Json = nlohmann::ordered_json;

/// Text that is not UTF-8 gets replacement characters.
std::string lineOf(const Json& object) {
    return object.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

/// What nobody can read is no reason to stop the work.
void print(std::FILE* stream, const Json& object) {
    std::fputs(lineOf(object).c_str(), stream);
    std::fflush(stream);
}

} // namespace

void JsonProgress::printText(const char* event, const std::string& text) {
    const std::lock_guard lock(m_mutex);
    print(m_stream, {{"event", event}, {"text", text}});
}

void JsonProgress::note(const std::string& text) {
    if (!m_isQuiet) {
        printText("note", text);
    }
}

void JsonProgress::warn(const std::string& text) {
    printText("warning", text);
}

void JsonProgress::begin(std::size_t total, std::string_view things) {
    const std::lock_guard lock(m_mutex);
    m_total = total;
    m_done = 0;
    m_isRunning = true;
    m_start = std::chrono::steady_clock::now();
    m_lastPrinted = m_start;
    if (!m_isQuiet) {
        print(m_stream, {{"event", "begin"}, {"total", total}, {"things", things}});
    }
}

void JsonProgress::printCount(const char* event, std::chrono::steady_clock::time_point now) {
    if (!m_isQuiet) {
        print(m_stream, {{"event", event},
                         {"done", m_done},
                         {"total", m_total},
                         {"seconds", std::chrono::duration<double>(now - m_start).count()}});
    }
}

void JsonProgress::advance(std::size_t count) {
    const std::lock_guard lock(m_mutex);
    m_done += count;
    const auto now = std::chrono::steady_clock::now();
    if (m_isRunning && now - m_lastPrinted >= std::chrono::milliseconds(100)) {
        m_lastPrinted = now;
        printCount("progress", now);
    }
}

void JsonProgress::end() {
    const std::lock_guard lock(m_mutex);
    if (m_isRunning) {
        m_isRunning = false;
        printCount("end", std::chrono::steady_clock::now());
    }
}

void JsonProgress::holdsFolder(study::OutputFolder* folder) {
    if (m_interruption != nullptr) {
        m_interruption->holdsFolder(folder);
    }
}

std::string errorAsJson(const std::string& text, int exitCode) {
    return lineOf({{"event", "error"}, {"text", text}, {"exit_code", exitCode}});
}

} // namespace insolate::app
