/// Collects the diagnostics that the code under test sends.
#pragma once

#include <insolate/platform/debug_output.h>

#include <string>
#include <vector>

namespace insolate::test {

/// Installs itself as the sink for its lifetime. One at a time.
class DebugRecorder {
public:
    DebugRecorder() : m_previous(setDebugSink(record)) { texts().clear(); }
    ~DebugRecorder() { setDebugSink(m_previous); }
    DebugRecorder(const DebugRecorder&) = delete;
    DebugRecorder& operator=(const DebugRecorder&) = delete;

    static std::vector<std::wstring>& texts() {
        static std::vector<std::wstring> received;
        return received;
    }

private:
    static void record(const wchar_t* text) { texts().emplace_back(text); }

    DebugSink m_previous;
};

} // namespace insolate::test
