// Base of the mount-time settings of a table. A front casts it down to the settings it knows;
// another kind of collection's settings fail with std::bad_cast.
#pragma once

namespace Mem {

class CollectionDescriptor {
public:
    virtual ~CollectionDescriptor() = default;
};

} // namespace Mem
