// SPDX-License-Identifier: MIT
#pragma once

#include <cerrno>
#include <concepts>
#include <csignal>
#include <sys/types.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>
#include <utility>

// The counts of preset coverage, which `_exit` would drop; null in all other builds.
extern "C" [[gnu::weak]] void __gcov_dump();

/// A forked process that runs `body` and nothing else of the program: a number is its exit status, a
/// truth value is told by 0 for true. Whoever is still there in the end is killed.
class child_process {
public:
    template <typename Body>
    explicit child_process(Body && body)
        : id_(::fork())
    {
        if (id_ == 0) {
            auto const told = body();
            int const status = std::same_as<decltype(told), bool const> ? !told : told;
            if (&__gcov_dump != nullptr) {
                __gcov_dump();
            }
            ::_exit(status);
        }
        if (id_ < 0) { // a number that `kill` would take for all processes
            throw std::system_error(errno, std::generic_category(), "fork");
        }
    }
    child_process(child_process && other) noexcept
        : id_(std::exchange(other.id_, -1))
    {
    }
    child_process & operator=(child_process && other) noexcept
    {
        std::swap(id_, other.id_);
        return *this;
    }
    ~child_process() { kill(); }

    pid_t id() const { return id_; }
    pid_t release() { return std::exchange(id_, -1); } // to a caller that waits for it
    void send(int signal) const { ::kill(id_, signal); }

    /// Waits for the end. \returns what waitpid(2) tells, -1 if there is nobody to wait for.
    int status()
    {
        int told = -1;
        return id_ > 0 && ::waitpid(std::exchange(id_, -1), &told, 0) > 0 ? told : -1;
    }
    /// Waits for the end. \returns the exit status, -1 when the process was killed.
    int result()
    {
        int const told = status();
        return told != -1 && WIFEXITED(told) ? WEXITSTATUS(told) : -1;
    }
    void kill()
    {
        if (id_ > 0) {
            send(SIGKILL);
            status();
        }
    }

private:
    pid_t id_;
};

/// \returns what `body` returns in a child, -1 when that is killed.
template <typename Body> int in_child(Body && body) { return child_process(body).result(); }

/// \returns whether `body` returns true in a child.
template <typename Body> bool holds_in_child(Body && body)
{
    return child_process(body).result() == 0;
}

/// Gives up the superuser's rights, which nothing stops. \returns whether they are gone.
inline bool become_ordinary_user()
{
    constexpr uid_t nobody = 65534;
    return ::geteuid() != 0
        || (::setresgid(nobody, nobody, nobody) == 0 && ::setresuid(nobody, nobody, nobody) == 0);
}

/// The same of an ordinary user's rights.
template <typename Body> bool holds_for_ordinary_user(Body && body)
{
    return holds_in_child([&] { return become_ordinary_user() && body(); });
}
