// Any bytes, in pieces of any size, as the stream of a peer: the connection takes them or raises,
// and the entity stays whole.
#include "Mroute/McastGroup.h"
#include "Vomo/NboAttrLogDemuxer.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace {

using namespace Multicast::Group;
using Vomo::NboAttrLog::Demuxer;

// What a source sends for a small tree, and for changes of it.
std::vector<U8> const& goodStream() {
    static std::vector<U8> const bytes = [] {
        auto const config = configFactory("source");
        auto const change = [&](U16 index, U32 lif) {
            MrouteLib::PortVlan member;
            member.outLifIs(MrouteLib::OutLif(lif));
            config->requestIs({19, index})->portVlanIs(member, true);
            return member;
        };
        change(1, 1);
        Demuxer end(Demuxer::Role::source, config);
        end.connectedIs(true);
        auto const member = change(2, 7);
        config->request({19, 2})->requestIdInc(1);
        config->request({19, 2})->portVlanDel(member);
        config->requestDel({19, 1});
        return std::vector<U8>(end.waiting().begin(), end.waiting().end());
    }();
    return bytes;
}

} // namespace

extern "C" std::size_t LLVMFuzzerMutate(U8* data, std::size_t size, std::size_t maxSize);

// Now and then begins with a sound stream, and mostly sets the lengths right again, in front of
// which all else would fail.
extern "C" std::size_t LLVMFuzzerCustomMutator(U8* data, std::size_t size, std::size_t maxSize,
                                               unsigned seed) {
    std::vector<U8> const& good = goodStream();
    if (seed % 16 == 0 && good.size() <= maxSize) {
        size = good.size();
        std::memcpy(data, good.data(), size);
    }
    size = LLVMFuzzerMutate(data, size, maxSize);
    if (seed % 4 != 0)
        for (std::size_t at = 0; at + 4 <= size;) {
            std::size_t const length = std::clamp<std::size_t>(data[at + 3], 13, 64);
            data[at] = data[at + 1] = data[at + 2] = 0;
            data[at + 3] = static_cast<U8>(length);
            at += length;
        }
    return size;
}

extern "C" int LLVMFuzzerTestOneInput(U8 const* data, std::size_t size) {
    auto const config = configFactory("mirror");
    {
        Demuxer connection(Demuxer::Role::mirror, config);
        connection.connectedIs(true);
        try {
            for (std::size_t at = 0; at < size;) {
                std::size_t const piece = std::min<std::size_t>(1 + data[at] % 64, size - at);
                connection.receive({data + at, piece});
                at += piece;
            }
        } catch (Vomo::AttrLogRecordException const&) {
        } catch (Vomo::TypeException const&) {
        }
    }
    for (auto const& node : config->request())
        if (node.value()->parent() != config.ptr() || node.value()->references() != 1) std::abort();
    return 0;
}
