// A forked child that runs a function, and lines of conversation with it: the child waits at
// `Child::step()` until the parent lets it go on.
#pragma once

#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace Support {

class Child {
public:
    // Runs `work(child)` in a new process, which ends with the returned number as exit code.
    template <class Work>
    explicit Child(Work work) {
        int down[2], up[2];
        if (::pipe(down) != 0 || ::pipe(up) != 0) throw std::runtime_error("pipe");
        pid_ = ::fork();
        if (pid_ < 0) throw std::runtime_error("fork");
        if (pid_ == 0) {
            ::close(down[1]);
            ::close(up[0]);
            in_ = down[0];
            out_ = up[1];
            int code = 99;
            try {
                code = work(*this);
            } catch (...) {
            }
#if defined(CAIRN_COVERAGE)
            std::exit(code); // writes down what ran
#endif
            ::_exit(code);
        }
        ::close(down[0]);
        ::close(up[1]);
        in_ = up[0];
        out_ = down[1];
    }
    ~Child() {
        if (pid_ > 0) {
            ::kill(pid_, SIGKILL);
            ::waitpid(pid_, nullptr, 0);
        }
        ::close(in_);
        ::close(out_);
    }
    Child(Child const&) = delete;
    Child& operator=(Child const&) = delete;

    // Either side: sends a word to the other, receives one (-1 when the other is gone).
    void tell(std::int64_t word) {
        if (::write(out_, &word, sizeof word) != sizeof word) _exit(98);
    }
    std::int64_t hear() {
        std::int64_t word;
        return ::read(in_, &word, sizeof word) == sizeof word ? word : -1;
    }
    int hearFd() const {
        return in_;
    }
    // Child: says that it has come so far, and waits for the parent's word.
    std::int64_t step(std::int64_t word = 0) {
        tell(word);
        return hear();
    }

    ::pid_t pid() const {
        return pid_;
    }
    void signal(int number) const {
        ::kill(pid_, number);
    }
    // Waits for the end: the exit code, or 1000 + the signal that ended it.
    int join() {
        int status = 0;
        ::waitpid(std::exchange(pid_, -1), &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
    }

private:
    ::pid_t pid_ = -1;
    int in_ = -1, out_ = -1;
};

} // namespace Support
