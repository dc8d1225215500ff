// The name of a routing instance (VRF).
#pragma once

#include "Vomo/Fwd.h"

namespace L3 {
class VrfName;
} // namespace L3

namespace Vomo {
extern "C" VomoModule const _VrfName_24b4c36c4490e7d8_vomoModule;
struct VrfNameModule : TypeList<L3::VrfName> {
    static constexpr VomoModule const* record = &_VrfName_24b4c36c4490e7d8_vomoModule;
};
template <TypeOf<VrfNameModule> T>
struct IdOf<T> : PlaceIn<T, VrfNameModule> {};
} // namespace Vomo

namespace L3 {

// The network namespace of a VRF is named by this and the VRF's name. Each source file has its own,
// made before the file's module registers: whoever reads the types from then on can name namespaces.
[[maybe_unused]] static Vomo::String const netnsPrefix("ns-");

// At most 100 bytes; a longer name raises RangeException "Vomo::String::bytes > maxLength() not
// allowed". Empty by default. Text: quoted.
class VrfName {
public:
    static constexpr U32 maxLength() { return 100; }

    VrfName() = default;
    explicit VrfName(Vomo::String name);
    explicit VrfName(Vomo::CharRange& range);
    VrfName(Vomo::NboAttrLog::In* in, Vomo::StreamBogon);

    Vomo::String const& stringValue() const { return name_; }
    // The network namespace of the VRF; before any static object is made, too.
    Vomo::String netnsName() const { return "ns-" + name_; }
    U32 hash(U32 seed) const;

    friend bool operator==(VrfName const& a, VrfName const& b) { return a.name_ == b.name_; }
    // "default" first, then by bytes.
    friend bool operator<(VrfName const& a, VrfName const& b);

private:
    friend Vomo::Describe<VrfName>;
    Vomo::String name_;
};

Vomo::String valueToStrep(VrfName const& v);
// The name without quotes.
std::ostream& operator<<(std::ostream& stream, VrfName const& v);
Vomo::NboAttrLog::Out& operator<<(Vomo::NboAttrLog::Out& out, VrfName const& v);
U32 attrLogSize(VrfName const* v);

} // namespace L3
