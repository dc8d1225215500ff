#include "Vomo/Hash.h"

#include <random>

namespace Vomo {

namespace {

template <class Word>
U64 load(char const* at) {
    Word word;
    std::memcpy(&word, at, sizeof word);
    return word;
}
// The product of two words, folded: each bit of both reaches the whole result.
U64 folded(U64 a, U64 b) {
    U128 const product = U128{a} * b;
    return static_cast<U64>(product) ^ static_cast<U64>(product >> 64);
}

} // namespace

// Sixteen bytes at a time, the last sixteen once more for the rest; a shorter text lies in two words
// that may overlap, so that none is copied byte by byte.
U32 hashSingleAttr(U32 seed, std::string_view key) {
    constexpr U64 first = 0x9e3779b97f4a7c15ULL, second = 0xd6e8feb86659fd93ULL;
    char const* at = key.data();
    std::size_t const size = key.size();
    U64 state = (U64{seed} << 32 | 1) * first, a = 0, b = 0;
    if (size > 16) {
        char const* const last = at + size - 16;
        for (; at < last; at += 16)
            state = folded(load<U64>(at) ^ (state + second), load<U64>(at + 8) ^ state);
        a = load<U64>(last);
        b = load<U64>(last + 8);
    } else if (size >= 8) {
        a = load<U64>(at);
        b = load<U64>(at + size - 8);
    } else if (size >= 4) {
        a = load<U32>(at);
        b = load<U32>(at + size - 4);
    } else if (size > 0) {
        a = load<U8>(at) << 16 | load<U8>(at + size / 2) << 8 | load<U8>(at + size - 1);
    }
    return Tumbrel::fold(folded(folded(a ^ (state + second), b ^ state) ^ size, first));
}

constinit std::atomic<U64> HashHelper::chosenSeed{0};

U32 HashHelper::drawSeed() {
    U64 seed = 0;
    U64 const drawn = U64{1} << 32 | std::random_device{}();
    // The first thread's draw stands for all.
    return static_cast<U32>(chosenSeed.compare_exchange_strong(seed, drawn) ? drawn : seed);
}

void HashHelper::hashSeed32Is(U32 seed) {
    chosenSeed.store(U64{1} << 32 | seed);
}

} // namespace Vomo
