// The operations of the writer that the stop and interleaving tests go through, each with the table
// it begins with and the one it ends with.
#pragma once

#include "tests/support/TestTable.h"

#include "Brisk/TableImpl.h"

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace Support {

// Key number -> stamp of the record.
using State = std::map<U32, U32>;

// -1 for a key that is not there.
inline S64 stampIn(State const& state, U32 key) {
    auto const place = state.find(key);
    return place == state.end() ? S64{-1} : S64{place->second};
}

template <U32 valueBytes>
struct Table {
    using Value = Stamped<valueBytes>;
    using Ops = StampedOps<valueBytes>;
    using Writer = Brisk::BriskWriter<Ops>;
    using Reader = Brisk::BriskReader<Ops>;

    static std::unique_ptr<Writer> writer(std::string const& name,
                                          Brisk::MapDescriptor const& descriptor) {
        return std::make_unique<Writer>(quietTrace(), name, descriptor, Ops{}, "Stamped",
                                        std::function<void(bool)>{});
    }
    static std::unique_ptr<Reader> reader(std::string const& name) {
        return std::make_unique<Reader>(quietTrace(), name.c_str(), Ops{}, nullptr);
    }
    // What a walk finds. A record that does not prove itself is kept under the stamp 0xffffffff.
    template <class Interface>
    static State walked(Interface const& table) {
        State state;
        Value value;
        Brisk::IterHint hint;
        for (bool more = table.first(value, hint); more;
             more = table.next(value.key(), value, hint)) {
            bool const fresh =
                state.emplace(value.key().id, value.whole() ? value.stamp() : 0xffffffff).second;
            if (!fresh) state[value.key().id] = 0xffffffff;
        }
        return state;
    }
    // What lookups of `keys` find.
    template <class Interface>
    static State lookedUp(Interface& table, State const& keys) {
        State state;
        for (auto const& [key, stamp] : keys) {
            Value value;
            bool found = false;
            table.lookup(TestKey(key), found, &value);
            if (found)
                state[key] = value.key().id == key && value.whole() ? value.stamp() : 0xffffffff;
        }
        return state;
    }
    static void write(Writer& writer, State& state, U32 key, U32 stamp) {
        writer.write(Value(key, stamp), true);
        state[key] = stamp;
    }
    static void remove(Writer& writer, State& state, U32 key) {
        Value old;
        writer.remove(TestKey(key), old);
        state.erase(key);
    }
};

template <U32 valueBytes>
struct Scenario {
    using T = Table<valueBytes>;
    using Writer = typename T::Writer;

    std::string name;
    Brisk::MapDescriptor descriptor{1024};
    // Brings the new table to where the operation begins, and says what it holds then.
    std::function<void(Writer&, State&)> prepare;
    // The operation, and what it makes of the state.
    std::function<void(Writer&)> run;
    std::function<void(State&)> effect;
};

// A page's worth of slots, as a table of this value begins with.
template <U32 valueBytes>
constexpr U32 firstSlots() {
    U32 slots = 1;
    while (2 * slots <= (4096 - 600 - (valueBytes + 16)) / (valueBytes + 16)) slots *= 2;
    return slots;
}

template <U32 valueBytes>
std::vector<Scenario<valueBytes>> scenarios() {
    using T = Table<valueBytes>;
    using Value = typename T::Value;
    using Writer = typename T::Writer;
    using S = Scenario<valueBytes>;
    static constexpr U32 slots = firstSlots<valueBytes>();
    static constexpr U32 buckets = 16;
    auto const fill = [](U32 count) {
        return [count](Writer& w, State& s) {
            for (U32 key = 0; key < count; ++key) T::write(w, s, key, 100 + key);
        };
    };
    auto const descriptor = [](bool shrinkable, bool shrinkBuckets) {
        Brisk::MapDescriptor d(1024);
        d.shrinkable = shrinkable;
        d.shrinkBuckets = shrinkBuckets;
        return d;
    };
    std::vector<S> list;
    list.push_back({"insert", descriptor(false, false), fill(8),
                    [](Writer& w) { w.write(Value(8, 1), true); }, [](State& s) { s[8] = 1; }});
    list.push_back({"insert into a slot used before", descriptor(false, false),
                    [fill](Writer& w, State& s) {
                        fill(8)(w, s);
                        T::remove(w, s, 3);
                    },
                    [](Writer& w) { w.write(Value(9, 1), true); }, [](State& s) { s[9] = 1; }});
    list.push_back({"overwrite", descriptor(false, false), fill(8),
                    [](Writer& w) { w.write(Value(5, 1), true); }, [](State& s) { s[5] = 1; }});
    list.push_back({"remove", descriptor(false, false), fill(8),
                    [](Writer& w) {
                        Value old;
                        w.remove(TestKey(5), old);
                    },
                    [](State& s) { s.erase(5); }});
    list.push_back({"directWrite of a new key", descriptor(false, false), fill(8),
                    [](Writer& w) {
                        w.directWrite(Value(8, 1));
                        w.directCommit();
                    },
                    [](State& s) { s[8] = 1; }});
    list.push_back({"directWrite of a known key", descriptor(false, false), fill(8),
                    [](Writer& w) {
                        w.directWrite(Value(5, 1));
                        w.directCommit();
                    },
                    [](State& s) { s[5] = 1; }});
    list.push_back({"directUpdate", descriptor(false, false), fill(8),
                    [](Writer& w) {
                        Value* const area = w.directUpdate(TestKey(5));
                        Value const value(5, 1);
                        Mem::copyBytes(area, &value, sizeof value);
                        w.directCommit();
                    },
                    [](State& s) { s[5] = 1; }});
    list.push_back({"slot growth", descriptor(false, false), fill(slots),
                    [](Writer& w) { w.write(Value(slots, 1), true); },
                    [](State& s) { s[slots] = 1; }});
    // A table of fixed size has its slots from the start, so that only buckets grow.
    Brisk::MapDescriptor fixed(64);
    fixed.fixedSize = true;
    list.push_back({"bucket growth", fixed, fill(buckets),
                    [](Writer& w) { w.write(Value(buckets, 1), true); },
                    [](State& s) { s[buckets] = 1; }});
    // Filled to twice the first size, then emptied from the front, so that what is left stands in
    // high slots and has to be moved.
    list.push_back({"slot shrink", descriptor(true, false),
                    [fill](Writer& w, State& s) {
                        fill(2 * slots)(w, s);
                        for (U32 key = 0; key < 2 * slots - slots / 2; ++key) T::remove(w, s, key);
                    },
                    [](Writer& w) {
                        Value old;
                        w.remove(TestKey(2 * slots - slots / 2), old);
                    },
                    [](State& s) { s.erase(2 * slots - slots / 2); }});
    list.push_back({"bucket shrink", descriptor(false, true),
                    [fill](Writer& w, State& s) {
                        fill(buckets + 1)(w, s);
                        for (U32 key = 0; key < buckets + 1 - buckets / 2; ++key)
                            T::remove(w, s, key);
                    },
                    [](Writer& w) {
                        Value old;
                        w.remove(TestKey(buckets + 1 - buckets / 2), old);
                    },
                    [](State& s) { s.erase(buckets + 1 - buckets / 2); }});
    return list;
}

} // namespace Support
