#include "Mroute/Tables.h"

#include "Brisk/TableImpl.h"
#include "Vomo/SerDes.h"

BRISK_TABLE_INSTANCE(Mroute::CounterTable::Ops);

using Files = Brisk::SlotTable<Mroute::CounterTable::Value>;
static_assert(Files::slotSize == 88 && Files::headerSize == 688);
