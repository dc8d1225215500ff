// Whether an interface is a multicast boundary: what the FIB's status holds for each.
#pragma once

#include "Vomo/Entity.h"
#include "Vomo/Fwd.h"

namespace Kelpie {
class IntfBoundaryStatus;
} // namespace Kelpie

namespace Vomo {
extern "C" VomoModule const _IntfBoundaryStatus_6d8ffdafd8f4e068_vomoModule;
struct IntfBoundaryStatusModule : TypeList<Kelpie::IntfBoundaryStatus> {
    static constexpr VomoModule const* record = &_IntfBoundaryStatus_6d8ffdafd8f4e068_vomoModule;
};
template <TypeOf<IntfBoundaryStatusModule> T>
struct IdOf<T> : PlaceIn<T, IntfBoundaryStatusModule> {};
} // namespace Vomo

namespace Kelpie {

// Named by its interface.
class IntfBoundaryStatus : public Vomo::NamedEntity<IntfBoundaryStatus> {
public:
    enum Attr : U32 { boundaryAttr = 258 };

    using NamedEntity::NamedEntity;
    static Vomo::Ptr<IntfBoundaryStatus> IntfBoundaryStatusIs(Vomo::String const& name) {
        return Vomo::newEntity<IntfBoundaryStatus>(name);
    }

    bool boundary() const { return boundary_; }
    void boundaryIs(bool v) { assign(boundary_, v, boundaryAttr); }

private:
    friend EntityOf;
    friend Vomo::Describe<IntfBoundaryStatus>;
    bool boundary_ = false;
    mutable Vomo::NotifieeList notifiees_;
};

Vomo::Ptr<IntfBoundaryStatus> intfBoundaryStatusFactory(Vomo::String const& name);

} // namespace Kelpie
