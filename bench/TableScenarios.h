// The scenarios over a table of routes.
#pragma once

#include "bench/Harness.h"
#include "bench/Yardsticks.h"

namespace Bench {

// Measures all scenarios at one size and adds their rows.
void measureTable(U32 entries, std::size_t sizeNumber, Yardsticks const& yardsticks,
                  Options const& options, std::vector<Row>& rows);

} // namespace Bench
