// The multicast FIB around the routes: interfaces with flags, counters, the view of a key's kind.
#pragma once

#include "Kelpie/IntfId.h"
#include "Mroute/MfibTypes.h"

namespace Routing::Multicast {
class MulticastLegacyConfig;
} // namespace Routing::Multicast
namespace Routing::Multicast::Pim {
class Status;
} // namespace Routing::Multicast::Pim
namespace Routing::Multicast::Vxlan {
class Status;
} // namespace Routing::Multicast::Vxlan
namespace Routing::Multicast::Fib {
class BidirStatus;
class Config;
enum class ConfigMultipathControl : U8; // Config::MultipathControl
class Counter;
enum class CounterMode : U32;
class CounterStatus;
class CounterStatusCtl;
class Intf;
class IntfConfig;
class MbrIntf;
class ReadyStatus;
class RouteKeyTypeConverter;
class SparseModeStatus;
class Status;
class VrfConfig;
class VrfEnabledStatus;
} // namespace Routing::Multicast::Fib
namespace Routing::Multicast::Fib::Hardware {
class RouteStatus;
class RouteStatusHwFlags; // RouteStatus::HwFlags
class Status;
class VrfStatus;
} // namespace Routing::Multicast::Fib::Hardware

namespace Vomo {
extern "C" VomoModule const _Mfib_81f0b1a1b6aa3812_vomoModule;
struct MfibModule
    : TypeList<
          Routing::Multicast::Fib::BidirStatus, Routing::Multicast::Fib::Config,
          Routing::Multicast::Fib::ConfigMultipathControl, Routing::Multicast::Fib::Counter,
          Routing::Multicast::Fib::CounterMode, Routing::Multicast::Fib::CounterStatus,
          Routing::Multicast::Fib::CounterStatusCtl, Routing::Multicast::Fib::Hardware::RouteStatus,
          Routing::Multicast::Fib::Hardware::RouteStatusHwFlags,
          Routing::Multicast::Fib::Hardware::Status, Routing::Multicast::Fib::Hardware::VrfStatus,
          Routing::Multicast::Fib::Intf, Routing::Multicast::Fib::IntfConfig,
          Routing::Multicast::Fib::MbrIntf, Routing::Multicast::Fib::ReadyStatus,
          Routing::Multicast::Fib::RouteKeyTypeConverter, Routing::Multicast::Fib::SparseModeStatus,
          Routing::Multicast::Fib::Status, Routing::Multicast::Fib::VrfConfig,
          Routing::Multicast::Fib::VrfEnabledStatus, Routing::Multicast::MulticastLegacyConfig,
          Routing::Multicast::Pim::Status, Routing::Multicast::Vxlan::Status> {
    static constexpr VomoModule const* record = &_Mfib_81f0b1a1b6aa3812_vomoModule;
    static ValueFrames<size> const frames;
};
template <TypeOf<MfibModule> T>
struct IdOf<T> : PlaceIn<T, MfibModule> {};
} // namespace Vomo

namespace Routing::Multicast::Fib {

// What the counters count.
enum class CounterMode : U32 { None = 0, packetMode = 1, byteMode = 2 };
inline CounterMode CounterModeInstance(unsigned int number) {
    return Vomo::enumInstance<CounterMode>(number);
}
inline CounterMode CounterModeInstance(Vomo::String const& name) {
    return Vomo::enumInstance<CounterMode>(name);
}

// A kind of route key with its number. Text: that of the kind.
class RouteKeyTypeConverter {
public:
    constexpr RouteKeyTypeConverter() = default;
    constexpr explicit RouteKeyTypeConverter(RouteKeyType value) : value_(value) {}
    explicit RouteKeyTypeConverter(Vomo::CharRange& range) { Vomo::parse(*this, range); }
    RouteKeyTypeConverter(Vomo::NboAttrLog::In* in, Vomo::StreamBogon) { Vomo::read(*this, in); }

    constexpr RouteKeyType value() const { return value_; }
    constexpr U32 intValue() const { return static_cast<U32>(value_); }
    constexpr explicit operator bool() const { return intValue() != 0; }

