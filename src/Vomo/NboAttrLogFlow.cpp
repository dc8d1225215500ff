#include "Vomo/NboAttrLogFlow.h"

#include "Vomo/EntityFrame.h"

#include <algorithm>

namespace Vomo::NboAttrLog {

void FlowOut::bookmarkIs(void* key) {
    FlowOut const* const rsc = this;
    PLAINASSERT(!rsc->bookmark(), "!rsc->bookmark()");
    bookmark_ = key;
}

bool FlowOut::isDirty() const {
    return hasDirtyCollKeys() ||
           std::any_of(states_.begin(), states_.end(), [](State const& s) { return s.dirty; });
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
