// The reading end of a table's notification queue. One thread of a reading process uses it.
#pragma once

#include "Yarrow/BasicSlot.h"
#include "Yarrow/QueueReader.h"

namespace Yarrow {

template <class S>
class YarrowReader : public QueueReader {
public:
    using QueueReader::QueueReader;

    // What the entry under way announces.
    S slot() const { return S{QueueReader::slot()}; }
};

} // namespace Yarrow
