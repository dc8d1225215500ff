// The sender's state for one entity on one connection: how far a resync is, and what has changed
// since.
//
// For each collection it keeps the keys that have yet to be sent; sets of keys are reached through
// their KeySetOps.
#pragma once

#include "Vomo/Entity.h"

#include <utility>
#include <vector>

namespace Vomo {
struct CollectionOps;
struct KeySetOps;

namespace NboAttrLog {

using AttributeId = U32;

class FlowOut : public PtrInterface, public Tracked<FlowOut> {
public:
    FlowOut() = default;
    ~FlowOut() override;
    // A key of a collection has changed and was not sent.
    virtual bool hasDirtyCollKeys() const;

    // The attribute that the resync is at; 0 at the start and when it is done.
    AttributeId attributeId() const { return attributeId_; }
    void attributeIdIs(AttributeId id) { attributeId_ = id; }
    // The key at which the interrupted walk of that attribute goes on; null when none is. The copy
    // belongs to who takes it out; the entity type's `freeResyncState` frees it.
    void* bookmark() const { return bookmark_; }
    void bookmarkIs(void* key);
    void* bookmarkTake() { return std::exchange(bookmark_, nullptr); }

    // The peer has been sent the attribute.
    bool vomoHasSynced(AttributeId id) const { return state(id).synced; }
    void vomoHasSyncedIs(AttributeId id, bool synced) { state(id).synced = synced; }
    // A scalar has changed and was not sent.
    bool vomoIsDirty(AttributeId id) const { return state(id).dirty; }
    void vomoIsDirtyIs(AttributeId id, bool dirty) { state(id).dirty = dirty; }
    bool isDirty() const;

    // A walk is to stop behind the member that it is at.
    static constexpr U8 stopRequestBit = 1 << 3;
    bool stopRequest() const { return (stateByte_ & stopRequestBit) != 0; }
    void stopRequestIs(bool stop) {
        stateByte_ =
            static_cast<U8>(stop ? stateByte_ | stopRequestBit : stateByte_ & ~stopRequestBit);
    }

    // An attribute that is sent; each once, before its state is asked for. Of a collection: `keys`.
    void attributeNew(AttributeId id, bool synced, KeySetOps const* keys) {
        states_.push_back({id, synced, false, keys, {}});
    }
    // The keys of a collection: those that have changed and were not sent; and, of children, those of
    // them that the peer holds another child for, which has left here. The peer is told so before it
    // hears of the one that has its place now.
    enum class Keys { dirty, ephemeral };
    void keyAdd(AttributeId id, Keys keys, void const* key);
    bool keyDel(AttributeId id, Keys keys, void const* key); // false if it was not there
    // Any of them; null if there is none.
    void const* keyAny(AttributeId id, Keys keys) const;

private:
    struct State {
        AttributeId id;
        bool synced;
        bool dirty;
        KeySetOps const* keys; // null: no collection
        void* sets[2];         // by Keys; null until the first key comes
    };
    State& state(AttributeId id) { return const_cast<State&>(std::as_const(*this).state(id)); }
    State const& state(AttributeId id) const;

    AttributeId attributeId_ = 0;
    void* bookmark_ = nullptr;
    U8 stateByte_ = 0;
    std::vector<State> states_;
};

// Leaves a copy of the key as the bookmark; there must be none.
void vomoFlowOutBookmarkEnq(FlowOut& flow, CollectionOps const& collection, void const* key);
// Takes the bookmark out, for the collection to free; null if there is none.
void* vomoFlowOutBookmarkDeq(FlowOut& flow);

} // namespace NboAttrLog
} // namespace Vomo
