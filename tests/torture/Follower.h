// A shadow without its doorbell, for tests that decide when it looks: what a client is told, from the
// real store and the real queue alone; and a connection that makes the writer wait for it.
#pragma once

#include "tests/support/Sockets.h"
#include "tests/torture/Scenarios.h"

#include "Brisk/ShadowStoreImpl.h"
#include "Dunlin/TaskSchedulerRoot.h"
#include "Wren/BolsterAcceptSm.h"
#include "Wren/Protocol.h"

#include <algorithm>
#include <stdexcept>

namespace Support {

// A shadow without its doorbell: what a client was told, from store and queue alone.
template <U32 valueBytes>
class FollowerOf : public Brisk::ShadowListener<TestKey, Stamped<valueBytes>> {
public:
    using T = Table<valueBytes>;
    using Value = typename T::Value;
    using Ops = typename T::Ops;

    FollowerOf(char const* name, bool values)
        : reader_(quietTrace(), name, Ops{}, &counters_),
          queue_(quietTrace(), Mem::RootPath(name)) {
        if (!reader_.initialize("test") || !queue_.attach(reader_.orielId()))
            throw std::runtime_error("no table");
        if (values)
            store_ = std::make_unique<Brisk::ShadowStore<Brisk::ValueShadowSlot<Ops>>>(
                quietTrace(), reader_, queue_, counters_, Ops{}, *this, true);
        else
            store_ = std::make_unique<Brisk::KeyShadowStore<Ops>>(quietTrace(), reader_, queue_,
                                                                  counters_, ops_, *this, true);
        if (!store_->initialize()) throw std::runtime_error("no store");
    }
    // As a shadow does it: the position first, then all slots, then the queue from there.
    void walk() {
        Wren::Sequence const from = queue_.position();
        queue_.lastIs(from);
        syncHead_ = Wren::syncPass;
        reader_.doResize();
        for (U32 slot = 0; slot < std::max(reader_.capacity(), store_->numSlots()); ++slot)
            doSlot(Yarrow::BasicSlot{slot}, Wren::syncPass, true);
        syncHead_ = queue_.head();
    }
    void poll() { take(~0U); }
    // Takes up to `max` notifications.
    void take(U32 max) {
        for (; max > 0; --max) {
            auto const taken = queue_.next();
            if (taken == Yarrow::QueueReader::Taken::none) return;
            if (taken == Yarrow::QueueReader::Taken::overtaken) {
                ++overtakes;
                walk();
                continue;
            }
            doSlot(queue_.slot(), queue_.sequence(), queue_.sequence() <= syncHead_);
            queue_.done();
        }
    }
    // The client hears that everything has gone.
    void flush() {
        for (U32 slot = 0; slot < store_->numSlots(); ++slot) store_->doFlushSlot(slot);
    }
    bool sound() const { return store_->sound(); }
    // Another generation is in the place of this one's table.
    bool replaced() const { return reader_.replaced() || queue_.orielId() != reader_.orielId(); }
    auto& queue() { return queue_; }
    // As if it were connected: the connection in its place holds the writer to what it promises.
    void counts() { queue_.countedFromIs(queue_.head()); }

    State known;
    std::vector<U32> deleted;
    U32 faults = 0; // deleted though not known, or torn
    U32 told = 0, overtakes = 0;

protected:
    virtual void doSlot(Yarrow::BasicSlot slot, Wren::Sequence sequence, bool compare) {
        store_->doSlot(slot, sequence, compare);
    }
    virtual void toldValue(Value const& value) {
        if (!value.whole()) ++faults;
        known[value.key().id] = value.stamp();
        ++told;
    }
    virtual void toldDelete(TestKey const& key) {
        if (known.erase(key.id) == 0) ++faults;
        deleted.push_back(key.id);
    }
    // What is mapped has been replaced, and does not change any more.
    bool frozen() const { return reader_.replaced(); }

private:
    void shadowValue(Value const& value) override { toldValue(value); }
    void shadowKey(TestKey const& key) override {
        bool found = false;
        Value into;
        Value const* const value = store_->lookup(key, found, &into);
        if (!found) ++faults;
        toldValue(*value);
    }
    void shadowDelete(TestKey const& key) override { toldDelete(key); }

    Ops ops_;
    Brisk::Reader::Counters counters_;
    typename T::Reader reader_;
    Yarrow::YarrowReader<Yarrow::BasicSlot> queue_;
    std::unique_ptr<Brisk::ShadowStoreBase<TestKey, Value>> store_;
    Wren::Sequence syncHead_ = Wren::syncPass;
};

// A connection that greets with no position yet: the writer drops nothing and keeps its corral.
template <class Writer>
Mem::Fd hold(Writer& writer) {
    auto& loop = *Dunlin::schedulerRootDunlin;
    auto const& name = Wren::BolsterAcceptSm::bolsterAcceptSm().socketName();
    Mem::Fd fd = dialed(name);
    Wren::Hello hello;
    hello.tableId = writer.queue().wren().tableId();
    hello.orielId = writer.orielId();
    if (!Wren::send(fd.get(), hello)) throw std::runtime_error("no greeting");
    for (int i = 0; i < 100 && writer.queue().wren().readers() == 0; ++i) loop.runOnce(0.01);
    if (writer.queue().wren().readers() == 0) throw std::runtime_error("no connection");
    return fd;
}

} // namespace Support
