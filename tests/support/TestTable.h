// The records of the tests' tables, in several sizes. Every word of a record derives from its key and
// one stamp, so that a torn copy, or a copy of another key's record, is seen at once. Where it
// matters, a test chooses the key's hash.
#pragma once

#include "tests/support/TempBase.h"

#include "Brisk/Table.h"

#include <array>
#include <fmt/format.h>

namespace Support {

struct TestKey {
    U32 id = 0;
    U32 hashIs = 0;

    TestKey() = default;
    explicit TestKey(U32 i) : id(i), hashIs(i * 0x9e3779b1U ^ (i * 0x9e3779b1U) >> 15) {}
    TestKey(U32 i, U32 h) : id(i), hashIs(h) {}
    U32 hash() const { return hashIs; }
    friend bool operator==(TestKey const&, TestKey const&) = default;
    friend bool operator<(TestKey const& a, TestKey const& b) { return a.id < b.id; }
};

template <U32 bytes>
class Stamped {
public:
    Stamped() = default;
    explicit Stamped(TestKey const& key, U64 stamp = 0) : key_(key) { stampIs(stamp); }
    Stamped(U32 id, U64 stamp) : Stamped(TestKey(id), stamp) {}
    TestKey const& key() const { return key_; }
    U32 stamp() const { return static_cast<U32>(words_[0]); }
    // The first word has the stamp itself in its lower half.
    void stampIs(U64 stamp) {
        U64 const mixed = (U64{key_.id} << 32 | static_cast<U32>(stamp)) * 0x9e3779b97f4a7c15U;
        for (U32 i = 0; i < words_.size(); ++i) words_[i] = mixed + i;
        words_[0] = words_[0] >> 32 << 32 | static_cast<U32>(stamp);
    }
    bool whole() const { return Stamped(key_, stamp()) == *this; }
    friend bool operator==(Stamped const&, Stamped const&) = default;

private:
    TestKey key_;
    std::array<U64, (bytes - sizeof(TestKey)) / 8> words_{};
};
static_assert(sizeof(Stamped<16>) == 16 && sizeof(Stamped<160>) == 160);

template <U32 bytes>
using StampedOps = Brisk::OpsOf<TestKey, Stamped<bytes>, &Stamped<bytes>::key>;

using TestValue = Stamped<160>;
using TestOps = StampedOps<160>;
using TestWriter = Brisk::BriskWriter<TestOps>;
using TestReader = Brisk::BriskReader<TestOps>;

} // namespace Support

template <>
struct fmt::formatter<Support::TestKey> : fmt::formatter<U32> {
    template <class Context>
    auto format(Support::TestKey const& key, Context& context) const {
        return fmt::formatter<U32>::format(key.id, context);
    }
};
template <U32 valueBytes>
struct fmt::formatter<Support::Stamped<valueBytes>> : fmt::formatter<U32> {
    template <class Context>
    auto format(Support::Stamped<valueBytes> const& value, Context& context) const {
        return fmt::formatter<U32>::format(value.stamp(), context);
    }
};

#if !defined(CAIRN_STEP_HOOKS) // tests with step hooks make their own
BRISK_TABLE_EXTERN(Support::TestOps);
#endif
