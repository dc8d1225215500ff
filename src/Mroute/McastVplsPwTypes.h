// Tunnels over VPLS pseudowires: their hardware encapsulation, and their directories.
#pragma once

#include "Mroute/TunnelDirs.h"

namespace MrouteLib {
class VplsPwEncapConfig;
class VplsPwEncapConfigDir;
class VplsPwEncapInfo;
class VplsPwEncapStatus;
class VplsPwEncapStatusDir;
} // namespace MrouteLib

namespace Vomo {
extern "C" VomoModule const _McastVplsPwTypes_46bcb70d7f81f4f2_vomoModule;
struct McastVplsPwTypesModule
    : TypeList<MrouteLib::VplsPwEncapConfig, MrouteLib::VplsPwEncapConfigDir,
               MrouteLib::VplsPwEncapInfo, MrouteLib::VplsPwEncapStatus,
               MrouteLib::VplsPwEncapStatusDir> {
    static constexpr VomoModule const* record = &_McastVplsPwTypes_46bcb70d7f81f4f2_vomoModule;
    static ValueFrames<size> const frames;
};
template <TypeOf<McastVplsPwTypesModule> T>
struct IdOf<T> : PlaceIn<T, McastVplsPwTypesModule> {};
} // namespace Vomo

namespace MrouteLib {

using Vomo::operator<<;
using Multicast::Tunnel::TunnelId;
using Vomo::valueToStrep;

// The hardware encapsulation of a pseudowire.
class VplsPwEncapInfo {
public:
    constexpr VplsPwEncapInfo() = default;
    constexpr VplsPwEncapInfo(U64 key, U64 hwFecId, Kelpie::IntfId l2IntfId)
        : key_(key), hwFecId_(hwFecId), l2IntfId_(l2IntfId) {}
    explicit VplsPwEncapInfo(Vomo::CharRange& range) { Vomo::parse(*this, range); }
    VplsPwEncapInfo(Vomo::NboAttrLog::In* in, Vomo::StreamBogon) { Vomo::read(*this, in); }

    constexpr U64 key() const { return key_; }
    constexpr U64 hwFecId() const { return hwFecId_; }
    constexpr Kelpie::IntfId l2IntfId() const { return l2IntfId_; }
    constexpr explicit operator bool() const { return !(*this == VplsPwEncapInfo()); }

    friend constexpr bool operator==(VplsPwEncapInfo const&, VplsPwEncapInfo const&) = default;

private:
    friend Vomo::Describe<VplsPwEncapInfo>;
    U64 key_ = 0;
    U64 hwFecId_ = 0;
    Kelpie::IntfId l2IntfId_;
};
static_assert(sizeof(VplsPwEncapInfo) == 24 && alignof(VplsPwEncapInfo) == 8);

class VplsPwEncapConfig : public Vomo::EntityOf<VplsPwEncapConfig, Multicast::Tunnel::Config> {
public:
    using EntityOf::EntityOf;
    static Vomo::Ptr<VplsPwEncapConfig> VplsPwEncapConfigIs(TunnelId const& id) {
        return Vomo::newEntity<VplsPwEncapConfig>(id);
    }

private:
    friend EntityOf;
    mutable Vomo::NotifieeList notifiees_;
};

class VplsPwEncapStatus : public Vomo::EntityOf<VplsPwEncapStatus, Multicast::Tunnel::Status> {
public:
    enum Attr : U32 { encapInfoAttr = 386 };
    using EntityOf::EntityOf;
    static Vomo::Ptr<VplsPwEncapStatus> VplsPwEncapStatusIs(TunnelId const& id) {
        return Vomo::newEntity<VplsPwEncapStatus>(id);
    }

