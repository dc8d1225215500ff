// The settings of one table, given when it is mounted.
#pragma once

#include "Brisk/BriskTypes.h"
#include "SharedMem/CollectionDescriptor.h"
#include "Yarrow/Format.h"

#include <fmt/core.h>

#include <string>

namespace Brisk {

struct MapDescriptor : Mem::CollectionDescriptor {
    MapDescriptor() = default;
    explicit MapDescriptor(U32 size) : initialSize(size) {}

    // Slots up to which a writer's table doubles; beyond it grows by a tenth. Not 0 for a writer.
    U32 initialSize = 0;
    BriskType type = BriskType::writer;
    bool localMem = false;      // private memory: no other process sees the table
    bool fixedSize = false;     // exactly `initialSize` slots, full when they are taken
    bool shrinkable = false;    // the slot file shrinks when the table has become mostly empty
    bool shrinkBuckets = false; // the bucket file does
    Yarrow::PruneMode pruneMode = Yarrow::PruneMode::acknowledged;
    U64 maxLag = 1U << 20;         // pruneMode bounded: changes that a shadow may be behind
    bool notifyDuringSync = false; // a shadow calls back for each key of its first sync too
    bool notifyOnFlush = true;     // a shadow calls back for each key when it is flushed
    bool heap = false;             // local memory from the heap
    bool trackMemory = false;
    bool cleanupFirst = false;
    bool asyncAlways = false;
    bool assertOnOrphanAccess = false;
    bool spare = false;
    bool prevValue = false;    // keep replaced values: refused by every table built here
    bool criticalTask = false; // long operations let critical-priority tasks run in between
    bool dumpToCore = false;   // the table's mappings go into core files

    friend bool operator==(MapDescriptor const& a, MapDescriptor const& b);
};

std::string toString(MapDescriptor const& descriptor);

} // namespace Brisk

template <>
struct fmt::formatter<Brisk::MapDescriptor> : fmt::formatter<std::string_view> {
    template <class Context>
    auto format(Brisk::MapDescriptor const& d, Context& context) const {
        return fmt::formatter<std::string_view>::format(toString(d), context);
    }
};
