#include "Kelpie/EthAddr.h"

#include "Vomo/NboAttrLog.h"
#include "Vomo/Record.h"

#include <charconv>
#include <ostream>

template <>
struct Vomo::Describe<Kelpie::EthAddr> {
    using T = Kelpie::EthAddr;
    static constexpr auto type = value("Kelpie::EthAddr");
    static constexpr auto attributes = rows({
        function<&T::stringValue>(2, "stringValue"),
    });
};

namespace Kelpie {

EthAddr::EthAddr(Vomo::CharRange& range) {
    std::array<U8, 6> bytes;
    for (unsigned i = 0; i < 6; ++i) {
        if (i != 0) range.needString(":");
        std::string_view const digits = range.text().substr(0, 2);
        auto const [end, error] =
            std::from_chars(digits.data(), digits.data() + digits.size(), bytes[i], 16);
        if (error != std::errc() || end != digits.data() + 2)
            range.throwWanted("two hexadecimal digits of an Ethernet address");
        range += 2;
    }
    bytes_ = bytes;
}

EthAddr::EthAddr(Vomo::NboAttrLog::In* in, Vomo::StreamBogon) {
    std::memcpy(bytes_.data(), in->take(6), 6);
}

Vomo::String EthAddr::stringValue() const {
    return fmt::format("{:02x}:{:02x}:{:02x}:{:02x}:{:02x}:{:02x}", bytes_[0], bytes_[1], bytes_[2],
                       bytes_[3], bytes_[4], bytes_[5]);
}

Vomo::String valueToStrep(EthAddr const& v) {
    return v.stringValue();
}
std::ostream& operator<<(std::ostream& stream, EthAddr const& v) {
    return stream << v.stringValue();
}
Vomo::NboAttrLog::Out& operator<<(Vomo::NboAttrLog::Out& out, EthAddr const& v) {
    out.append(v.bytes().data(), 6);
    return out;
}

} // namespace Kelpie

namespace Vomo {
constinit VomoModule const _EthAddr_5ea519cab6df4342_vomoModule =
    ModuleRecord<EthAddrModule>::value;
static ModuleRegistration const registration(EthAddrModule::record);
} // namespace Vomo
