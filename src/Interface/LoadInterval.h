// The span over which an interface's load is averaged.
#pragma once

#include "Vomo/Fwd.h"

namespace Interface {
class LoadInterval;
} // namespace Interface

namespace Vomo {
extern "C" {
extern VomoModule const _Intf_ddf23f8cba610f0b_vomoModule;
}
template <>
struct IdOf<Interface::LoadInterval> : InModule<&_Intf_ddf23f8cba610f0b_vomoModule, 0> {};
} // namespace Vomo

namespace Interface {

// A number of the interval's kind, and its length in seconds: 1 and 300 by default.
class LoadInterval {
public:
    LoadInterval() = default;
    LoadInterval(U32 kind, Vomo::Seconds seconds) : kind_(kind), seconds_(seconds) {}
    explicit LoadInterval(Vomo::CharRange& range);
    LoadInterval(Vomo::NboAttrLog::In* in, Vomo::StreamBogon);

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

Vomo::String valueToStrep(LoadInterval const& v);
std::ostream& operator<<(std::ostream& stream, LoadInterval const& v);
Vomo::NboAttrLog::Out& operator<<(Vomo::NboAttrLog::Out& out, LoadInterval const& v);

} // namespace Interface
