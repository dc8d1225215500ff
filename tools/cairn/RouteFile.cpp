#include "RouteFile.h"

#include "Output.h"
#include "Signals.h"
#include "TableNames.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <poll.h>
#include <sstream>
#include <unistd.h>

namespace Cairn {
namespace {

using Json = nlohmann::json;

// Gathers the routes of one file and says where a fault stands.
class Reader {
public:
    explicit Reader(std::string const& path) : path_(path) {}

    std::size_t line = 1;

    [[noreturn]] void fail(std::string const& reason) const {
        throw RouteFileError(fmt::format("{}:{}: {}", shortened(path_), line, reason));
    }

    IpAddress address(std::string const& text, char const* what) const {
        auto const a = parseAddress(text);
        if (!a) fail(fmt::format("{} \"{}\" is not an IP address", what, shortened(text)));
        return *a;
    }

    // Kernel names have up to 15 bytes; those of a switch ("Port-Channel10.4094") a few more.
    std::string const& interface(std::string const& name, char const* what) const {
        auto const bad = [](char c) { return static_cast<U8>(c) <= ' ' || c == '\x7f'; };
        if (name.empty() || name.size() > 63 || std::any_of(name.begin(), name.end(), bad))
            fail(fmt::format("{} \"{}\" is not the name of an interface", what, shortened(name)));
        return name;
    }

    std::string const& vrf(std::string const& name) const {
        if (!isDirectoryName(name))
            fail(fmt::format("vrf \"{}\" is not the name of a VRF", shortened(name)));
        return name;
    }

    // Takes one route, its texts checked already but for how they go together.
    void add(NamedRoute route) {
        auto& [vrf, source, group] = route.name;
        if (source.af() == Kelpie::AddressFamily()) source = unspecifiedAddress(group.af());
        if (source.af() != group.af())
            fail(fmt::format("source {} and group {} are of two address families", toText(source),
                             toText(group)));
        if (source.isMulticast())
            fail(fmt::format("source {} is a multicast address", toText(source)));
        if (isUnspecified(group) || isLinkLocalGroup(group)) {
            ++file_.passedOver;
            return;
        }
        if (!group.isMulticast())
            fail(fmt::format("group {} is not a multicast address", toText(group)));
        std::sort(route.oifs.begin(), route.oifs.end());
        route.oifs.erase(std::unique(route.oifs.begin(), route.oifs.end()), route.oifs.end());
        auto const [known, isNew] = lines_.try_emplace(route.name, line, file_.routes.size());
        if (isNew) {
            file_.routes.push_back(std::move(route));
        } else if (!(file_.routes[known->second.second] == route)) {
            fail(fmt::format("({},{}) stands on line {} with other interfaces", sourceText(source),
                             toText(group), known->second.first));
        }
    }
    void passOver() { ++file_.passedOver; }

    RouteFile take() { return std::move(file_); }

private:
    std::string path_;
    RouteFile file_;
    std::map<RouteName, std::pair<std::size_t, std::size_t>> lines_; // line, index
};

// An input of the JSON parser that counts lines as they are consumed.
class CountingInput {
public:
    using iterator_category = std::input_iterator_tag;
    using value_type = char;
    using difference_type = std::ptrdiff_t;
    using pointer = char const*;
    using reference = char const&;

