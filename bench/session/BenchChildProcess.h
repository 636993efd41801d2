#pragma once

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <optional>
#include <string>
#include <thread>
#include <vector>

extern char** environ;

// A child process whose standard output is read line by line, never longer
// than a deadline. It is stopped (SIGTERM, then SIGKILL) when dropped.
class ChildProcess {
public:
    explicit ChildProcess(const std::vector<std::string>& arguments)
    {
        int out[2];
        if (arguments.empty() || ::pipe2(out, O_CLOEXEC) != 0)
            return;
        std::vector<char*> argv;
        for (const std::string& argument : arguments)
            argv.push_back(const_cast<char*>(argument.c_str()));
        argv.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, out[1], 1);
        if (posix_spawn(&m_pid, argv[0], &actions, nullptr, argv.data(), environ) != 0)
            m_pid = 0;
        posix_spawn_file_actions_destroy(&actions);
        ::close(out[1]);
        m_out = out[0];
    }
    ~ChildProcess()
    {
        stop();
        if (m_out >= 0)
            ::close(m_out);
    }
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    bool started() const { return m_pid > 0; }
    pid_t pid() const { return m_pid; }

    // The next line without its newline; none at the end of the output or at the deadline.
    std::optional<std::string> readLine(std::chrono::steady_clock::time_point deadline)
    {
        while (m_out >= 0) {
            if (const auto end = m_buffered.find('\n'); end != std::string::npos) {
                std::string line = m_buffered.substr(0, end);
                m_buffered.erase(0, end + 1);
                return line;
            }
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now()).count();
            if (left <= 0)
                return std::nullopt;
            pollfd readable{m_out, POLLIN, 0};
            const int ready = ::poll(&readable, 1, static_cast<int>(left));
            if (ready < 0 && errno != EINTR)
                return std::nullopt;
            if (ready <= 0)
                continue;
            char chunk[4096];
            const ssize_t count = ::read(m_out, chunk, sizeof chunk);
            if (count <= 0)
                return std::nullopt;
            m_buffered.append(chunk, static_cast<std::size_t>(count));
        }
        return std::nullopt;
    }

    // How the process ended, waiting up to five seconds for it; still running, it is stopped.
    std::string outcome()
    {
        if (m_pid <= 0)
            return "did not start";
        int status = 0;
        if (!waitFor(std::chrono::seconds(5), status)) {
            stop();
            return "did not exit and was stopped";
        }
        m_pid = 0;
        if (WIFSIGNALED(status))
            return std::string("was killed by signal ") + std::to_string(WTERMSIG(status)) + " (" + ::strsignal(WTERMSIG(status)) + ")";
        return "exited with status " + std::to_string(WEXITSTATUS(status));
    }

    // SIGTERM, up to five seconds to exit, then SIGKILL.
    void stop()
    {
        if (m_pid <= 0)
            return;
        ::kill(m_pid, SIGTERM);
        int status = 0;
        if (!waitFor(std::chrono::seconds(5), status)) {
            ::kill(m_pid, SIGKILL);
            ::waitpid(m_pid, nullptr, 0);
        }
        m_pid = 0;
    }

private:
    bool waitFor(std::chrono::milliseconds timeout, int& status) const
    {
        const auto deadline = std::chrono::steady_clock::now() + timeout;
        while (::waitpid(m_pid, &status, WNOHANG) == 0) {
            if (std::chrono::steady_clock::now() >= deadline)
                return false;
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        return true;
    }

    pid_t m_pid = 0;
    int m_out = -1;
    std::string m_buffered;
};
