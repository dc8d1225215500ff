// Counts the system calls that running processes make, from outside, by ptrace. They must be
// children of the caller.
#pragma once

#include "Dunlin/Types.h"

#include <chrono>
#include <csignal>
#include <map>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <thread>
#include <vector>

namespace Support {

class CallCounter {
public:
    using Calls = std::map<U64, U32>; // by system call number

    ~CallCounter() {
        for (auto const& [pid, calls] : traced_) ::kill(pid, SIGKILL);
    }
    // False where tracing is not allowed.
    bool add(pid_t pid) {
        long const options = PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL;
        if (::ptrace(PTRACE_SEIZE, pid, nullptr, options) != 0) return false;
        ::ptrace(PTRACE_INTERRUPT, pid, nullptr, nullptr);
        traced_[pid];
        return true;
    }
    // Lets the processes run for so long, and then until `condition` holds; they run on after it,
    // but stop at their next call until this is called again.
    template <class Condition>
    void run(double seconds, Condition condition) {
        auto const end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
        while (std::chrono::steady_clock::now() < end || !condition()) {
            bool any = false;
            for (auto& [pid, calls] : traced_) any |= step(pid, calls);
            if (!any) std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
    }
    void run(double seconds) {
        run(seconds, [] { return true; });
    }
    void forget() {
        for (auto& [pid, calls] : traced_) calls.clear();
    }
    Calls const& of(pid_t pid) { return traced_[pid]; }
    U32 totalOf(pid_t pid) {
        U32 total = 0;
        for (auto const& [number, count] : traced_[pid]) total += count;
        return total;
    }

private:
    static bool step(pid_t pid, Calls& calls) {
        int status = 0;
        if (::waitpid(pid, &status, WNOHANG | __WALL) != pid || !WIFSTOPPED(status)) return false;
        int const signal = WSTOPSIG(status);
        long deliver = 0;
        if (signal == (SIGTRAP | 0x80)) {
            __ptrace_syscall_info info{};
            ::ptrace(static_cast<__ptrace_request>(PTRACE_GET_SYSCALL_INFO), pid, sizeof info,
                     &info);
            if (info.op == PTRACE_SYSCALL_INFO_ENTRY) ++calls[info.entry.nr];
        } else if (status >> 16 == 0) {
            deliver = signal;
        }
        ::ptrace(PTRACE_SYSCALL, pid, nullptr, deliver);
        return true;
    }

    std::map<pid_t, Calls> traced_;
};

} // namespace Support
