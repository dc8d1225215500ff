#include "Tumbrel/HashMix.h"

#include <cstring>

namespace Tumbrel {

void HashMix::mix(void const* data, std::size_t size) {
    auto const* next = static_cast<char const*>(data);
    auto const take = [&]<class W>(W) {
        W word;
        std::memcpy(&word, next, sizeof word);
        next += sizeof word;
        size -= sizeof word;
        step(word, sizeof word);
    };
    while (size >= 8) take(U64{});
    if (size >= 4) take(U32{});
    if (size >= 2) take(U16{});
    if (size >= 1) take(U8{});
}

} // namespace Tumbrel
