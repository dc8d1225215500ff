// Several sides of one process, each on a stack of its own, that take turns at every step of the
// shared-memory protocol: a step is a shared load or store, or a look at a file. Which side goes on
// is drawn from a seed, so a schedule can be replayed.
#pragma once

#include "tests/support/Fiber.h"

#include "SharedMem/StepHooks.h"

#include <cmath>
#include <fmt/format.h>
#include <string>
#include <vector>

namespace Support {

// Random numbers that depend on the seed alone, not on the standard library.
class Dice {
public:
    explicit Dice(U64 seed = 0) : state_(seed) {}
    U64 next() {
        U64 z = state_ += 0x9e3779b97f4a7c15U;
        z = (z ^ z >> 30) * 0xbf58476d1ce4e5b9U;
        z = (z ^ z >> 27) * 0x94d049bb133111ebU;
        return z ^ z >> 31;
    }
    // 0 to `n` - 1.
    U32 below(U32 n) { return static_cast<U32>((next() >> 32) * n >> 32); }
    bool oneIn(U32 n) { return below(n) == 0; }
    // 1 or more, each order of magnitude as likely up to `most`.
    U32 upTo(double most) {
        double const share = static_cast<double>(next() >> 11) * 0x1p-53;
        return static_cast<U32>(std::exp(share * std::log(most)));
    }

private:
    U64 state_;
};

// What a side is doing, for the trace of a schedule.
struct Doing {
    char const* what = "nothing";
    U32 number = 0;
};

class Sides {
public:
    // A side that performs one operation at each call.
    struct Side {
        Side(Sides& sides, char const* itsName, std::function<void(Side&)> itsOperation)
            : name(itsName), operation(std::move(itsOperation)),
              fiber([&sides, this] { sides.loop(*this); }) {}
        char const* name;
        std::function<void(Side&)> operation;
        Fiber fiber;
        Dice dice;
        Doing doing;
        U32 quota = 0;       // operations that it has yet to begin
        bool midway = false; // in the middle of one
        U32 steps = 0;       // of this one
        S32 priority = 0;
        double pace = 1; // about so many steps at a time
    };

    Sides() {
        self_ = this;
        Mem::StepHooks::onLoad = Mem::StepHooks::onStore = [] { step(); };
    }
    ~Sides() {
        Mem::StepHooks::onLoad = Mem::StepHooks::onStore = nullptr;
        self_ = nullptr;
    }

    Side& add(char const* name, std::function<void(Side&)> operation) {
        return *sides_.emplace_back(std::make_unique<Side>(*this, name, std::move(operation)));
    }

    // Logical time: the steps so far.
    U64 now() const { return now_; }
    // Lets time pass for who judges between the schedules.
    void tick() { ++now_; }

    // Lets the sides perform up to `most` operations each, by turns that follow from the seed, until
    // all are done or, in every third schedule, until some step at which all of them stop.
    // The turns are as short as `most` operations of all sides are.
    void run(U64 seed, U32 most) {
        dice_ = Dice(seed);
        turns_.clear();
        for (auto& side : sides_) {
            side->dice = Dice(dice_.next());
            side->quota = dice_.upTo(most);
            side->priority = static_cast<S32>(dice_.below(1000));
        }
        policy_ = static_cast<Policy>(dice_.below(4));
        // The stretches of each side have a length of their own: one that takes a few steps at a time
        // beside one that takes many meets all that the other does. A few stops are spread over what
        // the operations may take.
        double const expected = 60.0 * most;
        pace_ = expected / (1 + dice_.below(6));
        for (auto& side : sides_)
            side->pace = policy_ == Policy::even     ? 1 << dice_.below(8)
                         : policy_ == Policy::bursts ? 2 << dice_.below(8)
                                                     : pace_;
        Side* const first = chosen();
        left_ = stretch(*first);
        stopIn_ = dice_.oneIn(3) ? dice_.upTo(2 * expected) : ~0U;
        alone_ = false;
        enter(*first);
        alone_ = true;
        for (auto& side : sides_) side->quota = 0;
    }
    // Lets a side end what it is in the middle of, undisturbed.
    void finish(Side& side) {
        if (side.midway) enter(side);
    }
    // Has a side perform one operation, undisturbed. It is in the middle of none.
    void once(Side& side) {
        side.quota = 1;
        enter(side);
    }

