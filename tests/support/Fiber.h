// A second stack of this thread: code that stops in the middle of anything and goes on later.
//
// An exception stays on the stack it was raised on: what a fiber runs catches its own. The runtime's
// record of exceptions under way is the thread's, so each fiber keeps its part of it. ThreadSanitizer
// is not told of the stacks: what runs on them is one thread.
#pragma once

#include <csetjmp>
#include <cxxabi.h>
#include <functional>
#include <memory>
#include <ucontext.h>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/common_interface_defs.h>
#endif

namespace Support {

class Fiber {
public:
    // The stack that runs now.
    Fiber() : begun_(true) {}
    // Runs `body`, which never returns, on a stack of its own from the first switch on.
    explicit Fiber(std::function<void()> body)
        : body_(std::move(body)), stack_(new char[stackSize]), bottom_(stack_.get()),
          size_(stackSize) {
        ::getcontext(&context_);
        context_.uc_stack.ss_sp = stack_.get();
        context_.uc_stack.ss_size = stackSize;
        context_.uc_link = nullptr;
        ::makecontext(&context_, &Fiber::begin, 0);
    }
    Fiber(Fiber const&) = delete;
    Fiber& operator=(Fiber const&) = delete;

    // Leaves this fiber, which runs now, and goes on with `to`; returns when somebody switches back.
    void switchTo(Fiber& to) {
        exceptions_ = *exceptionsUnderWay();
        entering_ = &to;
        left_ = this;
#if defined(__SANITIZE_ADDRESS__)
        __sanitizer_start_switch_fiber(&fakeStack_, to.bottom_, to.size_);
#endif
#if defined(CAIRN_SANITIZED)
        ::swapcontext(&context_, &to.context_); // which the sanitizer knows
#else
        // Two system calls fewer than swapcontext makes.
        if (_setjmp(place_) == 0) {
            if (to.begun_) _longjmp(to.place_, 1);
            to.begun_ = true;
            ::setcontext(&to.context_);
        }
#endif
        arrived();
    }

private:
    // What __cxa_get_globals leads to, by the C++ ABI.
    struct Exceptions {
        void* caught = nullptr;
        unsigned uncaught = 0;
    };
    static Exceptions* exceptionsUnderWay() {
        return reinterpret_cast<Exceptions*>(abi::__cxa_get_globals());
    }
    static constexpr std::size_t stackSize = 256 << 10;

    static void begin() {
        entering_->arrived();
        entering_->body_();
        std::abort();
    }
    void arrived() {
#if defined(__SANITIZE_ADDRESS__)
        __sanitizer_finish_switch_fiber(fakeStack_, &left_->bottom_, &left_->size_);
#endif
        *exceptionsUnderWay() = exceptions_;
    }

    static inline Fiber* entering_ = nullptr;
    static inline Fiber* left_ = nullptr;
    std::function<void()> body_;
    std::unique_ptr<char[]> stack_;
    void const* bottom_ = nullptr;
    std::size_t size_ = 0;
    ucontext_t context_{};
    jmp_buf place_{};
    bool begun_ = false;
    Exceptions exceptions_;
    [[maybe_unused]] void* fakeStack_ = nullptr;
};

} // namespace Support
