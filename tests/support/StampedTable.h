// A table whose records prove themselves: every word of a record derives from its key and one stamp,
// so that a torn copy, or a copy of another key's record, is seen at once. In three slot sizes.
#pragma once

#include "tests/support/TempBase.h"

#include "Brisk/Table.h"

#include <array>
#include <compare>
#include <fmt/format.h>

namespace Support {

// Small numbers, spread by their hash.
struct StampKey {
    U32 number = 0xffffffff;
    U32 hash() const {
        U32 h = number * 0x9e3779b1U;
        return h ^ h >> 15;
    }
    friend auto operator<=>(StampKey const&, StampKey const&) = default;
};

template <U32 bytes>
struct Stamped {
    static_assert(bytes >= 16 && bytes % 8 == 0);

    Stamped() = default;
    Stamped(U32 number, U32 stamp) : key_{number}, stamp_(stamp) {
        for (U32 i = 0; i < words_.size(); ++i) words_[i] = word(i);
    }
    StampKey const& key() const { return key_; }
    U32 stamp() const { return stamp_; }
    bool sound() const {
        for (U32 i = 0; i < words_.size(); ++i)
            if (words_[i] != word(i)) return false;
        return true;
    }
    friend bool operator==(Stamped const&, Stamped const&) = default;

private:
    U64 word(U32 i) const { return (U64{key_.number} << 32 | stamp_) * 0x9e3779b97f4a7c15U + i; }
    StampKey key_;
    U32 stamp_ = 0;
    std::array<U64, (bytes - 8) / 8> words_{};
};

template <U32 bytes>
using StampedOps = Brisk::OpsOf<StampKey, Stamped<bytes>, &Stamped<bytes>::key>;

} // namespace Support

template <>
struct fmt::formatter<Support::StampKey> : fmt::formatter<U32> {
    template <class Context>
    auto format(Support::StampKey const& key, Context& context) const {
        return fmt::formatter<U32>::format(key.number, context);
    }
};
template <U32 valueBytes>
struct fmt::formatter<Support::Stamped<valueBytes>> : fmt::formatter<std::string_view> {
    template <class Context>
    auto format(Support::Stamped<valueBytes> const& value, Context& context) const {
        return fmt::formatter<std::string_view>::format(
            fmt::format("{}/{}", value.key().number, value.stamp()), context);
    }
};
