// Memory of this process alone that can grow and shrink like a mapped file.
#pragma once

#include "Dunlin/Types.h"

#include <cstddef>

namespace Mem {

// Bytes in a page of memory.
extern std::size_t const pageSize_;

inline std::size_t roundToPage(std::size_t size) {
    return (size + pageSize_ - 1) / pageSize_ * pageSize_;
}

// a * b. Raises MemoryResourceException if the product does not fit.
std::size_t multiplyOverflowCheck(std::size_t a, std::size_t b);

// Test hook: the mapping operation (attach or resize, of Local and of SharedMemWrapper) that is
// `count` operations from now fails, once; 1 is the next one, 0 none.
void failMappingAfter(U32 count);
// Counts one mapping operation; true if it is the one that shall fail.
bool mappingShallFail();

class Local {
public:
    enum Kind { HEAP, ANONYMOUS };

    explicit Local(Kind kind = ANONYMOUS) : kind_(kind) {}
    ~Local() { detach(); }
    Local(Local const&) = delete;
    Local& operator=(Local const&) = delete;

    // Zero-filled memory of `size` bytes, aligned to 16 at least; null if there is none (or the
    // size is 0). What was attached before is given up.
    void* attach(std::size_t size);
    // Contents are kept up to the smaller size, new bytes are zero, the address may move. Null on
    // failure, with the old memory intact; size 0 gives the memory up and returns null as well.
    void* resize(std::size_t size);
    void detach();

    void* data() const { return data_; }
    std::size_t size() const { return size_; }
    Kind kind() const { return kind_; }
    // "Mem::Local::HEAP" or "Mem::Local::ANONYMOUS", for messages.
    char const* kindName() const;

private:
    void* data_ = nullptr;
    std::size_t size_ = 0;
    Kind kind_;
};

} // namespace Mem
