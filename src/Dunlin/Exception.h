// Exceptions of the platform and the two ways to report a fault: bad data raises, a programming
// error ends the process with its text.
#pragma once

#include "Dunlin/Types.h"

#include <fmt/core.h>

#include <exception>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

namespace Dunlin {

// Root of the platform's exceptions.
class Exception : public std::runtime_error {
public:
    explicit Exception(std::string const& text) : std::runtime_error(text) {}
    std::string message() const { return what(); }
};

// A value that cannot be computed or represented.
class RuntimeException : public Exception {
    using Exception::Exception;
};
// Damaged shared data; also a reader's ordinary signal that it must re-map.
class CorruptionDetectedException : public Exception {
    using Exception::Exception;
};
// A mapping could not be made, grown or shrunk.
class MemoryResourceException : public Exception {
    using Exception::Exception;
};
// An object was asked to start with settings or files it cannot work with.
class InvalidInitializeException : public Exception {
    using Exception::Exception;
};
// A write through a read-only interface.
class NoPermissionException : public Exception {
    using Exception::Exception;
};

// Steps that are all taken, whatever one of them raises: the first exception waits until the caller
// is done with the rest and passes it on.
class FirstRaised {
public:
    template <class Step>
    void run(Step&& step) {
        try {
            step();
        } catch (...) {
            if (!raised_) raised_ = std::current_exception();
        }
    }
    void rethrow() {
        if (raised_) [[unlikely]]
            std::rethrow_exception(std::exchange(raised_, nullptr));
    }

private:
    std::exception_ptr raised_;
};

std::string formatText(fmt::string_view format, fmt::format_args args);

// Formats with {fmt} and throws E with that text.
template <class E, class... A>
[[noreturn]] void fmthrow(fmt::format_string<A...> format, A&&... args) {
    throw E(formatText(format, fmt::make_format_args(args...)));
}

// Prints "<source>:<line>: <text>" to stderr and ends the process by SIGABRT.
[[noreturn]] void assertionFailed(char const* source, unsigned line, std::string_view text);
[[noreturn]] void assertionFailed(char const* source, unsigned line, fmt::string_view format,
                                  fmt::format_args args);

template <class... A>
[[noreturn]] void assertionFormatted(char const* source, unsigned line,
                                     fmt::format_string<A...> format, A&&... args) {
    assertionFailed(source, line, format, fmt::make_format_args(args...));
}

} // namespace Dunlin

// Ends the process unless `condition` holds; the text is a {fmt} format with its arguments. Not
// switched off by NDEBUG.
#define FMASSERT(condition, ...)                                                                   \
    do {                                                                                           \
        if (!(condition)) [[unlikely]]                                                             \
            ::Dunlin::assertionFormatted(__FILE__, __LINE__, __VA_ARGS__);                         \
    } while (false)

// The same with a fixed text, which need not be the C++ expression.
#define PLAINASSERT(condition, text)                                                               \
    do {                                                                                           \
        if (!(condition)) [[unlikely]]                                                             \
            ::Dunlin::assertionFailed(__FILE__, __LINE__, std::string_view(text));                 \
    } while (false)
