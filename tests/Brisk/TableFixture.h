// A table below a base directory of its own, its writer and readers, and ways to look at its files.
#pragma once

#include "support/TempBase.h"
#include "support/TestTable.h"

#include <fstream>
#include <map>

#include <gtest/gtest.h>

namespace support {

using Brisk::IterHint;
using Brisk::MapDescriptor;
using Dunlin::CorruptionDetectedException;

class Table : public testing::Test {
public:
    ~Table() override { Dunlin::traceSinkIs({}); }
    std::unique_ptr<TestWriter> writer(MapDescriptor const& descriptor = MapDescriptor(1000)) {
        auto w = std::make_unique<TestWriter>(handler(), name_, descriptor, TestOps{}, "TestValue",
                                              Dunlin::noop);
        w->initialize("test");
        return w;
    }
    std::unique_ptr<TestReader> reader() {
        auto r = std::make_unique<TestReader>(handler(), name_.c_str(), TestOps{}, nullptr);
        EXPECT_TRUE(r->initialize("test"));
        return r;
    }
    Dunlin::Platform::DebugHandler& handler() { return *handler_; }
    std::string file(char const* f) const { return base_.path() + "/" + name_ + "/" + f; }
    void poke(char const* f, long offset, U32 word) {
        std::fstream stream(file(f), std::ios::in | std::ios::out | std::ios::binary);
        stream.seekp(offset);
        stream.write(reinterpret_cast<char const*>(&word), sizeof word);
    }
    U32 peek(char const* f, long offset) {
        std::ifstream stream(file(f), std::ios::binary);
        stream.seekg(offset);
        U32 word = 0;
        stream.read(reinterpret_cast<char*>(&word), sizeof word);
        return word;
    }
    template <class T>
    static std::map<U32, U64> walk(T const& table) {
        std::map<U32, U64> seen;
        TestValue value;
        IterHint hint;
        U32 lastRhash = 0;
        for (bool more = table.first(value, hint); more;
             more = table.next(value.key(), value, hint)) {
            EXPECT_TRUE(value.whole());
            U32 const rhash = Dunlin::Util::reverse(value.key().hash());
            EXPECT_LE(lastRhash, rhash) << "the walk follows the bit-reversed hash";
            lastRhash = rhash;
            EXPECT_TRUE(seen.emplace(value.key().id, value.stamp()).second);
        }
        return seen;
    }

    Support::TempBase base_;
    std::string name_ = "vrf/default/test";
    std::shared_ptr<Dunlin::Platform::DebugHandler> handler_ =
        Dunlin::Platform::getDebugHandler("TableTest", true);
};

} // namespace support
