// A table of 160-byte records for tests: keys whose hash the test chooses, values all of whose words
// derive from one stamp.
#pragma once

#include "Brisk/Table.h"

#include <fmt/format.h>

#include <array>

namespace support {

struct TestKey {
    U32 id = 0;
    U32 hashIs = 0;
    std::array<U32, 10> pad{};

    TestKey() = default;
    explicit TestKey(U32 i) : id(i), hashIs((i + 1) * 0x9e3779b1U >> 7) {}
    TestKey(U32 i, U32 h) : id(i), hashIs(h) {}
    U32 hash() const { return hashIs; }
    friend bool operator==(TestKey const&, TestKey const&) = default;
    friend bool operator<(TestKey const& a, TestKey const& b) { return a.id < b.id; }
};
static_assert(sizeof(TestKey) == 48);

class TestValue {
public:
    TestValue() = default;
    explicit TestValue(TestKey const& key, U64 stamp = 0) : key_(key) { stampIs(stamp); }
    TestKey const& key() const { return key_; }
    void stampIs(U64 stamp) {
        for (std::size_t i = 0; i < words_.size(); ++i) words_[i] = stamp * (i + 1) + key_.id;
    }
    U64 stamp() const { return words_[0] - key_.id; }
    // Whether every word derives from the same stamp: no torn copy.
    bool whole() const {
        for (std::size_t i = 0; i < words_.size(); ++i)
            if (words_[i] != stamp() * (i + 1) + key_.id) return false;
        return true;
    }
    friend bool operator==(TestValue const&, TestValue const&) = default;

private:
    TestKey key_;
    std::array<U64, 14> words_{};
};
static_assert(sizeof(TestValue) == 160);

using TestOps = Brisk::OpsOf<TestKey, TestValue, &TestValue::key>;
using TestWriter = Brisk::BriskWriter<TestOps>;
using TestReader = Brisk::BriskReader<TestOps>;

} // namespace support

template <>
struct fmt::formatter<support::TestKey> : fmt::formatter<U32> {
    template <class Context>
    auto format(support::TestKey const& key, Context& context) const {
        return fmt::formatter<U32>::format(key.id, context);
    }
};
template <>
struct fmt::formatter<support::TestValue> : fmt::formatter<U64> {
    template <class Context>
    auto format(support::TestValue const& value, Context& context) const {
        return fmt::formatter<U64>::format(value.stamp(), context);
    }
};

BRISK_TABLE_EXTERN(support::TestOps);
