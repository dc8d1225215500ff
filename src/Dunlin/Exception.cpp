#include "Dunlin/Exception.h"

#include <fmt/format.h>

#include <cstdio>
#include <cstdlib>

namespace Dunlin {

std::string formatText(fmt::string_view format, fmt::format_args args) {
    return fmt::vformat(format, args);
}

void assertionFailed(char const* source, unsigned line, std::string_view text) {
    std::string const whole = fmt::format("{}:{}: assertion failed: {}\n", source, line, text);
    std::fwrite(whole.data(), 1, whole.size(), stderr);
    std::fflush(stderr);
    std::abort();
}

void assertionFailed(char const* source, unsigned line, fmt::string_view format,
                     fmt::format_args args) {
    assertionFailed(source, line, std::string_view(fmt::vformat(format, args)));
}

} // namespace Dunlin
