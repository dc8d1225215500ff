#include "Mroute/Tables.h"

#include "Brisk/TableImpl.h"
#include "Vomo/SerDes.h"

BRISK_TABLE_INSTANCE(Mroute::WaitlistMapTable::Ops);

using Files = Brisk::SlotTable<Mroute::WaitlistMapTable::Value>;
static_assert(Files::slotSize == 56 && Files::headerSize == 656);
