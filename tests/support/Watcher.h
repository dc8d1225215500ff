// Watches an entity.
#pragma once

#include "Vomo/Entity.h"

#include <functional>
#include <utility>
#include <vector>

namespace Support {

using Heard = std::vector<U32>;
// Counts what it hears; may act on it.
struct Watcher : Vomo::PtrInterface::NotifieeConst {
    std::vector<U32> heard;
    std::function<void(U32, void const*)> act;
    int zero = 0;
    void onAttribute(U32 attrId, void const* key) override {
        heard.push_back(attrId);
        if (act) act(attrId, key);
    }
    void onZeroReferences() override { ++zero; }
    std::vector<U32> take() { return std::exchange(heard, {}); }
};

} // namespace Support
