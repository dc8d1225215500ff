// Version words of shared memory: what a holder of a value keeps to ask later whether it is still
// the same, and the pair of version and value that changes by one store.
#pragma once

#include "Dunlin/Exception.h"
#include "SharedMem/Atomics.h"

namespace Mem {

// A stale anchor: the value it was taken for has changed or gone.
class VersionMismatchException : public Dunlin::Exception {
    using Exception::Exception;
};

// The version word of a value as it was read, and where it stands: `offset` bytes behind `base`.
struct VersionAnchor {
    // No value was read yet, or the last lookup found nothing.
    static constexpr U32 none = 0xFFFFFFFE;
    // The word's place was given up by a shrink.
    static constexpr U32 lost = 0xFFFFFFFF;

    U32 version = 0;
    U32 offset = none;
    void const* base = nullptr;
};

// The same without the address, in one word: version in the low half, offset in the high half.
using CacheVersionAnchor = U64;
constexpr CacheVersionAnchor cacheVersionAnchor(VersionAnchor const& anchor) {
    return anchor.version | U64{anchor.offset} << 32;
}

// A value in shared memory with its version in front. Both change by one 8-byte store, the version
// by 1 each time (it wraps), so a reader tells a change from a value that came back.
template <class T>
struct alignas(8) VersionedRef {
    U32 version;
    T value;

    // Writer only: nobody else stores the word, so its own load needs no order. The release store
    // pairs with `observed` of the readers: who sees the new version sees all stores before it.
    void valueIs(T newValue) {
        VersionedRef const old = peek(*this);
        publish(*this, VersionedRef{old.version + 1, newValue});
    }
    VersionedRef observed() const { return observe(*this); }

    friend bool operator==(VersionedRef const&, VersionedRef const&) = default;
};
static_assert(sizeof(VersionedRef<unsigned>) == 8 && alignof(VersionedRef<unsigned>) == 8);

} // namespace Mem
