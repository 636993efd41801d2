#pragma once

// A program the tests start, with a pipe to its standard input and the lines
// of its standard output collected by a thread of their own. Destroying it
// closes the input, gives the program a bounded time to end, then kills it.

#include <fcntl.h>
#include <signal.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include "vrq/platform/dispatch/MainLoop.h"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <mutex>
#include <optional>
#include <regex>
#include <string>
#include <thread>
#include <vector>

namespace vrqtest {

class ChildProcess {
public:
    explicit ChildProcess(std::vector<std::string> argv)
    {
        ::signal(SIGPIPE, SIG_IGN); // a program that ended must fail a write, not end the tests
        int input[2] = {-1, -1};
        int output[2] = {-1, -1};
        if (argv.empty() || ::pipe2(input, O_CLOEXEC) != 0 || ::pipe2(output, O_CLOEXEC) != 0)
            return;
        std::vector<char*> args;
        for (auto& arg : argv)
            args.push_back(arg.data());
        args.push_back(nullptr);
        m_pid = ::fork();
        if (m_pid == 0) {
            ::dup2(input[0], STDIN_FILENO);
            ::dup2(output[1], STDOUT_FILENO);
            ::execv(args[0], args.data());
            ::_exit(127);
        }
        ::close(input[0]);
        ::close(output[1]);
        m_input = input[1];
        const int readEnd = output[0];
        m_reader = std::thread([this, readEnd] { readLines(readEnd); });
    }

    ~ChildProcess()
    {
        closeInput();
        if (!waitForExit(std::chrono::seconds(10)))
            kill(SIGKILL);
        waitForExit(std::chrono::seconds(10));
        if (m_reader.joinable())
            m_reader.join();
    }

    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    bool started() const { return m_pid > 0; }

    bool writeLine(const std::string& line)
    {
        const std::string text = line + "\n";
        std::size_t written = 0;
        while (m_input >= 0 && written < text.size()) {
            const ssize_t n = ::write(m_input, text.data() + written, text.size() - written);
            if (n <= 0)
                return false;
            written += static_cast<std::size_t>(n);
        }
        return written == text.size();
    }

    void closeInput()
    {
        if (m_input >= 0)
            ::close(m_input);
        m_input = -1;
    }

    void kill(int signal)
    {
        if (m_pid > 0 && !m_status)
            ::kill(m_pid, signal);
    }

    // The exit status (as waitpid gives it) once the program ended within the timeout.
    std::optional<int> waitForExit(std::chrono::milliseconds timeout)
    {
        const auto deadline = std::chrono::steady_clock::now() + timeout;
        while (m_pid > 0 && !m_status) {
            int status = 0;
            if (::waitpid(m_pid, &status, WNOHANG) == m_pid)
                m_status = status;
            else if (std::chrono::steady_clock::now() >= deadline)
                break;
            else
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return m_status;
    }

    std::vector<std::string> lines() const
    {
        std::lock_guard lock(m_mutex);
        return m_lines;
    }

    bool outputEnded() const
    {
        std::lock_guard lock(m_mutex);
        return m_ended;
    }

    // The first capture of a printed line that matches the pattern, waiting on
    // the main loop until one is printed, the output ends or the time is up;
    // "" when none was.
    std::string waitForMatch(const std::regex& pattern, std::chrono::milliseconds timeout)
    {
        std::string found;
        vrq::runMainLoopUntil(
            [&] {
                std::smatch match;
                for (const auto& line : lines())
                    if (std::regex_search(line, match, pattern))
                        found = match[1];
                return !found.empty() || outputEnded();
            },
            timeout);
        return found;
    }

private:
    void readLines(int fd)
    {
        std::string pending;
        char buffer[4096];
        for (;;) {
            const ssize_t n = ::read(fd, buffer, sizeof buffer);
            if (n <= 0)
                break;
            pending.append(buffer, static_cast<std::size_t>(n));
            for (std::size_t end; (end = pending.find('\n')) != std::string::npos; pending.erase(0, end + 1)) {
                std::lock_guard lock(m_mutex);
                m_lines.push_back(pending.substr(0, end));
            }
        }
        ::close(fd);
        std::lock_guard lock(m_mutex);
        m_ended = true;
    }

    pid_t m_pid = -1;
    int m_input = -1;
    std::optional<int> m_status;
    std::thread m_reader;
    mutable std::mutex m_mutex;
    std::vector<std::string> m_lines; // guarded by m_mutex
    bool m_ended = false;             // guarded by m_mutex
};

} // namespace vrqtest
