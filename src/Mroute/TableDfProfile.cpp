#include "Mroute/Tables.h"

#include "Brisk/TableImpl.h"
#include "Vomo/SerDes.h"

BRISK_TABLE_INSTANCE(Mroute::DfProfileTable::Ops);

using Files = Brisk::SlotTable<Mroute::DfProfileTable::Value>;
static_assert(Files::slotSize == 32 && Files::headerSize == 632);
