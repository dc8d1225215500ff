// The control file that a copying tool may leave in a table's directory; removed with the table.
#pragma once

namespace Mem::Util {

struct Clone {
    static constexpr char const* CONTROL_FILENAME = "clone-control";
};

} // namespace Mem::Util
