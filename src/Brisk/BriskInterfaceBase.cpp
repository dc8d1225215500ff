#include "Brisk/BriskInterfaceBase.h"

#include "Dunlin/Exception.h"

namespace Brisk {

void BriskInterfaceBase::readOnlyWrite() {
    throw Dunlin::NoPermissionException("write to read-only Brisk table");
}

void BriskInterfaceBase::readOnlyRemove() {
    throw Dunlin::NoPermissionException("remove to read-only Brisk table");
}

void BriskInterfaceBase::checkVersionAnchor(Mem::VersionAnchor const& anchor) {
    PLAINASSERT(anchor.offset != Mem::VersionAnchor::none,
                "should not be called on a default-constructed VersionAnchor");
    if (anchor.offset != Mem::VersionAnchor::lost) {
        auto const* word =
            reinterpret_cast<U32 const*>(static_cast<char const*>(anchor.base) + anchor.offset);
        // Loads of the value that the anchor vouches for stay before this one.
        Mem::loadsStayBefore();
        if (Mem::peek(*word) == anchor.version) return;
    }
    throw Mem::VersionMismatchException("the value has changed since it was read");
}

} // namespace Brisk
