// Any bytes, in pieces of any size, as the stream of a peer: the connection takes them or raises,
// and the entity stays whole.
#include "Mroute/McastGroup.h"
#include "Vomo/NboAttrLogSa.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(U8 const* data, std::size_t size) {
    using namespace Multicast::Group;
    auto const config = configFactory("mirror");
    {
        Vomo::NboAttrLog::Connection connection(Vomo::NboAttrLog::Connection::Role::mirror, config);
        connection.connectedIs(true);
        try {
            for (std::size_t at = 0; at < size;) {
                std::size_t const piece = std::min<std::size_t>(1 + data[at] % 64, size - at);
                connection.receive({data + at, piece});
                at += piece;
            }
        } catch (Vomo::AttrLogRecordException const&) {
        }
    }
    for (Config::RequestMap::UnsafeIteratorConst i(&config->request()); i; ++i)
        if (i->value()->parent() != config.ptr() || i->value()->references() != 1) std::abort();
    return 0;
}
