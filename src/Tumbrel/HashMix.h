// The project's one mixing function and the running 32-bit hash on it. Results are the same in
// every process and build: they stand in shared memory.
#pragma once

#include "Dunlin/Types.h"

namespace Tumbrel {

// One step: `state` and `word` mixed into 64 well-spread bits by two rounds of xor, multiply, shift.
constexpr U64 mix64(U64 state, U64 word) {
    U64 x = (state ^ word) + 0x9e3779b97f4a7c15ULL;
    x = (x ^ (x >> 32)) * 0xd6e8feb86659fd93ULL;
    x = (x ^ (x >> 29)) * 0xbf58476d1ce4e5b9ULL;
    return x ^ (x >> 32);
}

// Both halves of a mixed word in 32 bits.
constexpr U32 fold(U64 word) {
    return static_cast<U32>(word ^ (word >> 32));
}

// A running hash: depends on the values and on their order.
class HashMix {
public:
    constexpr HashMix() = default;
    constexpr void mixBytes2(U16 v) { step(v, 2); }
    constexpr void mixBytes4(U32 v) { step(v, 4); }
    constexpr void mixBytes8(U64 v) { step(v, 8); }
    // `size` bytes at `data`. Of 2, 4 or 8 bytes: as the function for that width.
    void mix(void const* data, std::size_t size);
    constexpr operator unsigned int() const { return state_; }

private:
    constexpr void step(U64 v, U64 width) { state_ = fold(mix64(U64{state_} | width << 32, v)); }

    U32 state_ = 0;
};

} // namespace Tumbrel
