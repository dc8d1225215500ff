// Trace output. A handle has a name and a mask; a line is formatted only if its level is on, and
// the test costs one byte load. Levels: 0 errors, 1 important events, 2 resizes, 3 file names and
// headers, 5 entry and exit of management operations, 7 free-list work, 8 and 9 per-entry work.
#pragma once

#include "Dunlin/Types.h"

#include <fmt/core.h>

#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace Dunlin {
namespace Platform {

class DebugHandler {
public:
    // Errors alone are on unless the environment or a setter says otherwise.
    static constexpr U16 defaultMask = 1;
    static constexpr unsigned numLevels = 10;

    explicit DebugHandler(std::string name, U16 mask = defaultMask) : name_(std::move(name)) {
        maskIs(mask);
    }
    std::string const& name() const { return name_; }
    bool on(unsigned level) const { return (bits_[level >> 3] >> (level & 7)) & 1; }
    U16 mask() const { return static_cast<U16>(bits_[0] | bits_[1] << 8); }
    // Bit n set: level n is traced.
    void maskIs(U16 mask) {
        bits_[0] = static_cast<U8>(mask);
        bits_[1] = static_cast<U8>(mask >> 8);
    }

private:
    std::string name_;
    U8 bits_[2] = {};
};

// The handle of that name, made on first use. The second argument says whether the handle is
// forgotten when its last holder goes; else it stays to the very end of the process.
std::shared_ptr<DebugHandler> getDebugHandler(std::string const& name, bool transient);

// Sets the mask of every handle of that name, present and to come; "*" means all names.
void debugMaskIs(std::string const& name, U16 mask);

} // namespace Platform

using TraceSink = std::function<void(std::string const& handle, unsigned level,
                                     std::string_view function, std::string const& text)>;
// Where trace lines go; an empty function restores stderr. Returns the former sink. The environment
// variable CAIRN_TRACE sets masks at first use: "name=mask,name=mask" with hexadecimal masks, "*"
// for all names, for instance CAIRN_TRACE='*=3f'.
TraceSink traceSinkIs(TraceSink sink);

void emitTrace(Platform::DebugHandler const& handler, unsigned level, char const* function,
               fmt::string_view format, fmt::format_args args);

template <class... A>
void traceFormatted(Platform::DebugHandler const& handler, unsigned level, char const* function,
                    fmt::format_string<A...> format, A&&... args) {
    emitTrace(handler, level, function, format, fmt::make_format_args(args...));
}

// Base of objects that trace: holds the handle.
class Debuggable {
public:
    explicit Debuggable(Platform::DebugHandler& handler) : handler_(&handler) {}
    Platform::DebugHandler& debugHandler() const { return *handler_; }

private:
    Platform::DebugHandler* handler_;
};

// Callable with anything, does nothing: the first value of every callback.
struct Noop {
    template <class... A>
    void operator()(A&&...) const {}
};
inline constexpr Noop noop{};

// The bytes at `data` in hexadecimal, two digits each, for messages about data that may be torn.
std::string dumpHex(void const* data, std::size_t size);

} // namespace Dunlin

#define FMTRACE(handler, level, ...)                                                               \
    do {                                                                                           \
        if ((handler).on(level)) [[unlikely]]                                                      \
            ::Dunlin::traceFormatted(handler, level, __func__, __VA_ARGS__);                       \
    } while (false)
