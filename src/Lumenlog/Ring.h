// The process's last trace lines, for a look at what led to a fault: a ring of fixed size.
#pragma once

#include "Dunlin/Types.h"

#include <string>
#include <string_view>
#include <vector>

namespace Lumenlog {

constexpr std::size_t capacity = 4096;

// Takes one line; the oldest goes when the ring is full. Any thread.
void add(std::string_view line);
// The lines, oldest first.
std::vector<std::string> lines();

} // namespace Lumenlog
