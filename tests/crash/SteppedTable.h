// Tables of three slot sizes whose every shared store and load a test can count, stop at, or
// interrupt. Compiled with CAIRN_STEP_HOOKS; nothing here may be linked with the ordinary library.
#pragma once

#include "Brisk/Table.h"

#include <fmt/format.h>

#include <array>

namespace stepped {

struct Key {
    U32 id = 0;
    U32 hashIs = 0;

    Key() = default;
    Key(U32 i, U32 h) : id(i), hashIs(h) {}
    U32 hash() const { return hashIs; }
    friend bool operator==(Key const&, Key const&) = default;
    friend bool operator<(Key const& a, Key const& b) { return a.id < b.id; }
};

// All words derive from one stamp and the key.
template <std::size_t numWords>
class Value {
public:
    Value() = default;
    Value(Key const& key, U32 stamp) : key_(key) {
        for (std::size_t i = 0; i < numWords; ++i) words_[i] = word(stamp, i);
    }
    Key const& key() const { return key_; }
    U32 stamp() const { return static_cast<U32>(words_[0] >> 32); }
    bool whole() const {
        for (std::size_t i = 0; i < numWords; ++i)
            if (words_[i] != word(stamp(), i)) return false;
        return true;
    }
    friend bool operator==(Value const&, Value const&) = default;

private:
    U64 word(U32 stamp, std::size_t i) const {
        return (U64{stamp} << 32 | (key_.id + stamp * 31)) + i;
    }
    Key key_;
    std::array<U64, numWords> words_{};
};

template <std::size_t numWords>
using Ops = Brisk::OpsOf<Key, Value<numWords>, &Value<numWords>::key>;

using Ops32 = Ops<1>;
using Ops64 = Ops<5>;
using Ops176 = Ops<19>;

} // namespace stepped

template <>
struct fmt::formatter<stepped::Key> : fmt::formatter<U32> {
    template <class Context>
    auto format(stepped::Key const& key, Context& context) const {
        return fmt::formatter<U32>::format(key.id, context);
    }
};
template <std::size_t n>
struct fmt::formatter<stepped::Value<n>> : fmt::formatter<U32> {
    template <class Context>
    auto format(stepped::Value<n> const& value, Context& context) const {
        return fmt::formatter<U32>::format(value.stamp(), context);
    }
};

BRISK_TABLE_EXTERN(stepped::Ops32);
BRISK_TABLE_EXTERN(stepped::Ops64);
BRISK_TABLE_EXTERN(stepped::Ops176);
