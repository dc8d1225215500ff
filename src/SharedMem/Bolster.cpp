#include "SharedMem/Bolster.h"

#include "Dunlin/Exception.h"
#include "Dunlin/Util.h"
#include "SharedMem/FileUtil.h"

#include <charconv>
#include <sys/un.h>
#include <unistd.h>

namespace SharedMem {

std::optional<BolsterName> BolsterName::BolsterNameIs(std::string const& text) {
    auto const dash = text.rfind('-');
    if (dash == text.npos || dash == 0) return std::nullopt;
    BolsterName name;
    name.processName = text.substr(0, dash);
    char const* const end = text.data() + text.size();
    auto const [stop, error] = std::from_chars(text.data() + dash + 1, end, name.pid);
    if (error != std::errc() || stop != end || name.pid == 0) return std::nullopt;
    return name;
}

std::string BolsterName::own() {
    char name[17] = {};
    Mem::readFile("/proc/self/comm", name, sizeof name - 1);
    std::string text(name);
    while (!text.empty() && text.back() == '\n') text.pop_back();
    if (text.empty()) text = "unknown";
    for (char& c : text)
        if (c == '/' || c == ' ') c = '_';
    return text + '-' + std::to_string(::getpid());
}

std::string BolsterName::path(std::string const& socketName) {
    std::string const path = Dunlin::Util::baseDirectory() + "/sockets/" + socketName;
    if (path.size() >= sizeof(sockaddr_un::sun_path))
        Dunlin::fmthrow<Dunlin::InvalidInitializeException>(
            "socket path '{}' is too long: {} max:{}", path, path.size(),
            sizeof(sockaddr_un::sun_path) - 1);
    return path;
}

} // namespace SharedMem
