// The scenarios over a shadow: how soon and how fast its client is told, and its first sync. Times
// by the clock on the wall here, since two processes wait for each other; table and yardstick take
// turns, so that a machine that does other things too does them to both.
#pragma once

#include "bench/Harness.h"

namespace Bench {

void measureNotifications(Options const& options, std::vector<Row>& rows);

} // namespace Bench
