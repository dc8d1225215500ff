// On which VLANs PIM and IGMP are enabled.
#pragma once

#include "Mroute/MrouteLibAttr.h"
#include "Vomo/Collections.h"

namespace MrouteLib {

// False is a member like any other: it is stored, not removed.
class PimEnabled : public Vomo::NamedEntity<PimEnabled> {
public:
    enum Attr : U32 { pimVlanEnabledAttr = 258, igmpVlanEnabledAttr };
    using NamedEntity::NamedEntity;
    static Vomo::Ptr<PimEnabled> PimEnabledIs(Vomo::String const& name) {
        return Vomo::newEntity<PimEnabled>(name);
    }

    using PimVlanEnabledMap =
        Vomo::ValueMap<PimEnabled, pimVlanEnabledAttr, Bridging::VlanId, bool, Vomo::LegacyHash>;
    using VomoPimVlanEnabled = PimVlanEnabledMap::Node;
    bool pimVlanEnabled(Bridging::VlanId vlan) const { return pimVlanEnabled_.at(vlan); }
    PimVlanEnabledMap const& pimVlanEnabled() const { return pimVlanEnabled_; }
    void pimVlanEnabledIs(Bridging::VlanId vlan, bool v) { pimVlanEnabled_.is(this, vlan, v); }
    bool pimVlanEnabledDel(Bridging::VlanId vlan) { return pimVlanEnabled_.del(this, vlan); }
    void pimVlanEnabledDelAll() { pimVlanEnabled_.delAll(this); }
    using IgmpVlanEnabledMap = Vomo::ValueMap<PimEnabled, igmpVlanEnabledAttr, Bridging::VlanId,
                                              bool, Vomo::SeededHash<0xA76B7368>>;
    using VomoIgmpVlanEnabled = IgmpVlanEnabledMap::Node;
    bool igmpVlanEnabled(Bridging::VlanId vlan) const { return igmpVlanEnabled_.at(vlan); }
    IgmpVlanEnabledMap const& igmpVlanEnabled() const { return igmpVlanEnabled_; }
    void igmpVlanEnabledIs(Bridging::VlanId vlan, bool v) { igmpVlanEnabled_.is(this, vlan, v); }
    bool igmpVlanEnabledDel(Bridging::VlanId vlan) { return igmpVlanEnabled_.del(this, vlan); }
    void igmpVlanEnabledDelAll() { igmpVlanEnabled_.delAll(this); }

private:
    friend EntityOf;
    friend Vomo::Describe<PimEnabled>;
    PimVlanEnabledMap pimVlanEnabled_;
    IgmpVlanEnabledMap igmpVlanEnabled_;
    mutable Vomo::NotifieeList notifiees_;
};
Vomo::Ptr<PimEnabled> pimEnabledFactory(Vomo::String const& name);

} // namespace MrouteLib
