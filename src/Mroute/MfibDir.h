// The directory through which readers find the route tables of each VRF.
#pragma once

#include "L3/VrfName.h"
#include "Mroute/MfibBriskTypes.h"
#include "Vomo/HashMap2018.h"
#include "Vomo/NboAttrLogFlow.h"

namespace Brisk::Multicast::Fib {

// Where the tables of one VRF are mounted.
class MfibDirColl : public Vomo::EntityOf<MfibDirColl> {
public:
    enum Attr : U32 { vrfNameAttr = 258, briskUrlAttr, bitMapperBriskUrlAttr };

    explicit MfibDirColl(L3::VrfName const& vrfName) : vrfName_(vrfName) {}
    static Vomo::Ptr<MfibDirColl> MfibDirCollIs(L3::VrfName const& vrfName) {
        return Vomo::newEntity<MfibDirColl>(vrfName);
    }

    L3::VrfName const& vrfName() const { return vrfName_; }
    // Of the route tables.
    Vomo::String const& briskUrl() const { return briskUrl_; }
    void briskUrlIs(Vomo::String const& v) { assign(briskUrl_, v, briskUrlAttr); }
    // Of the bit mapper's tables.
    Vomo::String const& bitMapperBriskUrl() const { return bitMapperBriskUrl_; }
    void bitMapperBriskUrlIs(Vomo::String const& v) {
        assign(bitMapperBriskUrl_, v, bitMapperBriskUrlAttr);
    }

    Vomo::String name() const override;

private:
    friend EntityOf;
    friend Vomo::Describe<MfibDirColl>;
    L3::VrfName vrfName_;
    Vomo::String briskUrl_;
    Vomo::String bitMapperBriskUrl_;
    mutable Vomo::NotifieeList notifiees_;
};

class MfibDir : public Vomo::EntityOf<MfibDir> {
public:
    enum Attr : U32 { dirCollAttr = 258 };
    struct DirCollKeyFunktor {
        L3::VrfName const& operator()(Vomo::Ptr<MfibDirColl> const& c) const {
            return c->vrfName();
        }
    };
    struct VomoDirColl
        : Vomo::HashMap2018NodeInternalKey<false, 0x06AAF594U, L3::VrfName, Vomo::Ptr<MfibDirColl>,
                                           DirCollKeyFunktor, false> {
        using HashMap2018NodeInternalKey::HashMap2018NodeInternalKey;
    };
    using DirCollMap = Vomo::HashMap2018<VomoDirColl, L3::VrfName, Vomo::Ptr<MfibDirColl>>;
    // What one connection has yet to send of a directory.
    struct FlowOut : Vomo::NboAttrLog::FlowOut {
        bool hasDirtyCollKeys() const override { return vomoIsDirCollDirty_.members() != 0; }
        Vomo::HSet<L3::VrfName, 0U> vomoIsDirCollDirty_;
        Vomo::HSet<L3::VrfName, 0U> vomoIsDirCollDirtyEphemeral_;
    };

    explicit MfibDir(Vomo::String const& name) : name_(name) {}
    ~MfibDir() override;
    static Vomo::Ptr<MfibDir> MfibDirIs(Vomo::String const& name) {
        return Vomo::newEntity<MfibDir>(name);
    }
    // "routing/multicast/fib", "routing6/multicast/fib". Any other family ends the process.
    static Vomo::String mountPath(Kelpie::AddressFamily af);

    Vomo::Ptr<MfibDirColl> dirColl(L3::VrfName const& vrf) const;
    DirCollMap const& dirColl() const { return dirColl_; }
    // The entry of that VRF, made if there is none.
    Vomo::Ptr<MfibDirColl> dirCollIs(L3::VrfName const& vrf) {
        return childIs<MfibDirColl>(dirColl_, vrf, dirCollAttr);
    }
    // Returns the entry, which has no parent any more; null if there was none.
    Vomo::Ptr<MfibDirColl> dirCollDel(L3::VrfName const& vrf) {
        return childDel<MfibDirColl>(dirColl_, vrf, dirCollAttr);
    }
    void dirCollDelAll();

    Vomo::String name() const override { return name_; }

private:
    friend EntityOf;
    friend Vomo::Describe<MfibDir>;
    Vomo::String name_;
    DirCollMap dirColl_;
    mutable Vomo::NotifieeList notifiees_;
};

Vomo::Ptr<MfibDirColl> mfibDirCollFactory(L3::VrfName const& vrfName);
Vomo::Ptr<MfibDir> mfibDirFactory(Vomo::String const& name);

} // namespace Brisk::Multicast::Fib
