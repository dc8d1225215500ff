#include "RouteRecord.h"

#include <fmt/format.h>

#include <algorithm>

namespace Cairn {

using Brisk::Multicast::Fib::OifIndex;
using Brisk::Multicast::Fib::Route;

namespace {

std::vector<std::string> flagNames(Route const& route) {
    std::vector<std::string> names;
    auto const add = [&](bool on, char const* name) {
        if (on) names.emplace_back(name);
    };
    add(route.valid(), "valid");
    add(route.programmable(), "programmable");
    add(route.toCpu(), "to_cpu");
    add(route.iifRegister(), "iif_register");
    add(route.oifRegister(), "oif_register");
    add(route.skipSoftwareProgramming(), "skip_software_programming");
    add(route.iifPmsi(), "iif_pmsi");
    add(route.virtualRoute(), "virtual_route");
    add(route.noRpf(), "no_rpf");
    return names;
}

} // namespace

SeenRoute describe(Route const& route, std::string const& vrf,
                   std::function<std::string(OifIndex)> const& interfaceOf) {
    SeenRoute seen;
    seen.route.name = {vrf, route.key().s().address(), route.key().g().address()};
    seen.route.iif = route.iif().stringValue();
    for (U8 word = 0; word < Route::numWords; ++word)
        for (U64 bits = route.oifBitmap(word); bits != 0; bits &= bits - 1)
            seen.route.oifs.push_back(
                interfaceOf(OifIndex(static_cast<U16>(word * 64 + std::countr_zero(bits)))));
    std::sort(seen.route.oifs.begin(), seen.route.oifs.end());
    seen.version = route.version();
    seen.flags = flagNames(route);
    return seen;
}

std::string unknownInterface(OifIndex index) {
    return fmt::format("oif-{}", index.value());
}

Row& addRoute(Row& row, SeenRoute const& seen, RouteTableName const& table) {
    return row.add("source", sourceText(seen.route.name.source), Row::Hue::address)
        .add("group", toText(seen.route.name.group), Row::Hue::address)
        .add("iif", seen.route.iif, Row::Hue::interface)
        .addEach("oif", "oifs", seen.route.oifs, Row::Hue::interface)
        .addJoined("flags", seen.flags)
        .add("version", U64{seen.version})
        .add("vrf", table.vrf)
        .add("name", table.name);
}

} // namespace Cairn
