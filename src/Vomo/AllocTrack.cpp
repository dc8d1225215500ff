#include "Vomo/AllocTrack.h"

#include <mutex>

namespace Vomo {
namespace {

struct Accounts {
    std::mutex mutex;
    std::vector<AllocTrackTypeInfo const*> list;
};
Accounts& accounts() {
    static auto* const it = new Accounts; // outlives every user
    return *it;
}

} // namespace

AllocTrackTypeInfo& AllocTrackTypeInfo::of(AllocTrackTypeInfo** slot, std::type_info const& type) {
    AllocTrackTypeInfo* info = __atomic_load_n(slot, __ATOMIC_ACQUIRE);
    if (info != nullptr) return *info;
    std::lock_guard const lock(accounts().mutex);
    if (*slot == nullptr) {
        accounts().list.push_back(info = new AllocTrackTypeInfo(type));
        __atomic_store_n(slot, info, __ATOMIC_RELEASE);
    }
    return **slot;
}

void AllocTrackTypeInfo::_trackAllocation(AllocTrackTypeInfo** slot, std::type_info const& type,
                                          std::size_t size, std::size_t) noexcept {
    of(slot, type).change(1, static_cast<S64>(size));
}
void AllocTrackTypeInfo::_trackDeallocation(AllocTrackTypeInfo** slot, std::size_t size) noexcept {
    if (*slot != nullptr) (*slot)->change(-1, -static_cast<S64>(size));
}
void AllocTrackTypeInfo::trackArrayAllocation(AllocTrackTypeInfo** slot, std::type_info const& type,
                                              std::size_t elementSize, std::size_t n) noexcept {
    of(slot, type).change(static_cast<S64>(n), static_cast<S64>(n * elementSize));
}
void AllocTrackTypeInfo::trackArrayDeallocation(AllocTrackTypeInfo** slot,
                                                std::type_info const& type, std::size_t elementSize,
                                                std::size_t n) noexcept {
    of(slot, type).change(-static_cast<S64>(n), -static_cast<S64>(n * elementSize));
}

std::vector<AllocTrackTypeInfo const*> AllocTrackTypeInfo::all() {
    std::lock_guard const lock(accounts().mutex);
    return accounts().list;
}

} // namespace Vomo
