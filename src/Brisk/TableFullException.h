// A fixed-size table has no free slot.
#pragma once

#include "Dunlin/Exception.h"

namespace Brisk {

class TableFullException : public Dunlin::Exception {
public:
    using Exception::Exception;

    template <class... A>
    [[noreturn]] static void throwException(fmt::format_string<A...> format, A&&... args) {
        throw TableFullException(Dunlin::formatText(format, fmt::make_format_args(args...)));
    }
};

} // namespace Brisk
