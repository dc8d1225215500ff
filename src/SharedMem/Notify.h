// The callbacks of a table's client. A front that synchronises silently puts `noop` in the place of
// the first three and keeps the client's own in the saved copies until the synchronisation is done.
#pragma once

#include "Dunlin/Trace.h"

#include <functional>

namespace Mem {

template <class Key, class Value>
struct Notify {
    std::function<void(Value const&)> valueNotify = Dunlin::noop;
    std::function<void(Key const&)> keyNotify = Dunlin::noop;
    std::function<void(Key const&)> deleteNotify = Dunlin::noop;
    std::function<void()> mountStatusNotify = Dunlin::noop;
    std::function<void(bool)> quiescedNotify = Dunlin::noop;

    std::function<void(Value const&)> savedValueNotify = Dunlin::noop;
    std::function<void(Key const&)> savedKeyNotify = Dunlin::noop;
    std::function<void(Key const&)> savedDeleteNotify = Dunlin::noop;
};

} // namespace Mem
