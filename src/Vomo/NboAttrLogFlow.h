// The sender's state for one entity on one connection: how far a resync is, and what has changed
// since.
//
// The class of an entity with collections has a FlowOut of its own, which adds a set of keys for each
// of them.
#pragma once

#include "Vomo/Entity.h"

#include <utility>
#include <vector>

namespace Vomo {
struct CollectionOps;

namespace NboAttrLog {

using AttributeId = U32;

class FlowOut : public PtrInterface, public Tracked<FlowOut> {
public:
    FlowOut() = default;
    // A key of a collection has changed and was not sent.
    virtual bool hasDirtyCollKeys() const { return false; }

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

    // An attribute that is sent; each once, before its state is asked for.
    void attributeNew(AttributeId id, bool synced) { states_.push_back({id, synced, false}); }

private:
    struct State {
        AttributeId id;
        bool synced;
        bool dirty;
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
