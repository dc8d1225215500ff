// Definitions of BriskReader; included only where a table is instantiated.
#pragma once

#include "Brisk/BriskReader.h"
#include "Brisk/SlotReaderImpl.h"
#include "Brisk/Util.h"
#include "BriskCore/ReaderHashMapImpl.h"
#include "SharedMem/CpuSupport.h"

namespace Brisk {

template <class Ops>
BriskReader<Ops>::BriskReader(Dunlin::Platform::DebugHandler& handler, char const* name,
                              Ops const& ops, Reader::Counters* counters)
    : Interface(handler, ops), name_(name), rootPath_(name_),
      ownCounters_(counters ? nullptr : std::make_unique<Reader::Counters>()),
      counters_(counters ? counters : ownCounters_.get()),
      table_(handler, rootPath_, this->ops_, *counters_), map_(handler, rootPath_, *this) {}

template <class Ops>
BriskReader<Ops>::~BriskReader() {
    detach(false);
}

template <class Ops>
bool BriskReader<Ops>::initialize(std::string const& event) {
    auto& handler = this->debugHandler();
    if (!Mem::Atomics::checkCpuSupport())
        throw Dunlin::InvalidInitializeException("Hardware does not support Atomics");
    if (this->initialized()) return true;
    if (!map_.buckets.attach()) {
        FMTRACE(handler, 0, "failed to attach to buckets");
        return false;
    }
    if (!table_.attach()) {
        FMTRACE(handler, 0, "failed to attach to slots");
        return false;
    }
    SharedMem::OrielFile const orielFile(handler, rootPath_, false);
    orielId_ = orielFile.read();
    double const mtime = orielFile.mtime();
    if (orielId_ == 0) {
        FMTRACE(handler, 0, "failed to read oriel file\n{}", dumpHeaders());
        return false;
    }
    std::string error;
    if (!map_.buckets.validate(orielId_, error)) {
        FMTRACE(handler, 0, "failed to validate buckets\n{}", dumpHeaders());
        Util::writeCorruptionFile(handler, name_, error);
        return false;
    }
    Header copy;
    std::size_t const fileSize = table_.snapshot(copy);
    if (!copy.validate(handler, fileSize, orielId_, nullptr, error)) {
        FMTRACE(handler, 0, "failed to validate slots\n{}", dumpHeaders());
        Util::writeCorruptionFile(handler, name_, error);
        return false;
    }
    this->initializedIs(true);
    FMTRACE(handler, 1, "success {} capacity:{} orielId:{} mtime:{} delay:{} event:{}",
            rootPath_.text(), copy.numSlots.value, orielId_, mtime, Util::secondsSince(mtime),
            event);
    return true;
}

template <class Ops>
void BriskReader<Ops>::detach(bool) {
    auto& handler = this->debugHandler();
    if (!this->initialized()) {
        FMTRACE(handler, 5, "already detached");
        return;
    }
    map_.buckets.detach();
    FMTRACE(handler, 5, "delegating to SlotTable::detach()");
    table_.detach();
    this->initializedIs(false);
    FMTRACE(handler, 1, "{} detached", rootPath_.text());
}

template <class Ops>
U32 BriskReader<Ops>::members() const {
    return table_.header ? Mem::peek(table_.header->occupiedSlots) : 0;
}

template <class Ops>
U32 BriskReader<Ops>::maxSize() const {
    return table_.header ? Mem::peek(table_.header->maxSize) : 0;
}

template <class Ops>
Reader::Counters BriskReader<Ops>::readerCounters() {
    counters_->slotsMappedSize = table_.memory.mappedSize();
    counters_->bucketsMappedSize = map_.buckets.mappedSize();
    return *counters_;
}

template <class Ops>
void BriskReader<Ops>::validateVersionAnchor() const {
    this->checkVersionAnchor(table_.anchor);
}

template <class Ops>
std::string BriskReader<Ops>::dumpHeaders() const {
    return Dunlin::formatText(
        "Brisk table \"{}\"\n\n\n{}\n\n{}\n\n",
        fmt::make_format_args(name_,
                              table_.header ? table_.header->toString() : std::string("not mapped"),
                              map_.buckets.headersToString()));
}

template <class Ops>
bool BriskReader<Ops>::doResize() const {
    bool const slots = table_.doResize(orielId_);
    if (map_.buckets.buckets && !map_.buckets.current()) {
        map_.buckets.doResize();
        return true;
    }
    return slots;
}

// The reads of a walk stay before these: what it has found is good if no resize shows now.
template <class Ops>
bool BriskReader<Ops>::unchanged() const {
    if (!table_.header) return true;
    Mem::loadsStayBefore();
    return table_.current() && map_.buckets.current();
}

template <class Ops>
template <class Walk, class OnRemap>
auto BriskReader<Ops>::undisturbed(Walk walk, OnRemap onRemap) const {
    for (;;) {
        try {
            auto const result = walk();
            if (unchanged()) [[likely]]
                return result;
            doResize();
        } catch (Dunlin::CorruptionDetectedException const& e) {
            // Expected where the table was resized beneath the walk; else it is for the caller.
            FMTRACE(this->debugHandler(), 8, "{}", e.message());
            if (!doResize()) throw;
        }
        onRemap();
    }
}

template <class Ops>
auto BriskReader<Ops>::lookup(Key const& key, bool& found, void* out) const -> Value const* {
    ++counters_->lookups;
    Value const* const value =
        undisturbed([&] { return map_.lookup(key, found, out); }, Dunlin::noop);
    if (found) [[likely]]
        return value;
    table_.resetAnchor();
    if (out) Ops::copyValue(out, &Ops::type_default());
    return value;
}

template <class Ops>
bool BriskReader<Ops>::first(Value& value, IterHint& hint) const {
    bool const found = undisturbed([&] { return map_.first(0, value, hint); }, Dunlin::noop);
    if (!found) {
        table_.resetAnchor();
        Ops::copyValue(&value, &Ops::type_default());
    }
    return found;
}

template <class Ops>
bool BriskReader<Ops>::next(Key const& keyIs, Value& value, IterHint& hint) const {
    Key const key = keyIs; // may lie inside `value` (H-link-4)
    // After a re-mapping, slot and bucket numbers of the hint may mean other things: go by the key.
    bool const found = undisturbed([&] { return map_.next(key, value, hint); },
                                   [&] { hint.bucketIndex = IterHint{}.bucketIndex; });
    if (!found) table_.resetAnchor();
    return found;
}

template <class Ops>
bool BriskReader<Ops>::getValue(U32 slotIndex, Value& value, void* out) const {
    auto const seen = undisturbed([&] { return table_.getValue(slotIndex, &value); }, Dunlin::noop);
    // Occupied comes first: a slot that is being filled shows another slot's value (H-slot-3).
    bool const occupied = (seen.version & occupiedBit) != 0;
    if (!occupied) {
        table_.resetAnchor();
        Ops::copyValue(&value, &Ops::type_default());
    }
    if (out) Ops::copyValue(out, &value);
    return occupied;
}

template <class Ops>
bool BriskReader<Ops>::safeValue(U32 slotIndex, Value& value, void* out) const {
    auto& handler = this->debugHandler();
    U32 const live = table_.header ? Mem::observe(table_.header->numSlots).value : 0;
    if (slotIndex >= live) {
        FMTRACE(handler, 8, "slotIndex:{} shmemCapacity:{}, returning not found", slotIndex, live);
    } else {
        try {
            return getValue(slotIndex, value, out);
        } catch (Dunlin::CorruptionDetectedException const& e) {
            FMTRACE(handler, 0, "unable to retrieve slotIndex:{}, returning not found", slotIndex);
            FMTRACE(handler, 8, "{}", e.message());
        }
    }
    table_.resetAnchor();
    return false;
}

} // namespace Brisk