    VplsPwEncapInfo const& encapInfo() const { return encapInfo_; }
    void encapInfoIs(VplsPwEncapInfo const& v) { assign(encapInfo_, v, encapInfoAttr); }

private:
    friend EntityOf;
    friend Vomo::Describe<VplsPwEncapStatus>;
    VplsPwEncapInfo encapInfo_;
    mutable Vomo::NotifieeList notifiees_;
};

class VplsPwEncapConfigDir
    : public Multicast::Tunnel::ConfigDirOf<VplsPwEncapConfigDir, VplsPwEncapConfig,
                                            Multicast::Tunnel::TunnelType::vpls,
                                            Vomo::SeededHash<0x4B981476>> {
public:
    enum Attr : U32 { vplsPwEncapConfigAttr = 386, mountPathAttr };
    using ConfigDirOf::ConfigDirOf;
    static Vomo::Ptr<VplsPwEncapConfigDir> VplsPwEncapConfigDirIs(Vomo::String const& name) {
        return Vomo::newEntity<VplsPwEncapConfigDir>(name);
    }
    static Vomo::String mountPath() { return "routing/multicast/vpls/config"; }

    using VomoVplsPwEncapConfig = Typed::Node;
    Vomo::Ptr<VplsPwEncapConfig> vplsPwEncapConfig(TunnelId const& id) const {
        return typed_.at(id);
    }
    Typed const& vplsPwEncapConfig() const { return typed_; }
    Vomo::Ptr<VplsPwEncapConfig> vplsPwEncapConfigIs(TunnelId const& id) {
        return typed_.is(this, id);
    }
    Vomo::Ptr<VplsPwEncapConfig> vplsPwEncapConfigDel(TunnelId const& id) {
        return typed_.del(this, id);
    }
    void vplsPwEncapConfigDelAll() { typed_.delAll(this); }

    // These trace at level 7 and into the ring of last lines, and raise TypeException for an
    // identifier of another kind, before they change anything.
    Vomo::Ptr<Multicast::Tunnel::Config> tunnelConfigIs(TunnelId const& id) override;
    void tunnelConfigDel(TunnelId const& id) override;

private:
    friend EntityOf;
    mutable Vomo::NotifieeList notifiees_;
};

// Does not override what `StatusDir` has for all kinds: that raises here, and a client calls these.
class VplsPwEncapStatusDir
    : public Multicast::Tunnel::StatusDirOf<VplsPwEncapStatusDir, VplsPwEncapStatus,
                                            Multicast::Tunnel::TunnelType::vpls,
                                            Vomo::SeededHash<0xFA099BEF>> {
public:
    enum Attr : U32 { encapStatusAttr = 386, mountPathAttr };
    using StatusDirOf::StatusDirOf;
    static Vomo::Ptr<VplsPwEncapStatusDir> VplsPwEncapStatusDirIs(Vomo::String const& name) {
        return Vomo::newEntity<VplsPwEncapStatusDir>(name);
    }
    static Vomo::String mountPath() { return "routing/multicast/vpls/status"; }

    using VomoEncapStatus = Typed::Node;
    Vomo::Ptr<VplsPwEncapStatus> encapStatus(TunnelId const& id) const { return typed_.at(id); }
    Typed const& encapStatus() const { return typed_; }
    Vomo::Ptr<VplsPwEncapStatus> encapStatusIs(TunnelId const& id) { return typed_.is(this, id); }
    Vomo::Ptr<VplsPwEncapStatus> encapStatusDel(TunnelId const& id) { return typed_.del(this, id); }
    void encapStatusDelAll() { typed_.delAll(this); }

private:
    friend EntityOf;
    mutable Vomo::NotifieeList notifiees_;
};

Vomo::Ptr<VplsPwEncapConfig> vplsPwEncapConfigFactory(TunnelId const& id);
Vomo::Ptr<VplsPwEncapConfigDir> vplsPwEncapConfigDirFactory(Vomo::String const& name);
Vomo::Ptr<VplsPwEncapStatus> vplsPwEncapStatusFactory(TunnelId const& id);
Vomo::Ptr<VplsPwEncapStatusDir> vplsPwEncapStatusDirFactory(Vomo::String const& name);

} // namespace MrouteLib
