#include "work.h"

#include "text.h"

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <exception>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace nb = nanobind;

namespace insolate::python {

namespace {

/// Between two looks for Ctrl-C: short for a person, long for the work.
constexpr std::chrono::milliseconds betweenLooks{50};

/// Collects on the working threads what the calling one passes on.
class Collected final : public study::Progress {
public:
    void note(const std::string& text) override { add("note", text); }
    void warn(const std::string& text) override { add("warn", text); }
    void begin(std::size_t total, std::string_view things) override {
        const std::lock_guard lock(m_mutex);
        m_done = 0;
        m_total = total;
        m_things = things;
        m_changed = true;
    }
    void advance(std::size_t count) override {
        const std::lock_guard lock(m_mutex);
        m_done += count;
        m_changed = true;
    }

    void finish() {
        {
            const std::lock_guard lock(m_mutex);
            m_finished = true;
        }
        m_end.notify_one();
    }
    [[nodiscard]] bool waitForEnd() {
        std::unique_lock lock(m_mutex);
        return m_end.wait_for(lock, betweenLooks, [this] { return m_finished; });
    }

    /// Calls the report's functions, with the interpreter's lock.
    void passOn(nb::handle report) {
        std::vector<std::pair<const char*, std::string>> texts;
        std::optional<std::pair<std::size_t, std::size_t>> done;
        std::string things;
        {
            const std::lock_guard lock(m_mutex);
            texts.swap(m_texts);
            if (std::exchange(m_changed, false)) {
                done = {m_done, m_total};
                things = m_things;
            }
        }
        if (report.is_none()) {
            return;
        }
        for (const auto& [kind, text] : texts) {
            report.attr(kind)(text);
        }
        if (done) {
            report.attr("progress")(done->first, done->second, things);
        }
    }

private:
    void add(const char* kind, const std::string& text) {
        const std::lock_guard lock(m_mutex);
        m_texts.emplace_back(kind, text);
    }

    std::mutex m_mutex;
    std::condition_variable m_end;
    std::vector<std::pair<const char*, std::string>> m_texts;
    std::string m_things;
    std::size_t m_done = 0;
    std::size_t m_total = 0;
    bool m_changed = false;
    bool m_finished = false;
};

} // namespace

void doWork(nb::handle report, const Work& work) {
    Collected collected;
    std::stop_source stop;
    std::exception_ptr failure;
    std::thread thread([&] {
        try {
            work(collected, stop.get_token());
        } catch (...) {
            failure = std::current_exception();
        }
        collected.finish();
    });
    std::exception_ptr raised; // of whatever kind: the thread must be joined first
    for (bool ended = false; !ended;) {
        {
            const nb::gil_scoped_release unlocked;
            ended = collected.waitForEnd();
        }
        if (raised) {
            continue; // the work has been asked to stop
        }
        try {
            collected.passOn(report);
            if (PyErr_CheckSignals() != 0) {
                throw nb::python_error();
            }
        } catch (...) {
            raised = std::current_exception();
            stop.request_stop();
        }
    }
    {
        const nb::gil_scoped_release unlocked;
        thread.join();
    }
    if (raised) {
        std::rethrow_exception(raised);
    }
    if (failure) {
        std::rethrow_exception(failure);
    }
}

} // namespace insolate::python
