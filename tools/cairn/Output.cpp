#include "Output.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "Signals.h"

#include <unistd.h>

namespace Cairn {
namespace {

char const* escapeOf(Row::Hue hue) {
    switch (hue) {
    case Row::Hue::plain:
        return nullptr;
    case Row::Hue::address:
        return "\033[35m";
    case Row::Hue::interface:
        return "\033[36m";
    case Row::Hue::good:
        return "\033[32m";
    case Row::Hue::bad:
        return "\033[31m";
    }
    return nullptr;
}

} // namespace

bool wantsColour(Colour colour) {
    if (colour != Colour::automatic) return colour == Colour::always;
    char const* const refused = std::getenv("NO_COLOR");
    char const* const terminal = std::getenv("TERM");
    return !(refused && *refused) && !(terminal && std::string_view(terminal) == "dumb") &&
           ::isatty(STDOUT_FILENO);
}

void complain(std::string const& line) {
    std::fputs((printable(line) + "\n").c_str(), stderr);
}

std::string printable(std::string_view text) {
    std::string safe;
    for (std::size_t i = 0; i < text.size(); ++i) {
        auto const byte = static_cast<U8>(text[i]);
        // The second set of control characters, in UTF-8.
        bool const pair = byte == 0xc2 && i + 1 < text.size() &&
                          static_cast<U8>(text[i + 1]) >= 0x80 &&
                          static_cast<U8>(text[i + 1]) < 0xa0;
        if (pair)
            safe += fmt::format("\\x{:02x}\\x{:02x}", byte, static_cast<U8>(text[++i]));
        else if (byte < 0x20 || byte == 0x7f)
            safe += fmt::format("\\x{:02x}", byte);
        else
            safe += text[i];
    }
    return safe;
}

std::string shortened(std::string_view text) {
    constexpr std::size_t longest = 120;
    if (text.size() <= longest) return printable(text);
    std::size_t cut = longest - 3;
    while (cut > 0 && (static_cast<U8>(text[cut]) & 0xc0) == 0x80) --cut; // whole characters
    return printable(text.substr(0, cut)) + "...";
}

std::string Row::text(bool colour) const {
    std::string line;
    auto const put = [&](Field const& field, std::string const& value) {
        if (!line.empty()) line += ' ';
        line += field.name;
        line += ' ';
        char const* const escape = colour ? escapeOf(field.hue) : nullptr;
        if (escape) line += escape;
        line += printable(value);
        if (escape) line += "\033[0m";
    };
    for (auto const& field : fields_) {
        std::visit(
            [&]<class T>(T const& value) {
                if constexpr (std::is_same_v<T, List>) {
                    if (field.joined || value.empty())
                        put(field, value.empty() ? "-" : fmt::format("{}", fmt::join(value, ",")));
                    else
                        for (auto const& member : value) put(field, member);
                } else if constexpr (std::is_same_v<T, Rows>) {
                    if (value.empty()) put(field, "-");
                    for (Row const& member : value) put(field, member.text(false));
                } else if constexpr (std::is_same_v<T, std::string>)
                    put(field, value.empty() ? "-" : value);
                else if constexpr (std::is_same_v<T, bool>)
                    put(field, value ? "yes" : "no");
                else
                    put(field, fmt::format("{}", value));
            },
            field.value);
    }
    return line;
}

template <class Json>
Json Row::as() const {
    Json object = Json::object();
    for (auto const& field : fields_)
        std::visit(
            [&]<class T>(T const& value) {
                Json& to = object[field.jsonName];
                if constexpr (std::is_same_v<T, Rows>) {
                    to = Json::array();
                    for (Row const& member : value) to.push_back(member.as<Json>());
                } else {
                    to = value;
                }
            },
            field.value);
    return object;
}

std::string Row::json() const {
    // Names are bytes: what is not UTF-8 is replaced, so that the array stays valid.
    return as<nlohmann::ordered_json>().dump(-1, ' ', false,
                                             nlohmann::ordered_json::error_handler_t::replace);
}

void Listing::print(Row const& row) {
    if (outputIsBlocked()) return;
    if (json_)
        fmt::print(stream_, "{}{}", rows_ == 0 ? "[\n" : ",\n", row.json());
    else
        fmt::print(stream_, "{}\n", row.text(colour_));
    ++rows_;
}

Listing* Listing::present = nullptr;

void Listing::finishAll() {
    for (Listing* listing = present; listing; listing = listing->outer_) listing->finish();
}

void Listing::finish() {
    if (std::exchange(finished_, true) || !json_) return;
    std::fputs(rows_ == 0 ? "[]\n" : "\n]\n", stream_);
}

} // namespace Cairn
