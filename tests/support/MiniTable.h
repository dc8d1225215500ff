// The least table that a queue can announce: numbers in shared memory. A writer counts one up and
// announces its slot; a reader keeps a copy by the queue alone, and walks when it was overtaken.
#pragma once

#include "SharedMem/Atomics.h"
#include "Wren/ReaderWrenSm.h"
#include "Yarrow/YarrowReader.h"
#include "Yarrow/YarrowWriter.h"

#include <functional>
#include <stdexcept>
#include <sys/mman.h>
#include <vector>

namespace Support {

using Writer = Yarrow::YarrowWriter<Yarrow::BasicSlot, Brisk::YarrowPos>;

// Shared between the processes that fork after it was made.
class Values {
public:
    explicit Values(U32 size) : size_(size) {
        void* const base = ::mmap(nullptr, size * sizeof(U64), PROT_READ | PROT_WRITE,
                                  MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (base == MAP_FAILED) throw std::runtime_error("mmap");
        values_ = static_cast<U64*>(base);
    }
    ~Values() { ::munmap(values_, size_ * sizeof(U64)); }
    Values(Values const&) = delete;
    Values& operator=(Values const&) = delete;
    U32 size() const { return size_; }
    U64 get(U32 slot) const { return Mem::observe(values_[slot]); }
    void change(U32 slot) { Mem::publish(values_[slot], Mem::peek(values_[slot]) + 1); }

private:
    U64* values_;
    U32 size_;
};

// What a reader keeps.
class Copy {
public:
    Copy(Values const& values, Yarrow::YarrowReader<Yarrow::BasicSlot>& queue)
        : values_(values), queue_(queue), known_(values.size()) {}

    // The position first, then the walk, then the queue from that position on.
    void walk() {
        Wren::Sequence const from = queue_.position();
        for (U32 slot = 0; slot < values_.size(); ++slot) known_[slot] = values_.get(slot);
        queue_.lastIs(from);
        ++walks;
    }
    // Takes up to `max` notifications; true if none is left.
    bool drain(U64 max = ~0ULL) {
        while (max-- > 0) {
            switch (queue_.next()) {
            case Yarrow::QueueReader::Taken::none:
                return true;
            case Yarrow::QueueReader::Taken::overtaken:
                walk();
                break;
            case Yarrow::QueueReader::Taken::entry:
                known_[queue_.slot().index] = values_.get(queue_.slot().index);
                queue_.done();
                ++taken;
            }
        }
        return false;
    }
    bool exact() const {
        for (U32 slot = 0; slot < values_.size(); ++slot)
            if (known_[slot] != values_.get(slot)) return false;
        return true;
    }
    U64 walks = 0, taken = 0;

private:
    Values const& values_;
    Yarrow::YarrowReader<Yarrow::BasicSlot>& queue_;
    std::vector<U64> known_;
};

// The same behind the doorbell.
class MiniReader : public Wren::ReaderClient {
public:
    MiniReader(Dunlin::Platform::DebugHandler& trace, Mem::RootPath const& path,
               Values const& values, SharedMem::OrielId oriel)
        : queue(trace, path), copy(values, queue), wren(trace, *this) {
        if (!queue.attach(oriel)) throw std::runtime_error("no queue");
    }
    // Greets first, so that the writer holds back pruning, then walks.
    bool start(SharedMem::BolsterInfo const& writer) {
        bool const connected = wren.connect(writer);
        copy.walk();
        synced = true;
        wren.enable();
        return connected;
    }

    U32 wrenOrielId() const override { return queue.orielId(); }
    U32 wrenIncarnation() const override { return queue.incarnation(); }
    Wren::Sequence wrenPosition() const override { return queue.last(); }
    Wren::Sequence wrenHead() const override { return queue.head(); }
    bool wrenSynced() const override { return synced; }
    bool wrenDrain(double) override {
        auto const then = onDrain; // which may end this object
        bool const drained = copy.drain(1000);
        then();
        return drained;
    }
    void wrenWelcome(Wren::Welcome const& message) override { welcome = message; }
    void handleDisconnect() override { ++disconnects; }
    void wrenRetry() override {}

    Yarrow::YarrowReader<Yarrow::BasicSlot> queue;
    Copy copy;
    std::function<void()> onDrain = Dunlin::noop;
    bool synced = false;
    int disconnects = 0;
    Wren::Welcome welcome;
    Wren::ReaderWrenSm wren;
};

} // namespace Support
