// A table below a base directory of its own, its writer and readers, and ways to look at its files;
// fronts of it, with a client that keeps its own map from the callbacks alone.
#pragma once

#include "Brisk/Table.h"
#include "tests/support/Child.h"
#include "tests/support/Loop.h"
#include "tests/support/TempBase.h"
#include "tests/support/TestTable.h"

#include "Dunlin/Util.h"

#include <gtest/gtest.h>
#include <map>
#include <random>
#include <set>

namespace Support {

using Brisk::BriskType;
using Brisk::IterHint;
using Brisk::MapDescriptor;
using Mem::MountStatus;
using TestMap = Brisk::BriskMap<TestOps>;
using TestShadow = Brisk::BriskShadow<TestOps>;

inline MapDescriptor shadowSettings(BriskType type, bool notifyDuringSync = true) {
    MapDescriptor descriptor(1000);
    descriptor.type = type;
    descriptor.notifyDuringSync = notifyDuringSync;
    return descriptor;
}
inline MapDescriptor writerSettings(bool shrinkable = false) {
    MapDescriptor descriptor(100'000);
    descriptor.shrinkable = descriptor.shrinkBuckets = shrinkable;
    return descriptor;
}

// All entries of an implementation or a front's table, by walking: each once, whole, in the order of
// the bit-reversed hash.
template <class Table>
std::map<U32, U64> contents(Table const& table) {
    std::map<U32, U64> seen;
    TestValue value;
    IterHint hint;
    U32 lastRhash = 0;
    for (bool more = table.first(value, hint); more; more = table.next(value.key(), value, hint)) {
        EXPECT_TRUE(value.whole());
        U32 const rhash = Dunlin::Util::reverse(value.key().hash());
        EXPECT_LE(std::exchange(lastRhash, rhash), rhash);
        EXPECT_TRUE(seen.emplace(value.key().id, value.stamp()).second);
    }
    return seen;
}

// A front and what its client was told.
class Client {
public:
    Client(std::string const& name, MapDescriptor const& descriptor)
        : descriptor_(descriptor), front(std::make_unique<TestMap>(name, "TestValue")) {
        front->valueNotifyIs(
            [this](TestValue const& value) { changed(value.key(), value.stamp()); });
        front->keyNotifyIs([this](TestKey const& key) {
            bool found = false;
            TestValue into;
            TestValue const* const value = front->table().lookup(key, found, &into);
            changed(key, found ? value->stamp() : ~0ULL);
        });
        front->deleteNotifyIs([this](TestKey const& key) {
            ++deletes;
            if (known.erase(key.id) == 0) ++strayDeletes;
            bool found = true;
            front->table().lookup(key, found, nullptr);
            if (found) ++strayDeletes; // a client in its delete callback sees the key gone
            onDelete(key);
        });
        front->mountStatusNotifyIs([this] {
            statuses += std::to_string(U32(front->mountStatus()));
            onStatus();
        });
        front->quiescedNotifyIs([this](bool on) { quiesced = on; });
    }
    void init() { front->init(descriptor_); }
    void changed(TestKey const& key, U64 stamp) {
        ++updates;
        auto const [at, fresh] = known.emplace(key.id, stamp);
        if (!fresh && at->second == stamp) ++equalUpdates;
        at->second = stamp;
        onUpdate(key);
    }
    TestShadow& shadow() const { return dynamic_cast<TestShadow&>(front->table()); }
    bool synchronised() const { return front->mountStatus() == MountStatus::synchronised; }
    bool asleep() const {
        auto const* const shadow = dynamic_cast<TestShadow const*>(&front->table());
        return shadow && shadow->connected() && shadow->quiesced();
    }

private:
    MapDescriptor descriptor_;

public:
    std::unique_ptr<TestMap> front;
    std::map<U32, U64> known;
    U64 updates = 0, deletes = 0, strayDeletes = 0, equalUpdates = 0;
    std::string statuses;
    bool quiesced = false;
    std::function<void(TestKey const&)> onUpdate = Dunlin::noop, onDelete = Dunlin::noop;
    std::function<void()> onStatus = Dunlin::noop;
};

class Fronts : public testing::Test {
public:
    ~Fronts() override { Dunlin::traceSinkIs({}); }
    std::unique_ptr<TestWriter> detachedWriter(MapDescriptor const& descriptor = writerSettings()) {
        return std::make_unique<TestWriter>(*handler_, name_, descriptor, TestOps{}, "TestValue",
                                            Dunlin::noop);
    }
    std::unique_ptr<TestWriter> writer(MapDescriptor const& descriptor = writerSettings()) {
        auto result = detachedWriter(descriptor);
        result->initialize("test");
        return result;
    }
    std::unique_ptr<TestReader> detachedReader() {
        return std::make_unique<TestReader>(*handler_, name_.c_str(), TestOps{}, nullptr);
    }
    std::unique_ptr<TestReader> reader() {
        auto result = detachedReader();
        EXPECT_TRUE(result->initialize("test"));
        return result;
    }
    std::string file(char const* f) const { return base_.path() + "/" + name_ + "/" + f; }
    void poke(char const* f, std::size_t at, U32 word) const { Support::poke(file(f), at, word); }
    U32 peek(char const* f, std::size_t at) const { return Support::peek(file(f), at); }
    static void put(TestWriter& writer, U32 id, U64 stamp) {
        writer.write(TestValue(TestKey(id), stamp), true);
    }
    static bool drop(TestWriter& writer, U32 id) {
        TestValue value;
        return writer.remove(TestKey(id), value);
    }

    TempBase base_;
    std::string name_ = "vrf/default/test";
    std::shared_ptr<Dunlin::Platform::DebugHandler> handler_ =
        Dunlin::Platform::getDebugHandler("FrontTest", true);
};

} // namespace Support
