// The implementation of a table for a process that wants to be told of changes: the shared-memory
// reader, the private store, the queue of changed slots and the doorbell.
//
// It promises a client three things. After a first synchronisation its picture equals the table.
// Each later change comes as one callback. And when the writer goes away, the client hears, key by
// key, that everything is gone, unless it asked not to.
#pragma once

#include "Brisk/BriskShadowBase.h"
#include "Brisk/ShadowStore.h"

namespace Brisk {

template <class OpsType>
class BriskMap;

template <class OpsType>
class BriskShadow : public BriskShadowBase,
                    public BriskInterface<OpsType>,
                    public ShadowListener<typename OpsType::Key, typename OpsType::Value> {
public:
    using Ops = OpsType;
    using Interface = BriskInterface<Ops>;
    using Key = typename Ops::Key;
    using Value = typename Ops::Value;
    using Interface::debugHandler;

    BriskShadow(Dunlin::Platform::DebugHandler& handler, std::string const& name, Ops const& ops,
                BriskMap<Ops>& map, U32 flags);
    ~BriskShadow() override;

    bool initialize(std::string const& event) override;
    void detach(bool force) override;
    void abandon() override;

    // What the client can see, not what the shared table holds.
    U32 members() const override { return counters_.occupiedSlots; }
    U32 buckets() const override { return reader_.buckets(); }
    U32 minSize() const override { return 0; }
    U32 maxSize() const override { return reader_.maxSize(); }
    U32 capacity() const override { return reader_.capacity(); }
    BriskType type() const override { return BriskType::valueShadow; }
    // Synchronised, with no walk under way and nothing left in the queue.
    bool quiesced() const override { return synced && syncer.done() && yarrowReader.quiesced(); }
    bool connected() const override { return wren.connected(); }
    Reader::Counters readerCounters() override;
    bool takeRest() override { return BriskShadowBase::takeRest(); }
    void notifyingIs(bool on) override;
    void yieldTimeIs(double const& seconds) override;
    U64 sequence() const override { return counters_.sequence; }
    Mem::YokeRootPath rootPath() const override { return reader_.rootPath(); }
    std::string briskName() const override { return reader_.briskName(); }
    Mem::MountStatus mountStatus() const override;
    SharedMem::OrielId orielId() const override { return reader_.orielId(); }
    void validateVersionAnchor() const override;
    Mem::CacheVersionAnchor getCacheVersionAnchor() const override;

    Value const* lookup(Key const& key, bool& found, void* out) const override;
    bool first(Value& value, IterHint& hint) const override;
    bool next(Key const& key, Value& value, IterHint& hint) const override;
    Value const* directLookup(Key const& key, bool& found, void* out) const override;

    bool doSlot(Yarrow::BasicSlot slot, Wren::Sequence sequence, bool compare) override;
    // Test hook.
    ShadowStoreBase<Key, Value> const* store() const { return store_.get(); }

private:
    using Store = ShadowStoreBase<Key, Value>;

    std::unique_ptr<Store> makeStore();
    bool doInitialize(std::string const& event);
    void takeBack();
    void handleQuiesced(bool quiesced) override;
    std::string dumpHeaders() const override;
    void corruptionDetected(std::string const& message) override;
    void handleDisconnect() override;
    void restTaken() override { map_->shadowRestTaken(); }
    void syncComplete() override;
    void flushComplete() override;
    void doFlushSlot(U32 slot) override;
    void prefetchSlot(U32 slot) const override { store_->prefetchNotified(slot); }
    U32 localCapacity() const override { return store_->numSlots(); }
    bool resize() override { return reader_.doResize(); }
    bool runtime() const override { return this->initialized(); }
    U32 sharedCapacity() const override { return reader_.capacity(); }
    SharedMem::OrielId sharedOrielId() const override { return reader_.orielId(); }
    void markRuntime() override { this->initializedIs(true); }

    void shadowValue(Value const& value) override;
    void shadowKey(Key const& key) override;
    void shadowDelete(Key const& key) override;

    Reader::Counters counters_;
    BriskReader<Ops> reader_;
    std::shared_ptr<Dunlin::Platform::DebugHandler> handle_;
    // Null once the front has gone. By then doorbell, walk and store have ended, and tell nothing;
    // but a client may raise from the very callback in which it ends the front.
    BriskMap<Ops>* map_;
    std::unique_ptr<Store> store_; // an empty one until there is a table
    bool flushing_ = false;
    bool quietFlush_ = false; // the front, which attaches the shadow, hears nothing of the flush
};

} // namespace Brisk
