// The framework's byte string and its seconds.
#pragma once

#include "Dunlin/Types.h"

#include <string>
#include <string_view>

namespace Vomo {

// A byte string; any byte may stand in it. A string nobody has set is empty.
class String : public std::string {
public:
    using std::string::string;
    String() = default;
    String(std::string text) : std::string(std::move(text)) {}
    explicit String(std::string_view text) : std::string(text) {}
    U32 bytes() const { return static_cast<U32>(size()); }
};

// A time or a span of time, in seconds.
using Seconds = double;

} // namespace Vomo
