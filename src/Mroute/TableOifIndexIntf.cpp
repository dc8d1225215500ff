#include "Mroute/Tables.h"

#include "Brisk/TableImpl.h"
#include "Vomo/SerDes.h"

BRISK_TABLE_INSTANCE(Mroute::OifIndexIntfTable::Ops);

using Files = Brisk::SlotTable<Mroute::OifIndexIntfTable::Value>;
static_assert(Files::slotSize == 40 && Files::headerSize == 640);
