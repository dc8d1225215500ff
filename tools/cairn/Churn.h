// Made-up changes of a set of routes, for demonstrations and load: an outgoing interface more or
// less, another incoming one, a route removed and brought back. The same seed gives the same
// changes.
#pragma once

#include "NamedRoute.h"

#include <random>

namespace Cairn {

class Churn {
public:
    Churn(std::vector<NamedRoute> routes, U64 seed);
    // The next change; nothing to change gives one of kind `gone` with an empty name.
    RouteChange next();
    std::size_t absent() const { return absent_; }

private:
    struct Member {
        NamedRoute route;
        bool present = true;
    };
    std::size_t pick(std::size_t count) {
        return std::uniform_int_distribution<std::size_t>(0, count - 1)(random_);
    }
    std::vector<Member> members_;
    std::vector<std::string> interfaces_;
    std::size_t absent_ = 0;
    std::mt19937_64 random_;
};

} // namespace Cairn
