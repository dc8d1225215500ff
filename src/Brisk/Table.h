// The front, the writer, the reader and the shadow of a table, for those who use instances that
// exist.
#pragma once

#include "Brisk/BriskDummy.h"
#include "Brisk/BriskMap.h"
#include "Brisk/BriskReader.h"
#include "Brisk/BriskShadow.h"
#include "Brisk/BriskWriter.h"
#include "Brisk/Operations.h"
#include "Yarrow/BasicSlot.h"
#include "Yarrow/YarrowWriter.h"

namespace Brisk {

// The policy bundle of a table of `Value`, keyed by what its member function `getter` returns.
template <class Key, class Value, auto getter>
using OpsOf =
    Ops<Key, Value, KeyOps<Key, Value, KeyRetrieval<Key, Value, getter>, Hash<Key, true>>,
        ValueOps<Key, Value, Marshall<Value>, Allocator<Value>>, SlotAllocator<Key, Value>,
        Yarrow::YarrowWriter<Yarrow::BasicSlot, YarrowPos>, NullPrevValueAnchor>;

} // namespace Brisk

// Promises that some source instantiates the table (BRISK_TABLE_INSTANCE in TableImpl.h).
#define BRISK_TABLE_EXTERN(OPS)                                                                    \
    extern template class Brisk::BriskWriter<OPS>;                                                 \
    extern template class Brisk::BriskReader<OPS>;                                                 \
    extern template class Brisk::BriskShadow<OPS>;                                                 \
    extern template class Brisk::BriskMap<OPS>
