// All definitions of a table's classes; included only by the sources that instantiate
// them for a value type.
#pragma once

#include "Brisk/BriskMapImpl.h"
#include "Brisk/BriskReaderImpl.h"
#include "Brisk/BriskShadowImpl.h"
#include "Brisk/BriskWriterImpl.h"

// Instantiates the classes of a table with the given Ops.
#define BRISK_TABLE_INSTANCE(OPS)                                                                  \
    template class Brisk::BriskWriter<OPS>;                                                        \
    template class Brisk::BriskReader<OPS>;                                                        \
    template class Brisk::SlotWriterTable<OPS>;                                                    \
    template class Brisk::SlotReaderTable<OPS>;                                                    \
    template class Brisk::Validator<OPS>;                                                          \
    template class Brisk::ShadowStore<Brisk::ValueShadowSlot<OPS>>;                                \
    template class Brisk::ShadowStore<Brisk::KeyShadowSlot<OPS>>;                                  \
    template class Brisk::KeyShadowStore<OPS>;                                                     \
    template class Brisk::BriskShadow<OPS>;                                                        \
    template class Brisk::BriskMap<OPS>
