#include "Mroute/Tables.h"

#include "Brisk/TableImpl.h"
#include "Vomo/SerDes.h"

BRISK_TABLE_INSTANCE(Mroute::BitIndexMapTable::Ops);

using Files = Brisk::SlotTable<Mroute::BitIndexMapTable::Value>;
static_assert(Files::slotSize == 64 && Files::headerSize == 664);
