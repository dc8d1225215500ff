#include "Mroute/MfibBriskTypes.h"

#include "Mroute/FibTables.h"
#include "Mroute/MfibDir.h"
#include "Vomo/Record.h"
#include "VomoBrisk/TableRows.h"
#include "VomoBrisk/VomoBriskMapImpl.h"

#include <bit>
#include <ostream>
#include <sstream>

template <>
struct Vomo::Describe<Brisk::Multicast::Fib::BidirGroup> {
    using T = Brisk::Multicast::Fib::BidirGroup;
    static constexpr auto type = value("Brisk::Multicast::Fib::BidirGroup", wide);
    static constexpr auto attributes = rows({
        ctor<&T::key_>(2, "key"),
        mutates<&T::rpa_>(3, "rpa"),
        function<&T::briskString>(4, "briskString"),
    });
};
template <>
struct Vomo::Describe<Brisk::Multicast::Fib::BidirStatus> {
    using T = Brisk::Multicast::Fib::BidirStatus;
    static constexpr auto type = entity("Brisk::Multicast::Fib::BidirStatus", wide);
    static constexpr auto attributes = rows({
        VomoBrisk::table<&T::bidirGroup_>(),
        VomoBrisk::control<&T::bidirGroupControl, &T::bidirGroupControlIs>(T::bidirGroupControlAttr,
                                                                           "bidirGroupControl"),
        VomoBrisk::table<&T::dfProfile_>(),
        VomoBrisk::control<&T::dfProfileControl, &T::dfProfileControlIs>(T::dfProfileControlAttr,
                                                                         "dfProfileControl"),
    });
};
template <>
struct Vomo::Describe<Brisk::Multicast::Fib::DfProfile> {
    using T = Brisk::Multicast::Fib::DfProfile;
    static constexpr auto type = value("Brisk::Multicast::Fib::DfProfile");
    static constexpr auto attributes = rows({
        ctor<&T::key_>(2, "key"),
        mutates<&T::dfBitmap_>(3, "dfBitmap"),
        function<&T::briskString>(4, "briskString"),
    });
};
template <>
struct Vomo::Describe<Brisk::Multicast::Fib::IntfOifIndex> {
    using T = Brisk::Multicast::Fib::IntfOifIndex;
    static constexpr auto type = value("Brisk::Multicast::Fib::IntfOifIndex");
    static constexpr auto attributes = rows({
        ctor<&T::key_>(2, "key"),
        ctor<&T::oifIndex_>(3, "oifIndex"),
    });
};
template <>
struct Vomo::Describe<Brisk::Multicast::Fib::MfibDir> {
    using T = Brisk::Multicast::Fib::MfibDir;
    static constexpr auto type = entity("Brisk::Multicast::Fib::MfibDir", wide);
    static constexpr auto attributes = rows({
        collection<&T::dirColl_>("dirColl", "vrfName"),
        statics<&T::mountPath>(T::mountPathAttr, "mountPath", {"af"}),
    });
};
template <>
struct Vomo::Describe<Brisk::Multicast::Fib::MfibDirColl> {
    using T = Brisk::Multicast::Fib::MfibDirColl;
    static constexpr auto type = entity("Brisk::Multicast::Fib::MfibDirColl");
    static constexpr auto attributes = rows({
        ctor<&T::key_>(T::vrfNameAttr, "vrfName"),
        notifying<&T::briskUrl_>(T::briskUrlAttr, "briskUrl"),
        notifying<&T::bitMapperBriskUrl_>(T::bitMapperBriskUrlAttr, "bitMapperBriskUrl"),
    });
};
template <>
struct Vomo::Describe<Brisk::Multicast::Fib::OifIndex> {
    using T = Brisk::Multicast::Fib::OifIndex;
    static constexpr auto type = value("Brisk::Multicast::Fib::OifIndex", wrapper);
    static constexpr auto attributes = rows({
        ctor<&T::value_>(2, "value"),
        constant<&T::null>(3, "null"),
        constant<&T::min>(4, "min"),
        constant<&T::max>(5, "max"),
        derived<&T::hash>(6, "hash"),
    });
};
template <>
struct Vomo::Describe<Brisk::Multicast::Fib::OifIndexIntf> {
    using T = Brisk::Multicast::Fib::OifIndexIntf;
    static constexpr auto type = value("Brisk::Multicast::Fib::OifIndexIntf");
    static constexpr auto attributes = rows({
        ctor<&T::key_>(2, "key"),
        ctor<&T::intf_>(3, "intf"),
        mutates<&T::refCount_>(4, "refCount"),
        function<&T::briskString>(5, "briskString"),
    });
};
template <>
struct Vomo::Describe<Brisk::Multicast::Fib::Route> {
    using T = Brisk::Multicast::Fib::Route;
    static constexpr auto type = value("Brisk::Multicast::Fib::Route", wide);
    static constexpr auto attributes = rows({
        ctor<&T::key_>(2, "key"),
        mutates<&T::iif_>(3, "iif"),
        mutates<&T::iifFrr_>(4, "iifFrr"),
        mutates<&T::notify_>(5, "notify"),
        mutates<&T::fastdrop_>(6, "fastdrop"),
        mutates<&T::notifyProgrammable_>(7, "notifyProgrammable"),
        mutates<&T::routeFlags_>(8, "routeFlags"),
        view<&T::valid, &T::validIs>(9, "valid"),
        view<&T::toCpu, &T::toCpuIs>(10, "toCpu"),
        view<&T::iifRegister, &T::iifRegisterIs>(11, "iifRegister"),
        view<&T::oifRegister, &T::oifRegisterIs>(12, "oifRegister"),
        view<&T::programmable, &T::programmableIs>(13, "programmable"),
        view<&T::skipSoftwareProgramming, &T::skipSoftwareProgrammingIs>(14,
                                                                         "skipSoftwareProgramming"),
        view<&T::iifPmsi, &T::iifPmsiIs>(15, "iifPmsi"),
        view<&T::virtualRoute, &T::virtualRouteIs>(16, "virtualRoute"),
        mutates<&T::iifFlags_>(17, "iifFlags"),
        view<&T::noRpf, &T::noRpfIs>(18, "noRpf"),
        mutates<&T::rpaId_>(19, "rpaId"),
        indexed<&T::oif, &T::oifIs, &T::oifDel>(20, "oif"),
        function<&T::nextOif>(21, "nextOif", {"oif"}),
        derived<&T::oifs>(22, "oifs"),
        indexed<&T::oifBitmap, &T::oifBitmapIs, &T::oifBitmapDel>(23, "oifBitmap"),
        mutates<&T::maxOifIndex_>(24, "maxOifIndex"),
        mutates<&T::routePriority_>(25, "routePriority"),
        mutates<&T::version_>(26, "version"),
        constant<&T::bitsPerWord>(27, "bitsPerWord"),
        constant<&T::numWords>(28, "numWords"),
        mutates<&T::oifBitmap_, 0>(29, "oifBitmap1"),
        mutates<&T::oifBitmap_, 1>(30, "oifBitmap2"),
        mutates<&T::oifBitmap_, 2>(31, "oifBitmap3"),
        mutates<&T::oifBitmap_, 3>(32, "oifBitmap4"),
        mutates<&T::oifBitmap_, 4>(33, "oifBitmap5"),
        mutates<&T::oifBitmap_, 5>(34, "oifBitmap6"),
        mutates<&T::oifBitmap_, 6>(35, "oifBitmap7"),
        mutates<&T::oifBitmap_, 7>(36, "oifBitmap8"),
        function<&T::briskString>(37, "briskString"),
        function<&T::isStarG>(38, "isStarG"),
    });
};
template <>
struct Vomo::Describe<Brisk::Multicast::Fib::RouteOrderedCollection> {
    using T = Brisk::Multicast::Fib::RouteOrderedCollection;
    static constexpr auto type = entity("Brisk::Multicast::Fib::RouteOrderedCollection", wide);
    static constexpr auto attributes = rows({
        collection<&T::route_>("route"),
    });
};
template <>
struct Vomo::Describe<Brisk::Multicast::Fib::Status> {
    using T = Brisk::Multicast::Fib::Status;
    static constexpr auto type = entity("Brisk::Multicast::Fib::Status", wide);
    static constexpr auto attributes = rows({
        VomoBrisk::table<&T::route_>(),
        VomoBrisk::control<&T::routeControl, &T::routeControlIs>(T::routeControlAttr,
                                                                 "routeControl"),
        VomoBrisk::table<&T::oifIndexIntf_>(),
        VomoBrisk::control<&T::oifIndexIntfControl, &T::oifIndexIntfControlIs>(
            T::oifIndexIntfControlAttr, "oifIndexIntfControl"),
        foreign<&T::bitMapperBriskStatus, &T::bitMapperBriskStatusIs>(T::bitMapperBriskStatusAttr,
                                                                      "bitMapperBriskStatus"),
        statics<&T::mountPath>(T::mountPathAttr, "mountPath", {"af", "vrf", "name"}),
    });
};
template <>
struct Vomo::Describe<Brisk::Multicast::Fib::TableInfo> {
    using T = Brisk::Multicast::Fib::TableInfo;
    static constexpr auto type = value("Brisk::Multicast::Fib::TableInfo");
    static constexpr auto attributes = rows({
        statics<&T::mfibMountInfo>(2, "mfibMountInfo", {"type"}),
        constant<&T::maxRoutes>(3, "maxRoutes"),
        constant<&T::maxOifIndexs>(4, "maxOifIndexs"),
    });
};

