#include "Lumenlog/Ring.h"

#include <mutex>

namespace Lumenlog {
namespace {

struct Ring {
    std::mutex mutex;
    std::vector<std::string> lines;
    std::size_t next = 0; // the oldest, once the ring is full
};
Ring& ring() {
    static auto* const it = new Ring; // outlives every user
    return *it;
}

} // namespace

void add(std::string_view line) {
    Ring& r = ring();
    std::lock_guard const lock(r.mutex);
    if (r.lines.size() < capacity) {
        r.lines.emplace_back(line);
    } else {
        r.lines[r.next].assign(line);
        r.next = (r.next + 1) % capacity;
    }
}

std::vector<std::string> lines() {
    Ring& r = ring();
    std::lock_guard const lock(r.mutex);
    std::vector<std::string> result(r.lines.begin() + static_cast<std::ptrdiff_t>(r.next),
                                    r.lines.end());
    result.insert(result.end(), r.lines.begin(),
                  r.lines.begin() + static_cast<std::ptrdiff_t>(r.next));
    return result;
}

} // namespace Lumenlog
