#include "Kelpie/IpPrefix.h"

#include "Vomo/NboAttrLog.h"
#include "Vomo/Record.h"

#include <charconv>
#include <ostream>

template <>
struct Vomo::Describe<Kelpie::IpGenPrefix> {
    using T = Kelpie::IpGenPrefix;
    static constexpr auto type = value("Kelpie::IpGenPrefix", wide);
    static constexpr auto attributes = rows({
        derived<&T::af>(2, "af"),
        derived<&T::address>(3, "address"),
        derived<&T::v4Addr>(4, "v4Addr"),
        derived<&T::v4Prefix>(5, "v4Prefix"),
        derived<&T::len>(6, "len"),
        function<&T::isMulticast>(7, "isMulticast"),
        function<&T::isHost>(8, "isHost"),
        function<&T::stringValue>(9, "stringValue"),
    });
};

namespace Kelpie {
namespace {

S32 parseLength(Vomo::CharRange& range, U32 max) {
    range.needString("/");
    U32 const len = Vomo::deserializeAttr<U32>(range, "len");
    if (len > max) Vomo::throwRangeException(fmt::format("prefix length {} exceeds {}", len, max));
    return static_cast<S32>(len);
}

} // namespace

Prefix::Prefix(Vomo::CharRange& range) : address_(range) {
    len_ = parseLength(range, 32);
}
Prefix::Prefix(Vomo::NboAttrLog::In* in, Vomo::StreamBogon tag)
    : address_(in, tag), len_(static_cast<S32>(in->nextU32())) {}
Vomo::String Prefix::stringValue() const {
    return fmt::format("{}/{}", address_.stringValue(), len_);
}
Vomo::String valueToStrep(Prefix const& v) {
    return v.stringValue();
}
std::ostream& operator<<(std::ostream& stream, Prefix const& v) {
    return stream << v.stringValue();
}
Vomo::NboAttrLog::Out& operator<<(Vomo::NboAttrLog::Out& out, Prefix const& v) {
    return out << v.address() << static_cast<U32>(v.len());
}

IpGenPrefix::IpGenPrefix(Vomo::CharRange& range) : address_(range) {
    len_ = parseLength(range, af() == ipv4() ? 32 : af() == ipv6() ? 128 : 0);
}
// In the log a prefix is its family, 16 bytes of address and the length. Route keys are made of
// them: the bytes are asked for once.
static constexpr std::size_t logSize = 4 + 16 + 4;
IpGenPrefix::IpGenPrefix(Vomo::NboAttrLog::In* in, Vomo::StreamBogon) {
    U8 const* const at = in->take(logSize);
    std::array<U8, 16> bytes;
    std::memcpy(bytes.data(), at + 4, 16);
    address_ = {AddressFamily(Vomo::NboAttrLog::getBigEndian<U32>(at)), Ip6Addr(bytes)};
    len_ = static_cast<S32>(Vomo::NboAttrLog::getBigEndian<U32>(at + 20));
}

U32 IpGenPrefix::hash(U32 seed) const {
    U64 const head = U64{af().value()} << 32 | static_cast<U32>(len_);
    U64 const state = Tumbrel::mix64(Tumbrel::mix64(seed, head), v6Addr().u64(0));
    return Tumbrel::fold(Tumbrel::mix64(state, v6Addr().u64(1)));
}

Vomo::String IpGenPrefix::stringValue() const {
    return fmt::format("{}/{}", address_.stringValue(), len_);
}

bool operator<(IpGenPrefix const& a, IpGenPrefix const& b) {
    if (a.af() != b.af()) return a.af() < b.af();
    auto const& left = a.v6Addr();
    auto const& right = b.v6Addr();
    S32 const shared = std::min(a.len(), b.len());
    if (shared >= 1 && shared <= (a.af() == ipv4() ? 32 : 128)) {
        // The top `n` bits of a half; n is 0 to 64.
        auto const top = [](U64 word, S32 n) {
            return n <= 0 ? 0 : word >> (64 - std::min(n, 64));
        };
        for (unsigned half = 0; half < 2; ++half) {
            S32 const bits = shared - static_cast<S32>(64 * half);
            U64 const x = top(left.u64(half), bits), y = top(right.u64(half), bits);
            if (x != y) return x < y;
        }
    }
    if (a.len() != b.len()) return a.len() > b.len();
    return left < right;
}

Vomo::String valueToStrep(IpGenPrefix const& v) {
    return v.stringValue();
}
std::ostream& operator<<(std::ostream& stream, IpGenPrefix const& v) {
    return stream << v.stringValue();
}
Vomo::NboAttrLog::Out& operator<<(Vomo::NboAttrLog::Out& out, IpGenPrefix const& v) {
    U8* const at = out.room(logSize);
    Vomo::NboAttrLog::putBigEndian(at, v.af().value());
    std::memcpy(at + 4, v.v6Addr().bytes().data(), 16);
    Vomo::NboAttrLog::putBigEndian(at + 20, static_cast<U32>(v.len()));
    return out;
}

} // namespace Kelpie

namespace Vomo {
constinit VomoModule const _IpGenPrefix_d4a8d99ed5f09fc7_vomoModule =
    ModuleRecord<IpGenPrefixModule>::value;
static ModuleRegistration const registration(IpGenPrefixModule::record);
} // namespace Vomo
