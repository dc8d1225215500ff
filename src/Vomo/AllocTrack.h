// Counts of what is allocated, by class: a leak shows as a count that does not return.
#pragma once

#include "Dunlin/Types.h"

#include <sys/single_threaded.h>
#include <typeinfo>
#include <vector>

namespace Vomo {

// One class's account. A class has a static slot, null until its first allocation. Any thread. A
// call that fails ends the process.
class AllocTrackTypeInfo {
public:
    static void _trackAllocation(AllocTrackTypeInfo** slot, std::type_info const& type,
                                 std::size_t size, std::size_t align) noexcept;
    static void _trackDeallocation(AllocTrackTypeInfo** slot, std::size_t size) noexcept;
    static void trackArrayAllocation(AllocTrackTypeInfo** slot, std::type_info const& type,
                                     std::size_t elementSize, std::size_t n) noexcept;
    static void trackArrayDeallocation(AllocTrackTypeInfo** slot, std::type_info const& type,
                                       std::size_t elementSize, std::size_t n) noexcept;

    // All accounts of the process.
    static std::vector<AllocTrackTypeInfo const*> all();
    char const* typeName() const { return type_->name(); }
    // Objects, or elements of arrays, that are there now, and their bytes.
    S64 live() const { return __atomic_load_n(&live_, __ATOMIC_RELAXED); }
    S64 liveBytes() const { return __atomic_load_n(&bytes_, __ATOMIC_RELAXED); }
    static S64 live(AllocTrackTypeInfo const* slot) { return slot == nullptr ? 0 : slot->live(); }

private:
    explicit AllocTrackTypeInfo(std::type_info const& type) : type_(&type) {}
    static AllocTrackTypeInfo& of(AllocTrackTypeInfo** slot, std::type_info const& type);
    void change(S64 count, S64 bytes) {
        if (__libc_single_threaded) { // then a locked addition only costs time
            __atomic_store_n(&live_, live() + count, __ATOMIC_RELAXED);
            __atomic_store_n(&bytes_, liveBytes() + bytes, __ATOMIC_RELAXED);
            return;
        }
        __atomic_fetch_add(&live_, count, __ATOMIC_RELAXED);
        __atomic_fetch_add(&bytes_, bytes, __ATOMIC_RELAXED);
    }

    std::type_info const* type_;
    S64 live_ = 0;
    S64 bytes_ = 0;
};

} // namespace Vomo
