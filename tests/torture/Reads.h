// What a reader may ask of a table that a scenario changes, each with a judgement on the answer; and
// the pair of a writer and a reader that begins a scenario.
#pragma once

#include "tests/torture/Scenarios.h"

#include <gtest/gtest.h>

namespace Support {

constexpr U32 valueBytes = 160;
using T = Table<valueBytes>;
using Value = T::Value;

struct Read {
    char const* name;
    // Reads what it reads, and says whether that is a state the reader may see.
    std::function<::testing::AssertionResult(T::Reader&, State const& before, State const& after)>
        run;
};

inline ::testing::AssertionResult oneOf(char const* what, U32 key, S64 stamp, State const& before,
                                        State const& after) {
    if (stamp == stampIn(before, key) || stamp == stampIn(after, key))
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure()
           << what << " of key " << key << " gave " << stamp << ", before " << stampIn(before, key)
           << ", after " << stampIn(after, key);
}

// Looks up one key.
inline Read lookupOf(char const* name, U32 key) {
    return {name, [key](T::Reader& reader, State const& before, State const& after) {
                Value value;
                bool found = false;
                reader.lookup(TestKey(key), found, &value);
                S64 const stamp = !found                                   ? -1
                                  : value.key().id == key && value.whole() ? S64{value.stamp()}
                                                                           : -2;
                return oneOf("lookup", key, stamp, before, after);
            }};
}

// Walks the whole table: each key that stays is met once, in its state before or after.
inline Read const walk{
    "walk", [](T::Reader& reader, State const& before, State const& after) {
        State const found = T::walked(reader);
        State keys = before;
        keys.insert(after.begin(), after.end());
        for (auto const& [key, stamp] : found)
            if (!keys.count(key)) return ::testing::AssertionFailure() << "walk met key " << key;
        for (auto const& [key, stamp] : keys)
            if (auto result = oneOf("walk", key, stampIn(found, key), before, after); !result)
                return result;
        return ::testing::AssertionSuccess();
    }};

// Reads every slot by number: what is occupied is a whole record of one state or the other.
inline Read const bySlot{
    "getValue", [](T::Reader& reader, State const& before, State const& after) {
        for (U32 slot = 0; slot < 2 * firstSlots<valueBytes>(); ++slot) {
            Value value;
            if (!reader.getValue(slot, value, nullptr)) continue;
            U32 const key = value.key().id;
            if (auto result =
                    oneOf("getValue", key, value.whole() ? S64{value.stamp()} : -2, before, after);
                !result)
                return result;
        }
        return ::testing::AssertionSuccess();
    }};

struct Pair {
    std::unique_ptr<T::Writer> writer;
    std::unique_ptr<T::Reader> reader;
    State before, after;
};

inline Pair prepared(Scenario<valueBytes> const& scenario, std::string const& name) {
    Pair pair;
    pair.writer = T::writer(name, scenario.descriptor);
    if (!pair.writer->initialize("test")) throw std::runtime_error("no table");
    scenario.prepare(*pair.writer, pair.before);
    pair.after = pair.before;
    scenario.effect(pair.after);
    pair.reader = T::reader(name);
    if (!pair.reader->initialize("test")) throw std::runtime_error("no reader");
    EXPECT_EQ(T::walked(*pair.reader), pair.before);
    return pair;
}

// The key that the operation is about, where there is one, else one that stays.
inline std::vector<Read> readsFor(State const& before, State const& after) {
    std::vector<Read> reads{walk, bySlot};
    for (auto const& [key, stamp] : after)
        if (stampIn(before, key) != S64{stamp})
            reads.push_back(lookupOf("lookup of the key in flight", key));
    for (auto const& [key, stamp] : before)
        if (stampIn(after, key) < 0) reads.push_back(lookupOf("lookup of the key in flight", key));
    U32 const staying = before.rbegin()->first;
    reads.push_back(lookupOf("lookup of a key that stays",
                             stampIn(after, staying) < 0 ? before.begin()->first : staying));
    reads.push_back(lookupOf("lookup of a key that never was", 5000));
    return reads;
}

inline void tidy(Pair& pair) {
    pair.reader->detach(false);
    EXPECT_TRUE(pair.writer->validate());
    pair.writer->cleanup();
    pair.writer->detach(false);
}

} // namespace Support