namespace Brisk::Multicast::Fib {

void OifIndex::throwOutOfRange() {
    Vomo::throwRangeException(
        "Brisk::Multicast::Fib::OifIndex::value < Brisk::Multicast::Fib::OifIndex::min or > "
        "Brisk::Multicast::Fib::OifIndex::null not allowed");
}

OifIndex::OifIndex(Vomo::CharRange& range) {
    Vomo::parse(*this, range);
    if (value_ > null) throwOutOfRange();
}
OifIndex::OifIndex(Vomo::NboAttrLog::In* in, Vomo::StreamBogon) : OifIndex(in->nextU16()) {}

void Route::checkLayout() {
    static_assert(std::is_trivially_copyable_v<Route> && std::is_standard_layout_v<Route>);
    static_assert(offsetof(Route, key_) == 0 && offsetof(Route, iif_) == 48 &&
                  offsetof(Route, iifFrr_) == 56 && offsetof(Route, notify_) == 64 &&
                  offsetof(Route, fastdrop_) == 72 && offsetof(Route, notifyProgrammable_) == 80 &&
                  offsetof(Route, routeFlags_) == 81 && offsetof(Route, iifFlags_) == 82 &&
                  offsetof(Route, rpaId_) == 84 && offsetof(Route, maxOifIndex_) == 86 &&
                  offsetof(Route, routePriority_) == 88 && offsetof(Route, version_) == 92 &&
                  offsetof(Route, oifBitmap_) == 96);
}
void OifIndexIntf::checkLayout() {
    static_assert(std::is_trivially_copyable_v<OifIndexIntf>);
    static_assert(offsetof(OifIndexIntf, key_) == 0 && offsetof(OifIndexIntf, intf_) == 8 &&
                  offsetof(OifIndexIntf, refCount_) == 16);
}

U8 Route::oifs() const {
    int count = 0;
    for (U64 const bits : oifBitmap_) count += std::popcount(bits);
    return static_cast<U8>(count);
}

OifIndex Route::nextOif(OifIndex i) const {
    if (!maxOifIndex_) return OifIndex();
    unsigned const last = word(maxOifIndex_);
    unsigned at = 0;
    U64 passed = 0; // bits of the first word that lie at or before `i`
    if (i) {
        at = word(i);
        if (at > last) return OifIndex();
        passed = (U64{2} << (i.value() & 63)) - 1;
    }
    for (; at <= last; ++at, passed = 0)
        if (U64 const left = oifBitmap_[at] & ~passed)
            return OifIndex(
                static_cast<U16>(at * bitsPerWord + static_cast<unsigned>(std::countr_zero(left))));
    return OifIndex();
}

Route::OifIteratorConst Route::oifIteratorConst() const {
    return {*this, nextOif(OifIndex())};
}
Route::OifIteratorConst Route::oifIteratorConst(OifIndex i) const {
    return {*this, i && oif(i) ? i : nextOif(i)};
}

bool Route::isStarG() const {
    return !(*this == Route()) && key_.s().len() == 0 && !rpaId_;
}

Route Route::operator^(Route const& other) const {
    Route result(key_);
    for (unsigned w = 0; w < numWords; ++w)
        result.oifBitmap_[w] = oifBitmap_[w] ^ other.oifBitmap_[w];
    auto const differing = [](Kelpie::IntfId mine, Kelpie::IntfId theirs) {
        if (mine == theirs) return Kelpie::IntfId();
        return mine ? mine : theirs;
    };
    result.iif_ = differing(iif_, other.iif_);
    result.notify_ = differing(notify_, other.notify_);
    result.fastdrop_ = differing(fastdrop_, other.fastdrop_);
    result.iifFrr_ = differing(iifFrr_, other.iifFrr_);
    result.routeFlags_ = routeFlags_ ^ other.routeFlags_;
    result.iifFlags_ = iifFlags_ ^ other.iifFlags_;
    result.maxOifIndex_ = OifIndex(OifIndex::max);
    return result;
}

Route Route::operator&(Route const& other) const {
    Route result(key_);
    for (unsigned w = 0; w < numWords; ++w)
        result.oifBitmap_[w] = oifBitmap_[w] & other.oifBitmap_[w];
    if (iif_) {
        result.iif_ = other.iif_;
        result.iifFlags_ = other.iifFlags_;
    }
    if (notify_) result.notify_ = other.notify_;
    if (fastdrop_) result.fastdrop_ = other.fastdrop_;
    if (iifFrr_) result.iifFrr_ = other.iifFrr_;
    result.routeFlags_ = other.routeFlags_;
    result.version_ = other.version_;
    result.maxOifIndex_ = OifIndex(OifIndex::max);
    return result;
}

Vomo::String Route::briskString() const {
    std::ostringstream text;
    text << "[" << key_.pretty() << "] F 0x" << std::hex;
    text << static_cast<char>(routeFlags_.value()) << " 0x" << static_cast<char>(iifFlags_.value());
    text << " I " << iif_ << " N " << notify_ << " S " << fastdrop_ << " F " << iifFrr_;
    text << " O";
    for (unsigned w = numWords; w-- > 0;) text << " 0x" << oifBitmap_[w];
    text << " max " << std::dec << maxOifIndex_ << " ver " << version_ << " priority "
         << routePriority_;
    return text.str();
}

Vomo::String OifIndexIntf::briskString() const {
    std::ostringstream text;
    text << "[" << key_ << "] " << intf_ << " RC: " << refCount_;
    return text.str();
}
Vomo::String DfProfile::briskString() const {
    std::ostringstream text;
    text << "[" << key_ << "]" << dfBitmap_;
    return text.str();
}
Vomo::String BidirGroup::briskString() const {
    std::ostringstream text;
    text << "[" << key_ << "]" << rpa_;
    return text.str();
}

VomoBrisk::MountInfo TableInfo::mfibMountInfo(VomoBrisk::VomoBriskType type) {
    VomoBrisk::MountInfo info(type);
    info.collectionInfoIs({Mroute::RouteTable::attribute, maxRoutes, 0});
    info.collectionInfoIs({Mroute::OifIndexIntfTable::attribute, maxOifIndexs, 0});
    return info;
}

Vomo::String Status::mountPath(Kelpie::AddressFamily af, L3::VrfName vrf,
                               Vomo::String const& name) {
    bool const v4 = af == Kelpie::ipv4();
    PLAINASSERT(v4 || af == Kelpie::ipv6(), "false && \"Unsupported address family\"");
    return (v4 ? "routing/multicast/routestatus/" : "routing6/multicast/routestatus/") +
           vrf.stringValue() + "/" + name;
}
Vomo::Ptr<Status> statusFactory(Vomo::String const& name) {
    return Vomo::newEntity<Status>(name);
}
Vomo::Ptr<BidirStatus> bidirStatusFactory(Vomo::String const& name) {
    return Vomo::newEntity<BidirStatus>(name);
}
Vomo::Ptr<RouteOrderedCollection> routeOrderedCollectionFactory(Vomo::String const& name) {
    return Vomo::newEntity<RouteOrderedCollection>(name);
}
Vomo::String MfibDir::mountPath(Kelpie::AddressFamily af) {
    return Routing::Multicast::Fib::mountPath(af);
}
Vomo::Ptr<MfibDirColl> mfibDirCollFactory(L3::VrfName const& vrfName) {
    return Vomo::newEntity<MfibDirColl>(vrfName);
}
Vomo::Ptr<MfibDir> mfibDirFactory(Vomo::String const& name) {
    return Vomo::newEntity<MfibDir>(name);
}

std::ostream& operator<<(std::ostream& stream, OifIndex v) {
    return stream << v.value();
}

} // namespace Brisk::Multicast::Fib

VOMO_BRISK_INSTANCE(Brisk::Multicast::Fib::Status, Mroute::RouteTable);
VOMO_BRISK_INSTANCE(Brisk::Multicast::Fib::Status, Mroute::OifIndexIntfTable);
VOMO_BRISK_INSTANCE(Brisk::Multicast::Fib::BidirStatus, Mroute::BidirGroupTable);
VOMO_BRISK_INSTANCE(Brisk::Multicast::Fib::BidirStatus, Mroute::DfProfileTable);

namespace Vomo {
constinit decltype(MfibBriskTypesModule::frames) MfibBriskTypesModule::frames =
    ModuleRecord<MfibBriskTypesModule>::frames;
constinit VomoModule const _MfibBriskTypes_aaea5100197a8ed6_vomoModule =
    ModuleRecord<MfibBriskTypesModule>::value;
static ModuleRegistration const registration(MfibBriskTypesModule::record);
} // namespace Vomo
