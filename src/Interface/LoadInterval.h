// The span over which an interface's load is averaged.
#pragma once

#include "Vomo/Value.h"

namespace Interface {
class LoadInterval;
} // namespace Interface

namespace Vomo {
extern "C" VomoModule const _Intf_ddf23f8cba610f0b_vomoModule;
struct IntfModule : TypeList<Interface::LoadInterval> {
    static constexpr VomoModule const* record = &_Intf_ddf23f8cba610f0b_vomoModule;
    static ValueFrames<size> const frames;
};
template <TypeOf<IntfModule> T>
struct IdOf<T> : PlaceIn<T, IntfModule> {};
} // namespace Vomo

namespace Interface {

using Vomo::operator<<;
using Vomo::valueToStrep;

// A number of the interval's kind, and its length in seconds: 1 and 300 by default.
class LoadInterval {
public:
    LoadInterval() = default;
    LoadInterval(U32 kind, Vomo::Seconds seconds) : kind_(kind), seconds_(seconds) {}
    explicit LoadInterval(Vomo::CharRange& range) { Vomo::parse(*this, range); }
    LoadInterval(Vomo::NboAttrLog::In* in, Vomo::StreamBogon) { Vomo::read(*this, in); }

    U32 kind() const { return kind_; }
    Vomo::Seconds seconds() const { return seconds_; }

    friend bool operator==(LoadInterval const&, LoadInterval const&) = default;

private:
    friend Vomo::Describe<LoadInterval>;
    U32 kind_ = 1;
    Vomo::Pad<4> pad_;
    Vomo::Seconds seconds_ = 300.0;
};
static_assert(sizeof(LoadInterval) == 16);

} // namespace Interface
