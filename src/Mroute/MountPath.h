// Where the entities of the multicast FIB and of PIM are mounted.
#pragma once

#include "Kelpie/IpAddr.h"
#include "Vomo/String.h"

namespace Routing::Multicast::Fib {

// `rest` below "routing/", for IPv6 below "routing6/". Any other family ends the process.
Vomo::String pathOf(Kelpie::AddressFamily af, char const* rest);

} // namespace Routing::Multicast::Fib
