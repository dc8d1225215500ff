// Hashes of values and of collection keys. The same in every process and build, but for the seed.
#pragma once

#include "Tumbrel/HashMix.h"

#include <atomic>
#include <cstring>
#include <string_view>

namespace Vomo {

// A seeded hash of a composite of small integers: one `hashMix` per field, in declared order.
class Hash {
public:
    constexpr explicit Hash(U32 seed) : seed_(seed) {}
    template <unsigned width>
    void hashMix(void const* field) {
        static_assert(width == 2 || width == 4);
        U32 word = 0;
        std::memcpy(&word, field, width); // little endian: a U16 keeps its value
        state_ = Tumbrel::mix64(state_ ^ U64{seed_} << 32, word | U64{width} << 32);
    }
    U32 result() const { return Tumbrel::fold(state_); }

private:
    U32 seed_;
    U64 state_ = 0;
};

// The hash of a collection's key; a seed of 0 is as good as any. Both halves of a product, in which
// each bit of the key and the seed reaches all upper ones: the one step that a lookup waits for.
__extension__ typedef unsigned __int128 U128;
inline U32 hashInteger(U64 seed, U64 key) {
    U128 const product = U128{key ^ seed * 0x9e3779b97f4a7c15ULL} * 0xd6e8feb86659fd93ULL;
    return Tumbrel::fold(static_cast<U64>(product) ^ static_cast<U64>(product >> 64));
}
inline U32 hashSingleAttr(U32 seed, U16 key) {
    return hashInteger(U64{seed} << 32 | 2, key);
}
inline U32 hashSingleAttr(U32 seed, U32 key) {
    return hashInteger(U64{seed} << 32 | 4, key);
}
inline U32 hashSingleAttr(U32 seed, U64 key) {
    return hashInteger(U64{seed} << 32 | 8, key);
}
U32 hashSingleAttr(U32 seed, std::string_view key);

namespace HashHelper {
// The seed in the lower half; 0 as a whole: not drawn yet.
extern std::atomic<U64> chosenSeed;
U32 drawSeed();
// The seed of this process's seeded collections, drawn at random at first use.
inline U32 hashSeed32() {
    U64 const seed = chosenSeed.load(std::memory_order_relaxed);
    return seed != 0 ? static_cast<U32>(seed) : drawSeed();
}
// Fixes the seed, for tests; before the first collection is made.
void hashSeed32Is(U32 seed);
} // namespace HashHelper

} // namespace Vomo
