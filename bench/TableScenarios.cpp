#include "bench/TableScenarios.h"

namespace Bench {

void measureTable(U32 entries, std::size_t, Yardsticks const& yardsticks, Options const&, std::vector<Row>& rows) {
    rows.push_back({"array read", entries, yardsticks.read, "ns", 0, "", 0});
    rows.push_back({"array read under a writer", entries, yardsticks.readSeqlock, "ns", 0, "", 0});
    rows.push_back({"array overwrite", entries, yardsticks.overwrite, "ns", 0, "", 0});
}

} // namespace Bench
