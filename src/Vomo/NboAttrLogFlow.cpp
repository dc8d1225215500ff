#include "Vomo/NboAttrLogFlow.h"

#include "Vomo/EntityFrame.h"

#include <algorithm>

namespace Vomo::NboAttrLog {

void FlowOut::bookmarkIs(void* key) {
    FlowOut const* const rsc = this;
    PLAINASSERT(!rsc->bookmark(), "!rsc->bookmark()");
    bookmark_ = key;
}

FlowOut::~FlowOut() {
    for (State const& s : states_)
        for (void* const set : s.sets)
            if (set != nullptr) s.keys->free(set);
}

bool FlowOut::hasDirtyCollKeys() const {
    return std::any_of(states_.begin(), states_.end(), [](State const& s) {
        void const* const set = s.sets[static_cast<int>(Keys::dirty)];
        return set != nullptr && s.keys->any(set) != nullptr;
    });
}
bool FlowOut::isDirty() const {
    return hasDirtyCollKeys() ||
           std::any_of(states_.begin(), states_.end(), [](State const& s) { return s.dirty; });
}

void FlowOut::keyAdd(AttributeId id, Keys keys, void const* key) {
    State& s = state(id);
    void*& set = s.sets[static_cast<int>(keys)];
    if (set == nullptr) set = s.keys->make();
    s.keys->add(set, key);
}
bool FlowOut::keyDel(AttributeId id, Keys keys, void const* key) {
    State const& s = state(id);
    void* const set = s.sets[static_cast<int>(keys)];
    return set != nullptr && s.keys->del(set, key);
}
void const* FlowOut::keyAny(AttributeId id, Keys keys) const {
    State const& s = state(id);
    void const* const set = s.sets[static_cast<int>(keys)];
    return set == nullptr ? nullptr : s.keys->any(set);
}

FlowOut::State const& FlowOut::state(AttributeId id) const {
    auto const found =
        std::find_if(states_.begin(), states_.end(), [id](State const& s) { return s.id == id; });
    PLAINASSERT(found != states_.end(), "found != states_.end()");
    return *found;
}

void vomoFlowOutBookmarkEnq(FlowOut& flow, CollectionOps const& collection, void const* key) {
    void* const copy = collection.keyNew(key);
    flow.bookmarkIs(copy);
}

void* vomoFlowOutBookmarkDeq(FlowOut& flow) {
    return flow.bookmarkTake();
}

} // namespace Vomo::NboAttrLog
