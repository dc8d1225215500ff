// A byte array of this process, zero-filled, whose failure to grow is reported rather than raised.
#pragma once

#include "Dunlin/Types.h"

#include <cstddef>
#include <cstdlib>
#include <memory>

namespace Gantry {

class Local {
public:
    // Makes it `size` zero bytes; false, with the former contents, if there is no memory.
    bool resize(std::size_t size) {
        auto* const bytes = static_cast<U8*>(std::calloc(size ? size : 1, 1));
        if (!bytes) return false;
        bytes_.reset(bytes);
        size_ = size;
        return true;
    }
    std::size_t size() const { return size_; }
    U8& operator[](std::size_t index) { return bytes_[index]; }
    U8 operator[](std::size_t index) const { return bytes_[index]; }

private:
    struct Free {
        void operator()(U8* bytes) const { std::free(bytes); }
    };
    std::unique_ptr<U8[], Free> bytes_;
    std::size_t size_ = 0;
};

} // namespace Gantry