    // A fault was found: nothing goes on from here.
    template <class... A>
    void complain(fmt::format_string<A...> format, A&&... args) {
        if (!fault_.empty()) return;
        fault_ = fmt::format(format, std::forward<A>(args)...);
        if (running_)
            fault_ += fmt::format(" ({}: {} {}, its step {})", running_->name, running_->doing.what,
                                  running_->doing.number, running_->steps);
    }
    std::string const& fault() const { return fault_; }
    // The turns of the last schedule, a line each.
    std::string trace() const {
        std::string text;
        for (Turn const& turn : turns_)
            text += fmt::format("  {:8} to its step {:5} of {} {}\n", turn.side->name, turn.steps,
                                turn.doing.what, turn.doing.number);
        return text;
    }
    std::size_t turns() const { return turns_.size(); }

private:
    // Who goes on after a stop: anybody, after stretches of about equal or of very different length;
    // or the side of the highest priority, which loses it at a few steps (few stops, far apart, find
    // what needs a certain order of a few events).
    enum class Policy { even, bursts, fewStops, priorities };
    struct Turn {
        Side const* side;
        Doing doing;
        U32 steps;
    };
    // No operation on tables of this size takes as many.
    static constexpr U32 endless = 200'000;

    static void step() {
        Mem::StepHooks::inside = false; // for the side that goes on meanwhile
        if (self_->running_) self_->step(*self_->running_);
    }
    void step(Side& side) {
        ++now_;
        if (++side.steps == endless) complain("does not end");
        if (!fault_.empty()) return leave(side, root_);
        if (alone_) return;
        if (--stopIn_ == 0) return leave(side, root_);
        if (--left_ > 0) return;
        if (policy_ == Policy::priorities) side.priority = --lowest_;
        Side* const next = chosen();
        left_ = stretch(*next);
        if (next != &side) leave(side, next->fiber);
    }
    U32 stretch(Side const& side) {
        return policy_ == Policy::bursts || policy_ == Policy::fewStops
                   ? dice_.upTo(side.pace)
                   : 1 + dice_.below(static_cast<U32>(side.pace));
    }
    static bool runnable(Side const& side) { return side.midway || side.quota > 0; }
    Side* chosen() {
        Side* best = nullptr;
        if (policy_ == Policy::priorities) {
            for (auto& side : sides_)
                if (runnable(*side) && (!best || side->priority > best->priority))
                    best = side.get();
            return best;
        }
        U32 count = 0;
        for (auto& side : sides_)
            if (runnable(*side) && dice_.oneIn(++count)) best = side.get();
        return best;
    }

    void enter(Side& side) {
        root_.switchTo(prepared(side));
        running_ = nullptr;
    }
    Fiber& prepared(Side& side) {
        running_ = &side;
        return side.fiber;
    }
    void leave(Side& side, Fiber& to) {
        turns_.push_back({&side, side.doing, side.steps});
        Side* const next = ownerOf(to);
        running_ = next;
        side.fiber.switchTo(to);
        running_ = &side;
    }
    Side* ownerOf(Fiber const& fiber) {
        for (auto& side : sides_)
            if (&side->fiber == &fiber) return side.get();
        return nullptr;
    }
    void loop(Side& side) {
        for (;;) {
            while (side.quota == 0 || !fault_.empty()) {
                Side* const next = alone_ || !fault_.empty() ? nullptr : chosen();
                if (next) left_ = stretch(*next);
                leave(side, next ? next->fiber : root_);
            }
            --side.quota;
            side.midway = true;
            side.steps = 0;
            try {
                side.operation(side);
            } catch (std::exception const& e) {
                complain("exception: {}", e.what());
            }
            side.midway = false;
        }
    }

    static inline Sides* self_ = nullptr;
    std::vector<std::unique_ptr<Side>> sides_;
    Fiber root_;
    Side* running_ = nullptr;
    bool alone_ = true;
    U64 now_ = 0;
    std::string fault_;
    Dice dice_;
    Policy policy_ = Policy::even;
    double pace_ = 1;
    U32 left_ = 1;
    U32 stopIn_ = ~0U;
    S32 lowest_ = 0;
    std::vector<Turn> turns_;
};

} // namespace Support
