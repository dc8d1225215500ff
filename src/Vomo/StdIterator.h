// Walks of collections for range-based `for` and the standard library's algorithms.
#pragma once

#include <cstddef>
#include <iterator>
#include <utility>

namespace Vomo {

// A walk `Walk` that is true while it stands on a member, `++` moves, and `node()` gives the member's
// node. What may change meanwhile is as with that walk.
template <class Walk>
class StdIterator {
public:
    using iterator_concept = std::input_iterator_tag;
    using difference_type = std::ptrdiff_t;
    using value_type = typename Walk::NodeType;

    explicit StdIterator(Walk walk) : walk_(std::move(walk)) {}
    value_type const& operator*() const { return *walk_.node(); }
    value_type const* operator->() const { return walk_.node(); }
    StdIterator& operator++() {
        ++walk_;
        return *this;
    }
    void operator++(int) { ++walk_; }
    friend bool operator==(StdIterator const& at, std::default_sentinel_t) { return !at.walk_; }

private:
    Walk walk_;
};

} // namespace Vomo
