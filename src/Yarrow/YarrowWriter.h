// The writing end of a table's notification queue. One thread of the one writing process uses it.
#pragma once

#include "Yarrow/BasicSlot.h"
#include "Yarrow/QueueWriter.h"

namespace Yarrow {

// S names what changed, P the place of its live entry.
template <class S, class P>
class YarrowWriter : public QueueWriter {
public:
    using QueueWriter::QueueWriter;

    void notify(S slot) { notifySlot(slot.index); }
    void notify(U32 slot) { notifySlot(slot); }
    void tombstone(S slot) { tombstoneSlot(slot.index); }
    void tombstone(U32 slot) { tombstoneSlot(slot); }
    P pos(U32 slot) const { return P{position(slot)}; }
};

} // namespace Yarrow
