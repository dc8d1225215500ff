#include "Vomo/Hash.h"

#include <random>

namespace Vomo {

U32 hashSingleAttr(U32 seed, std::string_view key) {
    U64 state = Tumbrel::mix64(U64{seed} << 32 | 1, key.size());
    while (key.size() >= 8) {
        U64 word;
        std::memcpy(&word, key.data(), 8);
        state = Tumbrel::mix64(state, word);
        key.remove_prefix(8);
    }
    if (!key.empty()) {
        U64 word = 0;
        std::memcpy(&word, key.data(), key.size());
        state = Tumbrel::mix64(state, word);
    }
    return Tumbrel::fold(state);
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
