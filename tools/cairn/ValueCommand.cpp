// `cairn value`: any value, read from its text form by the type that it names or from the bytes that
// it has in the attribute log.
#include "AnyValue.h"
#include "Commands.h"
#include "TableNames.h"

#include "Bridging/VlanId.h"
#include "Kelpie/IpPrefix.h"
#include "Vomo/NboAttrLog.h"
#include "Vomo/PlacedRangeException.h"

#include <fmt/format.h>

namespace Cairn {
namespace {

using namespace Vomo;

// The compact route key's parser takes what it was given for its own output and ends the process on
// anything else: what comes from a user is read by the frame first, with the same parts.
void checkRouteKeyText(std::string const& text) {
    CharRange range(text);
    auto const part = [&]<class T>(char const* name, T*) {
        range.needString(fmt::format(", '{}': ", name));
        CharRange const at = range;
        deserializePlacedAttr<T>(range, name);
        if (range.position() - at.position() > 63) at.throwWanted("at most 63 characters");
    };
    constexpr Bridging::VlanId* vlan = nullptr;
    constexpr Kelpie::EthAddr* mac = nullptr;
    constexpr Kelpie::Prefix* prefix = nullptr;
    constexpr U16* number = nullptr;
    range.needString("Value('Routing::Multicast::Fib::IpGenRouteKey', ** {'kind': ");
    if (range.haveString("'vlanFloodset'") || range.haveString("'multicastFloodset'") ||
        range.haveString("'vxlanCoreSideFloodset'"))
        part("vlanId", vlan);
    else if (range.haveString("'ethGroup'"))
        part("vlanId", vlan), part("ethGroup", mac);
    else if (range.haveString("'mcastGroup'"))
        part("kind", number), part("index", number);
    else if (range.haveString("'mroute'"))
        part("s", prefix), part("g", prefix);
    else if (!range.haveString("'unknownRouteKeyType'"))
        range.throwWanted("a kind of route key that is read back");
    range.needString("})");
    range.checkAllDataConsumed();
}

constexpr char const* compactKeyHead = "Value('Routing::Multicast::Fib::IpGenRouteKey'";

// The type that a text names: "Value('Name', ** {...})".
VomoType typeNamedBy(std::string const& text) {
    constexpr std::string_view head = "Value('";
    if (!text.starts_with(head))
        throw CommandError(badUse, "at character 0: wanted \"Value('\" and a type's name; for a "
                                   "bare text name its type with --type");
    std::size_t const end = text.find('\'', head.size());
    if (end == text.npos)
        throw CommandError(badUse, fmt::format("at character {}: wanted \"'\"", text.size()));
    // The compact key prints under the name of the general one.
    if (text.starts_with(compactKeyHead)) return wantedType("Routing::Multicast::Fib::RouteKey");
    std::string const name = text.substr(head.size(), end - head.size());
    VomoType const type = typeByName(name);
    if (type.isNull())
        throw CommandError(badUse, fmt::format("at character {}: wanted the name of a type, found "
                                               "\"{}\"",
                                               head.size(), printable(name)));
    return type;
}

// The bytes that hexadecimal digits stand for, two a byte, with blanks between bytes.
std::vector<U8> bytesOf(std::string const& hex) {
    auto const digit = [&](std::size_t at) -> U8 {
        char const c = hex[at];
        if (c >= '0' && c <= '9') return static_cast<U8>(c - '0');
        if (c >= 'a' && c <= 'f') return static_cast<U8>(c - 'a' + 10);
        if (c >= 'A' && c <= 'F') return static_cast<U8>(c - 'A' + 10);
        throw CommandError(
            badUse, fmt::format("--log: at character {}: wanted a hexadecimal digit, found \"{}\"",
                                at, printable(std::string_view(&c, 1))));
    };
    std::vector<U8> bytes;
    for (std::size_t i = 0; i < hex.size(); ++i) {
        if (hex[i] == ' ') continue;
        U8 const high = digit(i);
        if (++i == hex.size())
            throw CommandError(badUse, fmt::format("--log: at character {}: wanted the second "
                                                   "digit of a byte",
                                                   i));
        bytes.push_back(static_cast<U8>(high << 4 | digit(i)));
    }
    return bytes;
}

int printValue(Common const& common, AnyValue const& value) {
    Listing listing = common.listing();
    if (!common.json) {
        fmt::print("{}\n", printable(value.text()));
        // The text form says nothing of members.
        for (auto const& [attr, shown] : value.attributes())
            if (auto const* const members = std::get_if<Row::Rows>(&shown))
                for (Row const& member : *members)
                    listing.print(Row().add(attr.name(), Row::Rows{member}));
        return done;
    }
    Row line;
    line.add("type", std::string(value.type().name())).add("text", value.text());
    for (auto& [attr, shown] : value.attributes()) {
        std::string name = snakeCase(attr.name());
        if (name == "type" || name == "text") name += "_attribute"; // these two are taken
        line.add(std::move(name), std::move(shown));
    }
    listing.print(line);
    return done;
}

} // namespace

int valueCommand(Common const& common, std::string const& text, std::string const& typeName) {
    VomoType const type = typeName.empty() ? typeNamedBy(text) : wantedType(typeName);
    if (type.isPolymorphic())
        throw CommandError(badUse,
                           fmt::format("{} is an entity, which has no text form", type.name()));
    if (holdsCollection(type))
        throw CommandError(
            badUse, fmt::format("{} holds a collection, which has no text form", type.name()));
    AnyValue value(type);
    try {
        if (type == typeByName("Routing::Multicast::Fib::RouteKey")) checkRouteKeyText(text);
        value.textIs(String(text));
    } catch (PlacedRangeException const& e) {
        throw CommandError(badUse, fmt::format("{}: at character {}: {}", type.name(), e.position(),
                                               printable(e.what())));
    } catch (RangeException const& e) { // of a value that is one number
        throw CommandError(badUse,
                           fmt::format("{}: at character 0: {}", type.name(), printable(e.what())));
    } catch (Vomo::Exception const& e) {
        throw CommandError(badUse, fmt::format("{}: {}", type.name(), printable(e.what())));
    }
    return printValue(common, value);
}

int logValueCommand(Common const& common, std::string const& hex, std::string const& typeName) {
    VomoType const type = wantedType(typeName);
    if (type.isPolymorphic())
        throw CommandError(badUse, fmt::format("{} is an entity: only values are read from log "
                                               "bytes",
                                               type.name()));
    std::vector<U8> const bytes = bytesOf(hex);
    NboAttrLog::In in(bytes);
    AnyValue value(type);
    auto const fault = [&](std::string const& what) {
        return CommandError(badUse, fmt::format("{}: after {} of {} bytes: {}", type.name(),
                                                bytes.size() - in.remaining(), bytes.size(),
                                                printable(what)));
    };
    try {
        value.logIs(&in);
    } catch (Vomo::Exception const& e) {
        throw fault(e.what());
    }
    if (in.remaining() != 0) throw fault("the value ends, and bytes are left over");
    return printValue(common, value);
}

} // namespace Cairn
