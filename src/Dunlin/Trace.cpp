#include "Dunlin/Trace.h"

#include <fmt/format.h>

#include <cstdlib>
#include <map>
#include <mutex>

namespace Dunlin {
namespace {

struct Registry {
    std::mutex mutex;
    std::map<std::string, std::shared_ptr<Platform::DebugHandler>> kept;
    std::map<std::string, std::weak_ptr<Platform::DebugHandler>> transient;
    std::map<std::string, U16> masks;
    U16 everywhere = Platform::DebugHandler::defaultMask;
    TraceSink sink;

    Registry() {
        if (char const* text = std::getenv("CAIRN_TRACE")) parse(text);
    }
    void parse(std::string_view text) {
        while (!text.empty()) {
            std::string_view const item = text.substr(0, text.find(','));
            text.remove_prefix(std::min(text.size(), item.size() + 1));
            std::size_t const equals = item.rfind('=');
            if (equals == std::string_view::npos) continue;
            set(std::string(item.substr(0, equals)),
                static_cast<U16>(
                    std::strtoul(std::string(item.substr(equals + 1)).c_str(), nullptr, 16)));
        }
    }
    void set(std::string const& name, U16 mask) {
        if (name == "*")
            everywhere = mask;
        else
            masks[name] = mask;
    }
    U16 maskOf(std::string const& name) const {
        auto const found = masks.find(name);
        return found == masks.end() ? everywhere : found->second;
    }
};

Registry& registry() {
    // Never destroyed: static objects trace until the process ends.
    static auto& instance = *new Registry;
    return instance;
}

} // namespace

namespace Platform {

std::shared_ptr<DebugHandler> getDebugHandler(std::string const& name, bool transient) {
    Registry& r = registry();
    std::lock_guard const lock(r.mutex);
    if (auto const found = r.kept.find(name); found != r.kept.end()) return found->second;
    auto& slot = r.transient[name];
    std::shared_ptr<DebugHandler> handler = slot.lock();
    if (!handler) handler = std::make_shared<DebugHandler>(name, r.maskOf(name));
    if (transient) {
        slot = handler;
    } else {
        r.transient.erase(name);
        r.kept[name] = handler;
    }
    return handler;
}

void debugMaskIs(std::string const& name, U16 mask) {
    Registry& r = registry();
    std::lock_guard const lock(r.mutex);
    if (name == "*") r.masks.clear();
    r.set(name, mask);
    for (auto const& [n, handler] : r.kept)
        if (name == "*" || n == name) handler->maskIs(mask);
    for (auto const& [n, weak] : r.transient)
        if (auto const handler = weak.lock(); handler && (name == "*" || n == name))
            handler->maskIs(mask);
}

} // namespace Platform

TraceSink traceSinkIs(TraceSink sink) {
    Registry& r = registry();
    std::lock_guard const lock(r.mutex);
    std::swap(r.sink, sink);
    return sink;
}

void emitTrace(Platform::DebugHandler const& handler, unsigned level, char const* function,
               fmt::string_view format, fmt::format_args args) {
    std::string const text = fmt::vformat(format, args);
    TraceSink sink;
    {
        Registry& r = registry();
        std::lock_guard const lock(r.mutex);
        sink = r.sink;
    }
    if (sink) return sink(handler.name(), level, function, text);
    std::string const line = fmt::format("{} {} {}: {}\n", handler.name(), level, function, text);
    std::fwrite(line.data(), 1, line.size(), stderr);
}

std::string dumpHex(void const* data, std::size_t size) {
    auto const* bytes = static_cast<U8 const*>(data);
    std::string text;
    text.reserve(2 * size);
    for (std::size_t i = 0; i < size; ++i)
        fmt::format_to(std::back_inserter(text), "{:02x}", bytes[i]);
    return text;
}

} // namespace Dunlin
