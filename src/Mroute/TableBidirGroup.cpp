#include "Mroute/Tables.h"

#include "Brisk/TableImpl.h"
#include "Vomo/SerDes.h"

BRISK_TABLE_INSTANCE(Mroute::BidirGroupTable::Ops);

using Files = Brisk::SlotTable<Mroute::BidirGroupTable::Value>;
static_assert(Files::slotSize == 48 && Files::headerSize == 648);
