#include "tests/support/TestTable.h"

#include "Brisk/TableImpl.h"

BRISK_TABLE_INSTANCE(Support::TestOps);
