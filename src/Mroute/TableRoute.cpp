#include "Mroute/Tables.h"

#include "Brisk/TableImpl.h"
#include "Vomo/SerDes.h"

BRISK_TABLE_INSTANCE(Mroute::RouteTable::Ops);

using Files = Brisk::SlotTable<Mroute::RouteTable::Value>;
static_assert(Files::slotSize == 176 && Files::headerSize == 776);
