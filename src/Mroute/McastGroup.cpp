#include "Mroute/McastGroup.h"

#include "Vomo/Frame.h"
#include "Vomo/Hash.h"

#include <ostream>

template <> struct Vomo::Describe<Multicast::Group::GroupKey> {
    using T = Multicast::Group::GroupKey;
    static constexpr auto name = "Multicast::Group::GroupKey";
    static constexpr auto attributes = rows({
        ctor<&T::kind_>(2, "kind"),
        ctor<&T::index_>(3, "index"),
    });
};

namespace Multicast::Group {

GroupKey::GroupKey(Vomo::CharRange& range) { Vomo::parse(*this, range); }
GroupKey::GroupKey(Vomo::NboAttrLog::In* in, Vomo::StreamBogon) { Vomo::read(*this, in); }

U32 GroupKey::hash(U32 seed) const {
    Vomo::Hash hash(seed);
    hash.hashMix<2>(&kind_);
    hash.hashMix<2>(&index_);
    return hash.result();
}

Vomo::String valueToStrep(GroupKey v) { return Vomo::text(v); }
std::ostream& operator<<(std::ostream& stream, GroupKey v) { return stream << valueToStrep(v); }
Vomo::NboAttrLog::Out& operator<<(Vomo::NboAttrLog::Out& out, GroupKey v) {
    return Vomo::write(out, v), out;
}

} // namespace Multicast::Group
