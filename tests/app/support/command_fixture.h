/// The built command in a folder of its own.
#pragma once

#include "tests/study/support/study_fixture.h"

#include <functional>

#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

namespace insolate::app::test {

using namespace study::test;

class CommandFixture : public testing::Test {
protected:
    CommandFixture() {
        m_folder.write("good.epw", clearYear());
        m_folder.write("court.obj", courtModel());
    }

    struct Outcome {
        int exitCode = -1; ///< minus the signal that ended it
        std::string out;
        std::string err;
    };

    /// Starts the command in the folder, by a shell that it takes the place of.
    /// @param words its arguments; redirections among them win over stdout and stderr in the folder
    /// @param prepare runs in the new process
    pid_t start(const std::string& words, const std::function<void()>& prepare = {}) const {
        std::filesystem::remove(path("stderr")); // of the command before
        const std::string line = fmt::format("cd '{}' && exec '{}' >stdout 2>stderr {}",
                                             path("").string(), INSOLATE_COMMAND, words);
        const pid_t child = fork();
        if (child == 0) {
            if (prepare) {
                prepare();
            }
            execl("/bin/sh", "sh", "-c", line.c_str(), nullptr);
            _exit(127);
        }
        return child;
    }

    Outcome finish(pid_t child) const {
        int status = 0;
        waitpid(child, &status, 0);
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status),
                readFile(path("stdout")), readFile(path("stderr"))};
    }

    Outcome command(const std::string& words, const std::function<void()>& prepare = {}) const {
        return finish(start(words, prepare));
    }

    [[nodiscard]] std::filesystem::path path(const std::string& name) const {
        return m_folder.path() / name;
    }
    void write(const std::string& name, const std::string& content) const {
        m_folder.write(name, content);
    }

private:
    StudyFolder m_folder;
};

} // namespace insolate::app::test