    friend constexpr bool operator==(RouteKeyTypeConverter, RouteKeyTypeConverter) = default;

private:
    friend Vomo::Describe<RouteKeyTypeConverter>;
    RouteKeyType value_ = RouteKeyType::unknownRouteKeyType;
};

// An interface with its flags.
class Intf {
public:
    constexpr Intf() = default;
    constexpr explicit Intf(Kelpie::IntfId intfId) : intfId_(intfId) {}
    explicit Intf(Vomo::CharRange& range) { Vomo::parse(*this, range); }
    Intf(Vomo::NboAttrLog::In* in, Vomo::StreamBogon) { Vomo::read(*this, in); }

    constexpr Kelpie::IntfId intfId() const { return intfId_; }
    constexpr IntfFlags intfFlags() const { return intfFlags_; }
    constexpr void intfFlagsIs(IntfFlags v) { intfFlags_ = v; }
    constexpr bool forward() const { return intfFlags_.forward(); }
    constexpr void forwardIs(bool v) { intfFlags_.forwardIs(v); }
    constexpr bool accept() const { return intfFlags_.accept(); }
    constexpr void acceptIs(bool v) { intfFlags_.acceptIs(v); }
    constexpr bool notify() const { return intfFlags_.notify(); }
    constexpr void notifyIs(bool v) { intfFlags_.notifyIs(v); }
    constexpr bool noRpf() const { return intfFlags_.noRpf(); }
    constexpr void noRpfIs(bool v) { intfFlags_.noRpfIs(v); }
    constexpr bool fastdrop() const { return intfFlags_.fastdrop(); }
    constexpr void fastdropIs(bool v) { intfFlags_.fastdropIs(v); }
    constexpr bool frr() const { return intfFlags_.frr(); }
    constexpr void frrIs(bool v) { intfFlags_.frrIs(v); }
    constexpr explicit operator bool() const { return !(*this == Intf()); }

    friend constexpr bool operator==(Intf const&, Intf const&) = default;

private:
    friend Vomo::Describe<Intf>;
    Kelpie::IntfId intfId_;
    IntfFlags intfFlags_;
    Vomo::Pad<7> pad_;
};
static_assert(sizeof(Intf) == 16 && alignof(Intf) == 8);

// The traffic of one route: the value of the counter table. `value` counts packets or bytes, by the
// counter mode in force.
class Counter {
public:
    constexpr Counter() = default;
    constexpr explicit Counter(IpGenRouteKey const& key) : key_(key) {}
    explicit Counter(Vomo::CharRange& range) { Vomo::parse(*this, range); }
    Counter(Vomo::NboAttrLog::In* in, Vomo::StreamBogon) { Vomo::read(*this, in); }

    constexpr IpGenRouteKey const& key() const { return key_; }
    constexpr U64 value() const { return value_; }
    constexpr void valueIs(U64 v) { value_ = v; }
    constexpr U64 valueInc(U64 n) & { return value_ += n; }
    constexpr U64 valueDec(U64 n) & { return value_ -= n; }
    constexpr Vomo::Seconds lastRefreshTime() const { return lastRefreshTime_; }
    constexpr void lastRefreshTimeIs(Vomo::Seconds v) { lastRefreshTime_ = v; }
    constexpr bool active() const { return active_; }
    constexpr void activeIs(bool v) { active_ = v; }
    // "[group,source] value"
    Vomo::String briskString() const;
    explicit operator bool() const { return !(*this == Counter()); }

    // A time that is no number makes a counter unequal to itself.
    friend bool operator==(Counter const&, Counter const&) = default;
    // For listing: inactive first, then the earlier time, the group, the source, the smaller value.
    friend bool operator<(Counter const& a, Counter const& b);

private:
    friend Vomo::Describe<Counter>;
    IpGenRouteKey key_;
    U64 value_ = 0;
    Vomo::Seconds lastRefreshTime_ = 0;
    bool active_ = false;
    Vomo::Pad<7> pad_;
};
static_assert(sizeof(Counter) == 72 && alignof(Counter) == 8);

} // namespace Routing::Multicast::Fib
