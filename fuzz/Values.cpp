// Reads values from foreign text and from foreign log bytes. What parses must print to a text that
// parses to the same value; what does not must raise an exception with a name.
#include "Kelpie/IpPrefix.h"
#include "Mroute/BitMapperTypes.h"
#include "Mroute/McastGroup.h"
#include "Mroute/MfibBriskTypes.h"
#include "Mroute/MfibTypes.h"
#include "Vomo/CharRange.h"
#include "Vomo/Exception.h"
#include "Vomo/NboAttrLog.h"

#include <cstdio>
#include <cstdlib>
#include <span>
#include <string_view>

namespace {

template <class T>
void text(std::string_view input) {
    try {
        Vomo::CharRange range(input);
        T const value(range);
        auto const printed = valueToStrep(value);
        Vomo::CharRange again{std::string_view(printed)};
        if (T(again) == value) return;
    } catch (Dunlin::Exception const&) {
        return;
    }
    std::abort();
}

template <class T>
void log(std::span<U8 const> bytes) {
    try {
        Vomo::NboAttrLog::In in(bytes);
        T const value(&in, Vomo::StreamBogon{});
        static_cast<void>(valueToStrep(value));
    } catch (Dunlin::Exception const&) {
    }
}

template <class... T>
void each(U8 which, std::string_view input, std::span<U8 const> bytes) {
    U8 number = 0;
    ((which % sizeof...(T) == number++ ? (text<T>(input), log<T>(bytes)) : void()), ...);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(U8 const* data, std::size_t size) {
    if (size == 0) return 0;
    std::string_view const input(reinterpret_cast<char const*>(data) + 1, size - 1);
    using namespace Routing::Multicast::Fib;
    namespace Tables = Brisk::Multicast::Fib;
    each<IpGenRouteKey, RouteFlags, Tables::Route, Tables::OifIndexIntf, Tables::BidirGroup,
         Tables::DfProfile, Kelpie::IpGenPrefix, BitMapper::BitIndexMap,
         Multicast::Group::GroupKey>(data[0], input, {data + 1, size - 1});
    return 0;
}
