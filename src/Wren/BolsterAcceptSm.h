// The process's one listening endpoint of the doorbell.
#pragma once

#include <string>

namespace Wren {

class BolsterAcceptSm {
public:
    // The endpoint; made at first use, listening from the first table that is offered on.
    static BolsterAcceptSm& bolsterAcceptSm();

    // The name under which readers find it, "<process>-<pid>".
    std::string const& socketName() const { return socketName_; }

private:
    BolsterAcceptSm();
    std::string socketName_;
};

} // namespace Wren
