// The directory through which readers find the route tables of each VRF.
#pragma once

#include "L3/VrfName.h"
#include "Mroute/MfibBriskTypes.h"
#include "Vomo/Collections.h"

namespace Brisk::Multicast::Fib {

// Where the tables of one VRF are mounted.
class MfibDirColl : public Vomo::KeyedEntity<MfibDirColl, L3::VrfName> {
public:
    enum Attr : U32 { vrfNameAttr = 258, briskUrlAttr, bitMapperBriskUrlAttr };
    using KeyedEntity::KeyedEntity;
    static Vomo::Ptr<MfibDirColl> MfibDirCollIs(L3::VrfName const& vrfName) {
        return Vomo::newEntity<MfibDirColl>(vrfName);
    }

    L3::VrfName const& vrfName() const { return key_; }
    // Of the route tables.
    Vomo::String const& briskUrl() const { return briskUrl_; }
    void briskUrlIs(Vomo::String const& v) { assign(briskUrl_, v, briskUrlAttr); }
    // Of the bit mapper's tables.
    Vomo::String const& bitMapperBriskUrl() const { return bitMapperBriskUrl_; }
    void bitMapperBriskUrlIs(Vomo::String const& v) {
        assign(bitMapperBriskUrl_, v, bitMapperBriskUrlAttr);
    }

private:
    friend EntityOf;
    friend Vomo::Describe<MfibDirColl>;
    Vomo::String briskUrl_;
    Vomo::String bitMapperBriskUrl_;
    mutable Vomo::NotifieeList notifiees_;
};

class MfibDir : public Vomo::NamedEntity<MfibDir> {
public:
    enum Attr : U32 { dirCollAttr = 258, mountPathAttr };
    using NamedEntity::NamedEntity;
    static Vomo::Ptr<MfibDir> MfibDirIs(Vomo::String const& name) {
        return Vomo::newEntity<MfibDir>(name);
    }
    // "routing/multicast/fib", "routing6/multicast/fib". Any other family ends the process.
    static Vomo::String mountPath(Kelpie::AddressFamily af);

    using DirCollMap = Vomo::Children<MfibDir, dirCollAttr, MfibDirColl, &MfibDirColl::vrfName,
                                      Vomo::SeededHash<0x06AAF594U>>;
    using VomoDirColl = DirCollMap::Node;
    Vomo::Ptr<MfibDirColl> dirColl(L3::VrfName const& vrf) const { return dirColl_.at(vrf); }
    DirCollMap const& dirColl() const { return dirColl_; }
    Vomo::Ptr<MfibDirColl> dirCollIs(L3::VrfName const& vrf) { return dirColl_.is(this, vrf); }
    Vomo::Ptr<MfibDirColl> dirCollDel(L3::VrfName const& vrf) { return dirColl_.del(this, vrf); }
    void dirCollDelAll() { dirColl_.delAll(this); }

private:
    friend EntityOf;
    friend Vomo::Describe<MfibDir>;
    DirCollMap dirColl_;
    mutable Vomo::NotifieeList notifiees_;
};

Vomo::Ptr<MfibDirColl> mfibDirCollFactory(L3::VrfName const& vrfName);
Vomo::Ptr<MfibDir> mfibDirFactory(Vomo::String const& name);

} // namespace Brisk::Multicast::Fib
