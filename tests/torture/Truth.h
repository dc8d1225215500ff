// What each key of a table was worth when, in logical time: the judge of all that a reader is told
// while the table changes.
//
// A change takes place at some moment between the begin and the end of the writer's operation. So a
// state may be seen from the begin of the operation that makes it until the end of the one that
// replaces it.
#pragma once

#include "Dunlin/Types.h"

#include <vector>

namespace Support {

class Truth {
public:
    static constexpr S64 absent = -1;
    static constexpr U64 always = ~0ULL;

    explicit Truth(U32 keys) : keys_(keys) {}

    // The writer begins to make the key's value this one; `ended` when the operation has returned.
    void begins(U32 key, S64 stamp, U64 now) { keys_[key].states.push_back({stamp, now, always}); }
    void ended(U32 key, U64 now) {
        auto& states = keys_[key].states;
        if (states.size() > 1) states[states.size() - 2].until = now;
    }
    S64 current(U32 key) const { return keys_[key].states.back().stamp; }
    U32 keys() const { return static_cast<U32>(keys_.size()); }

    // Whether the key may have been seen so at some moment from `from` to `to`.
    bool possible(U32 key, S64 stamp, U64 from, U64 to) const {
        for (State const& state : keys_[key].states)
            if (state.stamp == stamp && state.from <= to && state.until >= from) return true;
        return false;
    }
    bool thereThroughout(U32 key, U64 from, U64 to) const {
        return !possible(key, absent, from, to);
    }
    // As `possible`, for reads that never go back: a state that has been read is the oldest that
    // may be read from then on.
    bool read(U32 key, S64 stamp, U64 from, U64 to) {
        Key& k = keys_[key];
        for (std::size_t i = k.oldest; i < k.states.size(); ++i) {
            State const& state = k.states[i];
            if (state.stamp != stamp || state.from > to || state.until < from) continue;
            k.oldest = i;
            return true;
        }
        return false;
    }
    // Forgets what was over before `then`.
    void forget(U64 then) {
        for (Key& key : keys_) {
            std::size_t over = 0;
            while (over + 1 < key.states.size() && key.states[over].until < then) ++over;
            key.states.erase(key.states.begin(), key.states.begin() + static_cast<S64>(over));
            key.oldest -= std::min(key.oldest, over);
        }
    }

private:
    struct State {
        S64 stamp;
        U64 from, until;
    };
    struct Key {
        std::vector<State> states{{absent, 0, always}};
        std::size_t oldest = 0;
    };
    std::vector<Key> keys_;
};

} // namespace Support
