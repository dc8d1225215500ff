#include "Wren/BolsterAcceptSm.h"

#include "SharedMem/Bolster.h"

namespace Wren {

BolsterAcceptSm::BolsterAcceptSm() : socketName_(SharedMem::BolsterName::own()) {}

BolsterAcceptSm& BolsterAcceptSm::bolsterAcceptSm() {
    static BolsterAcceptSm endpoint;
    return endpoint;
}

} // namespace Wren
