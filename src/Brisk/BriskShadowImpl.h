// Definitions of BriskShadow; included only where a table is instantiated.
#pragma once

#include "Brisk/BriskMap.h"
#include "Brisk/BriskReaderImpl.h"
#include "Brisk/BriskShadow.h"
#include "Brisk/ShadowStoreImpl.h"

namespace Brisk {

template <class Ops>
BriskShadow<Ops>::BriskShadow(Dunlin::Platform::DebugHandler& handler, std::string const& name,
                              Ops const& ops, BriskMap<Ops>& map, U32 shadowFlags)
    : BriskShadowBase(handler, name.c_str(), shadowFlags), Interface(handler, ops),
      reader_(handler, name.c_str(), ops, &counters_),
      handle_(Dunlin::Platform::getDebugHandler("Brisk-DummyShadowNotifier", false)), map_(&map),
      store_(makeStore()) {}

template <class Ops>
auto BriskShadow<Ops>::makeStore() -> std::unique_ptr<Store> {
    bool const notifyOnFlush = (flags & notifyOnFlushFlag) != 0;
    if ((flags & keyShadowFlag) != 0)
        return std::make_unique<KeyShadowStore<Ops>>(debugHandler(), reader_, yarrowReader,
                                                     counters_, this->ops_, *this, notifyOnFlush);
    return std::make_unique<ShadowStore<ValueShadowSlot<Ops>>>(
        debugHandler(), reader_, yarrowReader, counters_, this->ops_, *this, notifyOnFlush);
}

template <class Ops>
BriskShadow<Ops>::~BriskShadow() {
    map_ = nullptr;
    stopAll();
    store_.reset();
    reader_.detach(false);
}

template <class Ops>
void BriskShadow<Ops>::abandon() {
    map_ = nullptr;
    stopAll();
    store_->disable();
    flushing_ = false;
    this->initializedIs(false);
    reader_.detach(false);
}

// ---- life ----

template <class Ops>
bool BriskShadow<Ops>::initialize(std::string const& event) {
    try {
        return doInitialize(event);
    } catch (Dunlin::CorruptionDetectedException const& error) {
        FMTRACE(debugHandler(), 0, "corruption detected: {}", error.message());
        corruptionDetected(error.message());
        takeBack();
        return false;
    } catch (...) {
        takeBack();
        throw;
    }
}

// An attach has failed in the midst of the walk: the client hears that what it was told is gone.
// What it raises now is traced; what ended the attach passes on.
template <class Ops>
void BriskShadow<Ops>::takeBack() {
    if (!this->initialized() || flushing_ || !map_) return;
    quietFlush_ = true;
    try {
        detach(true);
    } catch (std::exception const& error) {
        FMTRACE(debugHandler(), 0, "while an attach was taken back: {}", error.what());
    } catch (...) {
        FMTRACE(debugHandler(), 0, "while an attach was taken back: no exception was raised");
    }
    quietFlush_ = false;
}

template <class Ops>
bool BriskShadow<Ops>::doInitialize(std::string const& event) {
    if (this->initialized()) {
        stay();
        maybeConnect();
        return true;
    }
    if (!reader_.initialize(event)) {
        FMTRACE(debugHandler(), 0, "brisk.initialize() Failed");
        return false;
    }
    if (flushing_) {
        // The client hears the rest of what has gone before it hears of the new contents.
        quietFlush_ = true;
        Dunlin::FirstRaised raised;
        raised.run([&] { syncer.forceSyncCompletion(); });
        quietFlush_ = false;
        raised.rethrow();
    }
    // The former store may be further up the call stack, in one of its callbacks.
    retire(std::exchange(store_, makeStore()));
    synced = false;
    // The walk's callbacks may have detached the shadow again.
    if (store_->initialize() && initializeYarrow()) return this->initialized();
    reader_.detach(false);
    return false;
}

template <class Ops>
void BriskShadow<Ops>::syncComplete() {
    counters_.syncSequence = counters_.sequence = syncSequence;
    FMTRACE(debugHandler(), 1, "Synchronization complete, seq:{}", syncSequence);
    noteSyncComplete();
    Dunlin::FirstRaised raised;
    if (!synced) {
        synced = true;
        raised.run([&] { map_->shadowSynced(); });
    }
    // The client may have detached the shadow, or started over, in that callback.
    if (this->initialized() && syncer.done()) {
        maybeEnableYarrow();
        quiescedReported = quiesced();
        raised.run([&] { handleQuiesced(quiescedReported); });
    }
    raised.rethrow();
}

template <class Ops>
void BriskShadow<Ops>::detach(bool force) {
    auto& handler = debugHandler();
    if (!this->initialized() || flushing_) {
        FMTRACE(handler, 5, "already detached");
        if (mountStatus() != Mem::MountStatus::flushing) return;
        FMASSERT(syncer.mode() == SyncerMode::flush,
                 "expected Syncer in flush mode during asynchronous flush");
        FMASSERT(force, "expected only forced detach during asynchronous flush");
        syncer.forceSyncCompletion();
        return;
    }
    stopAll();
    reader_.detach(force);
    flushing_ = true;
    synced = false;
    Dunlin::FirstRaised raised;
    raised.run([&] { syncer.sync(store_->numSlots(), SyncerMode::flush, !force); });
    this->initializedIs(false);
    FMTRACE(handler, 2, "{} detached, force:{}", rootPath().text(), force);
    raised.rethrow();
}

template <class Ops>
void BriskShadow<Ops>::flushComplete() {
    FMTRACE(debugHandler(), 1, "Flush complete");
    store_->disable();
    flushing_ = false;
    if (this->initialized() || quietFlush_) return;
    map_->shadowFlushed();
}

template <class Ops>
Mem::MountStatus BriskShadow<Ops>::mountStatus() const {
    if (flushing_) return Mem::MountStatus::flushing;
    if (!this->initialized()) return Mem::MountStatus::unmounted;
    return synced ? Mem::MountStatus::synchronised : Mem::MountStatus::mounted;
}

template <class Ops>
void BriskShadow<Ops>::handleDisconnect() {
    yarrowReader.countedFromIs(Yarrow::QueueReader::notCounted);
    if (!yarrowEnabled && !wrenEnabled)
        FMTRACE(debugHandler(), 1,
                "disconnected while wren processing is disabled, syncer mode:{} done:{}",
                syncer.mode(), syncer.done());
    if (mountStatus() == Mem::MountStatus::flushing) return;
    if (wren.refused())
        map_->handleRefused();
    else
        map_->handleDisconnect();
}

template <class Ops>
void BriskShadow<Ops>::corruptionDetected(std::string const& message) {
    if (mountStatus() == Mem::MountStatus::flushing || !map_) return;
    map_->doCorruptionDetected(message);
}

template <class Ops>
void BriskShadow<Ops>::handleQuiesced(bool quiesced) {
    map_->callbacks().quiescedNotify(quiesced);
}

template <class Ops>
std::string BriskShadow<Ops>::dumpHeaders() const {
    return yarrowReader.headersToString() + reader_.dumpHeaders();
}

// ---- slots ----

template <class Ops>
bool BriskShadow<Ops>::doSlot(Yarrow::BasicSlot slot, Wren::Sequence sequence, bool compare) {
    if (sequence == Wren::syncPass) store_->prefetchWalked(slot.index);
    bool const taken = store_->doSlot(slot, sequence, compare);
    if (!taken) ++counters_.discardedSlots;
    return taken;
}

template <class Ops>
void BriskShadow<Ops>::doFlushSlot(U32 slot) {
    store_->doFlushSlot(slot);
}

template <class Ops>
void BriskShadow<Ops>::shadowValue(Value const& value) {
    map_->callbacks().valueNotify(value);
}

template <class Ops>
void BriskShadow<Ops>::shadowKey(Key const& key) {
    map_->callbacks().keyNotify(key);
}

template <class Ops>
void BriskShadow<Ops>::shadowDelete(Key const& key) {
    map_->callbacks().deleteNotify(key);
}

// ---- the interface ----

template <class Ops>
void BriskShadow<Ops>::notifyingIs(bool on) {
    FMTRACE(debugHandler(), 5, "notifying:{}", on);
    notifying = on;
    syncer.notifyingIs(on);
    wren.notifyingIs(on);
}

template <class Ops>
void BriskShadow<Ops>::yieldTimeIs(double const& seconds) {
    wren.yieldTimeIs(seconds);
    syncer.yieldTimeIs(seconds);
}

template <class Ops>
Reader::Counters BriskShadow<Ops>::readerCounters() {
    counters_.shadowMappedSize = store_->shadowMappedSize();
    counters_.orielMappedSize = store_->orielMappedSize();
    counters_.yarrowPrimaryMappedSize = yarrowReader.primaryMappedSize();
    counters_.yarrowSecondaryMappedSize = yarrowReader.secondaryMappedSize();
    counters_.sequencesSent = wren.sequencesSent();
    return reader_.readerCounters();
}

template <class Ops>
void BriskShadow<Ops>::validateVersionAnchor() const {
    store_->validateVersionAnchor();
}

template <class Ops>
Mem::CacheVersionAnchor BriskShadow<Ops>::getCacheVersionAnchor() const {
    return store_->getCacheVersionAnchor();
}

template <class Ops>
auto BriskShadow<Ops>::lookup(Key const& key, bool& found, void* out) const -> Value const* {
    return store_->lookup(key, found, out);
}

template <class Ops>
auto BriskShadow<Ops>::directLookup(Key const& key, bool& found, void* out) const -> Value const* {
    return store_->directLookup(key, found, out);
}

template <class Ops>
bool BriskShadow<Ops>::first(Value& value, IterHint& hint) const {
    return store_->first(0, value, hint);
}

template <class Ops>
bool BriskShadow<Ops>::next(Key const& key, Value& value, IterHint& hint) const {
    return store_->next(key, value, hint);
}

} // namespace Brisk
