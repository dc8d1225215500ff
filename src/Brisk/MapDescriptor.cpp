#include "Brisk/MapDescriptor.h"

#include <fmt/format.h>

#include <tuple>

namespace Brisk {
namespace {

auto fields(MapDescriptor const& d) {
    return std::tie(d.initialSize, d.type, d.localMem, d.fixedSize, d.shrinkable, d.shrinkBuckets,
                    d.pruneMode, d.maxLag, d.notifyDuringSync, d.notifyOnFlush, d.heap,
                    d.trackMemory, d.cleanupFirst, d.asyncAlways, d.assertOnOrphanAccess, d.spare,
                    d.prevValue, d.criticalTask, d.dumpToCore);
}

} // namespace

bool operator==(MapDescriptor const& a, MapDescriptor const& b) {
    return fields(a) == fields(b);
}

std::string toString(MapDescriptor const& d) {
    return fmt::format(
        "size:{} type:{} localMem:{:d} fixedSize:{:d} shrinkable:{:d} shrinkBuckets:{:d} "
        "pruneMode:{} maxLag:{} notifyDuringSync:{:d} notifyOnFlush:{:d} heap:{:d} "
        "trackMemory:{:d} "
        "cleanupFirst:{:d} asyncAlways:{:d} assertOnOrphanAccess:{:d} spare:{:d} prevValue:{:d} "
        "criticalTask:{:d} dumpToCore:{:d}",
        d.initialSize, static_cast<U32>(d.type), d.localMem, d.fixedSize, d.shrinkable,
        d.shrinkBuckets, static_cast<U32>(d.pruneMode), d.maxLag, d.notifyDuringSync,
        d.notifyOnFlush, d.heap, d.trackMemory, d.cleanupFirst, d.asyncAlways,
        d.assertOnOrphanAccess, d.spare, d.prevValue, d.criticalTask, d.dumpToCore);
}

} // namespace Brisk
