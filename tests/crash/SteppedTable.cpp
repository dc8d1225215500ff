#include "crash/SteppedTable.h"

#include "Brisk/TableImpl.h"

BRISK_TABLE_INSTANCE(stepped::Ops32);
BRISK_TABLE_INSTANCE(stepped::Ops64);
BRISK_TABLE_INSTANCE(stepped::Ops176);
