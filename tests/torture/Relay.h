// Both sides cut: a writer's operation that stops before any of its stores and goes on later, and the
// places before which a reader may be cut. One side runs at a time, so each run is deterministic.
#pragma once

#include "SharedMem/StepHooks.h"

#include <exception>
#include <functional>
#include <semaphore>
#include <thread>
#include <utility>

namespace Support {

// An operation on a thread of its own, which runs only while its owner waits in one of these calls.
// Each store is a place to stop before, but for those of a copied value: no reader looks at them
// without the version beside them.
class Paused {
public:
    explicit Paused(std::function<void()> action)
        : action_(std::move(action)), thread_([this] { run(); }) {
        current = this;
        Mem::StepHooks::onOrder = [](void* at, std::size_t, Mem::StepHooks::Order order) {
            if (at && order != Mem::StepHooks::Order::copied) current->store(at);
        };
    }
    ~Paused() {
        goOn(~0U, nullptr);
        thread_.join();
        Mem::StepHooks::onOrder = nullptr;
    }
    Paused(Paused const&) = delete;
    Paused& operator=(Paused const&) = delete;

    // Goes on until the next store is number `place`, or one to `word`; false if it ended first.
    bool goTo(U32 place) { return goOn(place, nullptr); }
    bool goBefore(void const* word) { return goOn(~0U, word); }
    // Goes on to the end; what the operation raises, this raises.
    void finish() {
        goOn(~0U, nullptr);
        if (error_) std::rethrow_exception(std::exchange(error_, nullptr));
    }
    // How many stores there were so far.
    U32 places() const { return places_; }

private:
    static inline Paused* current = nullptr;

    bool goOn(U32 place, void const* word) {
        if (ended_) return false;
        place_ = place;
        word_ = word;
        // Called from inside a hook of the other side, which is not the operation's own.
        bool const inside = std::exchange(Mem::StepHooks::inside, false);
        mine_.release();
        other_.acquire();
        Mem::StepHooks::inside = inside;
        return !ended_;
    }
    void store(void const* at) {
        if (std::this_thread::get_id() != thread_.get_id()) return;
        bool const stops = places_++ == place_ || (word_ && at == word_);
        if (!stops) return;
        other_.release();
        mine_.acquire();
    }
    void run() {
        mine_.acquire();
        try {
            action_();
        } catch (...) {
            error_ = std::current_exception();
        }
        ended_ = true;
        other_.release();
    }

    std::function<void()> action_;
    std::binary_semaphore mine_{0}, other_{0};
    U32 place_ = 0, places_ = 0;
    void const* word_ = nullptr;
    bool ended_ = false;
    std::exception_ptr error_;
    std::thread thread_;
};

// Calls `before(place)` before each shared load of this thread, the words of one copied value being
// one place.
class ReaderPlaces {
public:
    explicit ReaderPlaces(std::function<void(U32)> before) : before_(std::move(before)) {
        current = this;
        Mem::StepHooks::onStore = [] { // of a reader: a word of a copy
            if (current->mine()) current->copying_ = true;
        };
        Mem::StepHooks::onLoad = [] { current->load(); };
    }
    ~ReaderPlaces() { Mem::StepHooks::onStore = Mem::StepHooks::onLoad = nullptr; }
    ReaderPlaces(ReaderPlaces const&) = delete;
    ReaderPlaces& operator=(ReaderPlaces const&) = delete;

private:
    static inline ReaderPlaces* current = nullptr;

    bool mine() const { return std::this_thread::get_id() == thread_; }
    void load() {
        if (!mine()) return;
        bool const copied = std::exchange(copying_, false);
        bool const goesOn = copied && copied_;
        copied_ = copied;
        if (!goesOn) before_(places_++);
    }

    std::function<void(U32)> before_;
    std::thread::id thread_ = std::this_thread::get_id();
    U32 places_ = 0;
    bool copying_ = false, copied_ = false;
};

} // namespace Support
