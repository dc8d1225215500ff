// All definitions of a table's writer and reader; included only by the sources that instantiate
// them for a value type.
#pragma once

#include "Brisk/BriskReaderImpl.h"
#include "Brisk/BriskWriterImpl.h"

// Instantiates the writer and the reader of a table with the given Ops.
#define BRISK_TABLE_INSTANCE(OPS)                                                                  \
    template class Brisk::BriskWriter<OPS>;                                                        \
    template class Brisk::BriskReader<OPS>;                                                        \
    template class Brisk::SlotWriterTable<OPS>;                                                    \
    template class Brisk::SlotReaderTable<OPS>;                                                    \
    template class Brisk::Validator<OPS>
