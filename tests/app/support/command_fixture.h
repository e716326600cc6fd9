/// The built command in a folder of its own.
#pragma once

#include "tests/app/support/study_fixture.h"

#include <functional>
#include <vector>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

namespace insolate::app::test {

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

    /// Starts the command in the folder; words are separated by single spaces.
    /// @param prepare runs in the new process
    pid_t start(const std::string& words, const std::function<void()>& prepare = {}) const {
        std::vector<std::string> arguments = {INSOLATE_COMMAND};
        for (std::size_t at = 0; at < words.size();) {
            const std::size_t end = std::min(words.find(' ', at), words.size());
            arguments.push_back(words.substr(at, end - at));
            at = end + 1;
        }
        std::vector<char*> pointers;
        pointers.reserve(arguments.size() + 1);
        for (std::string& argument : arguments) {
            pointers.push_back(argument.data());
        }
        pointers.push_back(nullptr);
        std::filesystem::remove(path("stderr")); // of the command before
        const pid_t child = fork();
        if (child == 0) {
            const int flags = O_CREAT | O_TRUNC | O_WRONLY;
            if (chdir(path("").c_str()) != 0 || dup2(open("stdout", flags, 0600), 1) < 0 ||
                dup2(open("stderr", flags, 0600), 2) < 0) {
                _exit(127);
            }
            if (prepare) {
                prepare();
            }
            execv(pointers[0], pointers.data());
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
