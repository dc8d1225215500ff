// What the processes of one test share: a block of plain words, and a first complaint.
#pragma once

#include "Dunlin/Types.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <fmt/format.h>
#include <string>
#include <sys/mman.h>

namespace Support {

// A block that the test and its children share; zero at first.
template <class T>
class SharedBlock {
public:
    SharedBlock()
        : block_(static_cast<T*>(mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE,
                                      MAP_SHARED | MAP_ANONYMOUS, -1, 0))) {
        if (static_cast<void*>(block_) == MAP_FAILED) std::abort();
    }
    SharedBlock(SharedBlock const&) = delete;
    SharedBlock& operator=(SharedBlock const&) = delete;
    ~SharedBlock() { munmap(block_, sizeof(T)); }
    T* operator->() const { return block_; }
    T& operator*() const { return *block_; }

private:
    T* block_;
};

// The first complaint of any process is kept. Stands in a SharedBlock.
class Complaint {
public:
    template <class... A>
    void say(fmt::format_string<A...> format, A&&... args) {
        if (taken_.exchange(true)) return;
        std::string const text = fmt::format(format, std::forward<A>(args)...);
        std::memcpy(text_, text.data(), std::min(text.size(), sizeof text_ - 1));
        told_ = true;
    }
    bool any() const { return taken_; }
    std::string text() const {
        while (taken_ && !told_) {
        }
        return text_;
    }

private:
    std::atomic<bool> taken_;
    std::atomic<bool> told_;
    char text_[1000];
};

// How long a test of many processes runs: a few seconds, or what `./dev soak` says.
inline bool soaking() {
    return std::getenv("CAIRN_SOAK_SECONDS");
}
inline double soakSeconds(double usual) {
    return soaking() ? std::atof(std::getenv("CAIRN_SOAK_SECONDS")) : usual;
}
// A line for the end of a soak.
template <class... A>
void counted(fmt::format_string<A...> format, A&&... args) {
    fmt::print("counted: {}\n", fmt::format(format, std::forward<A>(args)...));
}

} // namespace Support