    CountingInput(char const* at, std::size_t* line) : at_(at), line_(line) {}
    reference operator*() const { return *at_; }
    CountingInput& operator++() {
        if (*at_++ == '\n') ++*line_;
        return *this;
    }
    CountingInput operator++(int) {
        CountingInput const before = *this;
        ++*this;
        return before;
    }
    bool operator==(CountingInput const& o) const { return at_ == o.at_; }
    bool operator!=(CountingInput const& o) const { return at_ != o.at_; }

private:
    char const* at_;
    std::size_t* line_;
};

std::string const& textOf(Json const& object, char const* key, Reader const& reader) {
    static std::string const none;
    auto const found = object.find(key);
    if (found == object.end()) return none;
    if (!found->is_string()) reader.fail(fmt::format("\"{}\" is not a text", key));
    return found->get_ref<std::string const&>();
}

void addJsonRoute(Json const& object, Reader& reader) {
    if (!object.is_object()) reader.fail("an entry of the array is not an object");
    if (textOf(object, "state", reader) == "unresolved") return reader.passOver();
    NamedRoute route;
    // `ip` says dst and src, this tool group and source.
    bool const ours = object.contains("group");
    char const* const groupKey = ours ? "group" : "dst";
    char const* const sourceKey = ours ? "source" : "src";
    auto const& group = textOf(object, groupKey, reader);
    if (group.empty()) reader.fail("the route has no \"dst\", its group");
    route.name.group = reader.address(group, groupKey);
    if (auto const& source = textOf(object, sourceKey, reader); !source.empty() && source != "*")
        route.name.source = reader.address(source, sourceKey);
    if (auto const& vrf = textOf(object, "vrf", reader); !vrf.empty())
        route.name.vrf = reader.vrf(vrf);
    if (auto const table = object.find("table"); table != object.end()) {
        std::string const text = table->is_number_unsigned() ? std::to_string(table->get<U64>())
                                                             : textOf(object, "table", reader);
        // "default" and "main" are what `ip` calls the tables 253 and 254.
        if (text != "default" && text != "main" && !text.empty())
            route.name.vrf = "table-" + reader.interface(text, "table");
    }
    // A resolved route whose incoming interface is gone says "unresolved" there.
    if (auto const& iif = textOf(object, "iif", reader); !iif.empty() && iif != "unresolved")
        route.iif = reader.interface(iif, "iif");
    if (auto const oifs = object.find("oifs"); oifs != object.end()) {
        if (!oifs->is_array()) reader.fail("\"oifs\" is not an array");
        for (auto const& oif : *oifs) {
            if (!oif.is_string()) reader.fail("an entry of \"oifs\" is not a text");
            route.oifs.push_back(reader.interface(oif.get_ref<std::string const&>(), "oif"));
        }
    }
    if (auto const hops = object.find("multipath"); hops != object.end()) {
        if (!hops->is_array()) reader.fail("\"multipath\" is not an array");
        for (auto const& hop : *hops) {
            if (!hop.is_object()) reader.fail("an entry of \"multipath\" is not an object");
            route.oifs.push_back(reader.interface(textOf(hop, "oif", reader), "oif"));
        }
    }
    reader.add(std::move(route));
}

RouteFile parseJson(std::string_view text, Reader reader) {
    // Where each entry of the outer array begins.
    std::vector<std::size_t> lines;
    std::size_t line = 1;
    auto const noteLine = [&](int depth, Json::parse_event_t event, Json&) {
        if (depth == 1 &&
            (event == Json::parse_event_t::object_start ||
             event == Json::parse_event_t::array_start || event == Json::parse_event_t::value))
            lines.push_back(line);
        return true;
    };
    Json all;
    try {
        all = Json::parse(CountingInput(text.data(), &line),
                          CountingInput(text.data() + text.size(), &line), noteLine);
    } catch (Json::exception const& e) {
        std::string_view reason = e.what(); // "[json.exception.parse_error.101] parse error at ..."
        if (auto const end = reason.find("] "); end != reason.npos) reason.remove_prefix(end + 2);
        reader.line = line;
        reader.fail(fmt::format("not JSON: {}", reason));
    }
    if (!all.is_array()) reader.fail("not an array of routes");
    for (std::size_t i = 0; i < all.size(); ++i) {
        reader.line = lines.at(i);
        addJsonRoute(all[i], reader);
    }
    return reader.take();
}

// The fields of a CSV line (RFC 4180, without line breaks inside quotes).
std::vector<std::string> splitCsv(std::string_view line, Reader const& reader) {
    std::vector<std::string> fields(1);
    bool quoted = false;
    for (std::size_t i = 0; i < line.size(); ++i) {
        char const c = line[i];
        if (quoted) {
            if (c != '"')
                fields.back() += c;
            else if (i + 1 < line.size() && line[i + 1] == '"')
                fields.back() += line[++i];
            else
                quoted = false;
        } else if (c == '"' && fields.back().empty()) {
            quoted = true;
        } else if (c == ',') {
            fields.emplace_back();
        } else {
            fields.back() += c;
        }
    }
    if (quoted) reader.fail("a quoted field has no end on its line");
    return fields;
}

std::string_view nextLine(std::string_view& text) {
    auto const end = std::min(text.find('\n'), text.size());
    std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    if (line.ends_with('\r')) line.remove_suffix(1);
    return line;
}

RouteFile parseCsv(std::string_view text, Reader reader) {
    constexpr std::array<char const*, 4> names{"source", "group", "iif", "oifs"};
    auto const header = splitCsv(nextLine(text), reader);
    std::array<std::size_t, names.size()> column{};
    for (std::size_t n = 0; n < names.size(); ++n) {
        auto const at = std::find(header.begin(), header.end(), names[n]);
        if (at == header.end())
            reader.fail(fmt::format(
                "the header names no column \"{}\" (needed: source,group,iif,oifs)", names[n]));
        if (std::find(at + 1, header.end(), names[n]) != header.end())
            reader.fail(fmt::format("the header names the column \"{}\" twice", names[n]));
        column[n] = static_cast<std::size_t>(at - header.begin());
    }
    while (!text.empty()) {
        auto const line = nextLine(text);
        ++reader.line;
        if (line.empty()) continue;
        auto const fields = splitCsv(line, reader);
        if (fields.size() != header.size())
            reader.fail(
                fmt::format("{} fields where the header has {}", fields.size(), header.size()));
        auto const& [source, group, iif, oifs] =
            std::tie(fields[column[0]], fields[column[1]], fields[column[2]], fields[column[3]]);
        NamedRoute route;
        if (group.empty()) reader.fail("the route has no group");
        route.name.group = reader.address(group, "group");
        if (!source.empty() && source != "*") route.name.source = reader.address(source, "source");
        if (!iif.empty()) route.iif = reader.interface(iif, "iif");
        std::istringstream blanks(oifs);
        for (std::string oif; blanks >> oif;) route.oifs.push_back(reader.interface(oif, "oif"));
        reader.add(std::move(route));
    }
    return reader.take();
}

} // namespace

RouteFile parseRouteFile(std::string_view text, std::string const& path) {
    Reader reader(path);
    if (text.starts_with("\xef\xbb\xbf")) text.remove_prefix(3); // byte order mark
    auto const first = text.find_first_not_of(" \t\r\n");
    if (first == std::string_view::npos) reader.fail("the file is empty");
    return text[first] == '[' || text[first] == '{' ? parseJson(text, std::move(reader))
                                                    : parseCsv(text, std::move(reader));
}

namespace {

// Reads to the end, and nothing less: a part of a file would be taken for all of it.
std::string readWhole(int fd, std::string const& name) {
    auto const fail = [&](char const* reason) {
        throw RouteFileError(fmt::format("{}: {}", shortened(name), reason));
    };
    std::string text;
    std::array<char, 65536> buffer;
    for (;;) {
        if (!awaitReady(fd, POLLIN))
            fail(errno == EINTR ? "a signal came before its end" : std::strerror(errno));
        auto const n = ::read(fd, buffer.data(), buffer.size());
        if (n == 0) return text;
        if (n > 0)
            text.append(buffer.data(), static_cast<std::size_t>(n));
        else if (errno != EINTR && errno != EAGAIN)
            fail(std::strerror(errno));
    }
}

} // namespace

RouteFile readRouteFile(std::string const& path) {
    if (path == "-") {
        char const* const name = "standard input";
        return parseRouteFile(readWhole(STDIN_FILENO, name), name);
    }
    // A FIFO without a writer is waited for with the signals in view, not here.
    Mem::Fd const file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (!file) throw RouteFileError(fmt::format("{}: {}", shortened(path), std::strerror(errno)));
    return parseRouteFile(readWhole(file.get(), path), path);
}

} // namespace Cairn
