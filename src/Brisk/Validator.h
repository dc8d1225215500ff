// Proves a whole table sound before a writer goes on with files that an earlier process left, and
// on demand. It crosses three structures against each other: the list reached through the buckets,
// the free list, and the notification queue. It repairs nothing, and runs on the writer's thread
// with no operation going on.
#pragma once

#include "Dunlin/Trace.h"
#include "Gantry/Local.h"

#include <string>

namespace Brisk {

template <class Ops>
class BriskWriter;

template <class Ops>
class Validator {
public:
    // Sized for the writer's capacity. Raises MemoryResourceException.
    Validator(Dunlin::Platform::DebugHandler& handler, BriskWriter<Ops>& writer);

    // True if the table is sound; otherwise `message()` says what is wrong, or
    // CorruptionDetectedException, MemoryResourceException do.
    bool doValidate(U32 orielId);
    // The free list; part of the above.
    bool walkFreeSlots();
    // Called for each slot that a walk of the list visits. Raises CorruptionDetectedException.
    void markOccupied(U32 slotId);

    std::string const& message() const { return message_; }

private:
    bool walkOccupied();
    bool walkQueue();
    template <class... A>
    bool fail(fmt::format_string<A...> format, A&&... args);

    Dunlin::Platform::DebugHandler* handler_;
    BriskWriter<Ops>* writer_;
    U32 occupiedCount_ = 0;
    U32 freeCount_ = 0;
    U32 positionCount_ = 0;
    Gantry::Local occupied_, free_, positions_; // one byte each: seen
    std::string message_;
};

} // namespace Brisk
