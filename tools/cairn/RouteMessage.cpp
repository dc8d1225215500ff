#include "RouteMessage.h"

#include <libmnl/libmnl.h>
#include <linux/if_link.h>
#include <linux/netconf.h>
#include <linux/rtnetlink.h>

#include <algorithm>
#include <cstring>

namespace Cairn {
namespace {

// The attributes of a message or of a nest, found by type; the last one of a type counts. Types
// above `limit` are passed over.
class Attributes {
public:
    static constexpr U16 limit = 64;

    Attributes(U8 const* data, std::size_t size) {
        auto const* attribute = reinterpret_cast<nlattr const*>(data);
        auto left = static_cast<int>(size);
        while (mnl_attr_ok(attribute, left)) {
            U16 const type = mnl_attr_get_type(attribute);
            if (type <= limit) found_[type] = attribute;
            left -= static_cast<int>(MNL_ALIGN(attribute->nla_len));
            attribute = mnl_attr_next(attribute);
        }
    }
    std::span<U8 const> payload(U16 type) const {
        auto const* a = found_[type];
        if (!a) return {};
        return {static_cast<U8 const*>(mnl_attr_get_payload(a)), mnl_attr_get_payload_len(a)};
    }
    template <class T>
    std::optional<T> value(U16 type) const {
        auto const bytes = payload(type);
        if (bytes.size() < sizeof(T)) return std::nullopt;
        T v;
        std::memcpy(&v, bytes.data(), sizeof v);
        return v;
    }
    Attributes nested(U16 type) const {
        auto const bytes = payload(type);
        return {bytes.data(), bytes.size()};
    }
    // A NUL-terminated string; empty if absent or not terminated.
    std::string text(U16 type) const {
        auto const bytes = payload(type);
        auto const end = std::find(bytes.begin(), bytes.end(), U8{0});
        return end == bytes.end() ? std::string() : std::string(bytes.begin(), end);
    }

private:
    std::array<nlattr const*, limit + 1> found_{};
};

template <class Head>
Head const* headOf(std::span<U8 const> message) {
    if (message.size() < NLMSG_HDRLEN + sizeof(Head)) return nullptr;
    return reinterpret_cast<Head const*>(message.data() + NLMSG_HDRLEN);
}

Attributes attributesBehind(std::span<U8 const> message, std::size_t headSize) {
    auto const start = NLMSG_HDRLEN + MNL_ALIGN(headSize);
    if (message.size() <= start) return {nullptr, 0};
    return {message.data() + start, message.size() - start};
}

// The outgoing interfaces of RTA_MULTIPATH, ascending, each once; nothing if the list is damaged.
std::optional<std::vector<U32>> outgoingInterfaces(std::span<U8 const> hops) {
    std::vector<U32> oifs;
    while (!hops.empty()) {
        rtnexthop hop;
        if (hops.size() < sizeof hop) return std::nullopt;
        std::memcpy(&hop, hops.data(), sizeof hop);
        if (hop.rtnh_len < sizeof hop || hop.rtnh_len > hops.size() || hop.rtnh_ifindex < 0)
            return std::nullopt;
        // Index 0: the vif's device is gone, and the kernel has not yet cleared the entry.
        if (hop.rtnh_ifindex > 0) oifs.push_back(static_cast<U32>(hop.rtnh_ifindex));
        hops = hops.subspan(std::min<std::size_t>(RTNH_ALIGN(hop.rtnh_len), hops.size()));
    }
    std::sort(oifs.begin(), oifs.end());
    oifs.erase(std::unique(oifs.begin(), oifs.end()), oifs.end());
    return oifs;
}

KernelEvent decodeRoute(std::span<U8 const> message, KernelEvent::Kind kind) {
    auto const* head = headOf<rtmsg>(message);
    // A dump of a family that this kernel lacks answers with the routes of all other families.
    if (!head || (head->rtm_family != ipmrFamily && head->rtm_family != ip6mrFamily)) return {};
    bool const v4 = head->rtm_family == ipmrFamily;
    Attributes const attributes = attributesBehind(message, sizeof(rtmsg));

    KernelEvent event;
    KernelRoute& route = event.route;
    std::size_t const addressSize = v4 ? 4 : 16;
    auto const source = attributes.payload(RTA_SRC);
    auto const group = attributes.payload(RTA_DST);
    // A (*,*) entry of IPv4 comes with zero addresses; its kind is judged by who mirrors it.
    if (source.size() != addressSize || group.size() != addressSize) return {};
    route.id.source = addressOfBytes(source);
    route.id.group = addressOfBytes(group);
    route.id.table = attributes.value<U32>(RTA_TABLE).value_or(head->rtm_table);
    route.protocol = head->rtm_protocol;
    route.pending = (head->rtm_flags & RTNH_F_UNRESOLVED) != 0;
    route.iif = attributes.value<U32>(RTA_IIF).value_or(0);
    auto oifs = outgoingInterfaces(attributes.payload(RTA_MULTIPATH));
    if (!oifs) return {};
    route.oifs = std::move(*oifs);
    if (auto const stats = attributes.value<rta_mfc_stats>(RTA_MFC_STATS)) {
        route.packets = stats->mfcs_packets;
        route.bytes = stats->mfcs_bytes;
        route.wrongIf = stats->mfcs_wrong_if;
    }
    route.idle = attributes.value<U64>(RTA_EXPIRES).value_or(0);
    event.kind = kind;
    return event;
}

KernelEvent decodeLink(std::span<U8 const> message, KernelEvent::Kind kind) {
    auto const* head = headOf<ifinfomsg>(message);
    // A bridge port that leaves its bridge says RTM_DELLINK too, of family AF_BRIDGE.
    if (!head || head->ifi_family != AF_UNSPEC || head->ifi_index <= 0) return {};
    Attributes const attributes = attributesBehind(message, sizeof(ifinfomsg));
    KernelEvent event;
    event.link.index = static_cast<U32>(head->ifi_index);
    event.link.name = attributes.text(IFLA_IFNAME);
    Attributes const info = attributes.nested(IFLA_LINKINFO);
    if (info.text(IFLA_INFO_KIND) == "vrf")
        event.link.vrfTable = info.nested(IFLA_INFO_DATA).value<U32>(IFLA_VRF_TABLE).value_or(0);
    if (kind == KernelEvent::Kind::linkNew && event.link.name.empty()) return {};
    event.kind = kind;
    return event;
}

KernelEvent decodeNetconf(std::span<U8 const> message) {
    if (!headOf<netconfmsg>(message)) return {};
    KernelEvent event;
    if (attributesBehind(message, sizeof(netconfmsg)).value<S32>(NETCONFA_MC_FORWARDING))
        event.kind = KernelEvent::Kind::forwarding;
    return event;
}

// A request that grows by what is put in; never longer than its buffer, since all parts are fixed.
struct Request {
    std::array<U8, 256> buffer{};
    nlmsghdr* message = mnl_nlmsg_put_header(buffer.data());

    Request(U16 type, U16 flags, U32 sequence) {
        message->nlmsg_type = type;
        message->nlmsg_flags = static_cast<U16>(NLM_F_REQUEST | flags);
        message->nlmsg_seq = sequence;
    }
    std::vector<U8> bytes() const {
        return {buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(message->nlmsg_len)};
    }
};

} // namespace

KernelEvent decodeMessage(std::span<U8 const> message) {
    nlmsghdr head;
    if (message.size() < sizeof head) return {};
    std::memcpy(&head, message.data(), sizeof head);
    if (head.nlmsg_len < sizeof head || head.nlmsg_len > message.size()) return {};
    message = message.first(head.nlmsg_len);
    switch (head.nlmsg_type) {
    case RTM_NEWROUTE:
        return decodeRoute(message, KernelEvent::Kind::routeNew);
    case RTM_DELROUTE:
        return decodeRoute(message, KernelEvent::Kind::routeGone);
    case RTM_NEWLINK:
        return decodeLink(message, KernelEvent::Kind::linkNew);
    case RTM_DELLINK:
        return decodeLink(message, KernelEvent::Kind::linkGone);
    case RTM_NEWNETCONF:
        return decodeNetconf(message);
    default:
        return {};
    }
}

bool forEachMessage(std::span<U8 const> datagram,
                    std::function<void(std::span<U8 const> message)> const& handler) {
    // Not mnl_nlmsg_ok: it takes a length beyond 2 GiB for a negative one, and passes it.
    while (datagram.size() >= sizeof(nlmsghdr)) {
        nlmsghdr head;
        std::memcpy(&head, datagram.data(), sizeof head);
        if (head.nlmsg_len < sizeof head || head.nlmsg_len > datagram.size()) return false;
        handler(datagram.first(head.nlmsg_len));
        datagram =
            datagram.subspan(std::min<std::size_t>(NLMSG_ALIGN(head.nlmsg_len), datagram.size()));
    }
    return datagram.empty();
}

std::vector<U8> dumpRequest(U8 rtnlFamily, U32 sequence) {
    Request request(RTM_GETROUTE, NLM_F_DUMP, sequence);
    auto* head = static_cast<rtmsg*>(mnl_nlmsg_put_extra_header(request.message, sizeof(rtmsg)));
    head->rtm_family = rtnlFamily;
    return request.bytes();
}

std::vector<U8> routeRequest(RouteId const& id, U32 sequence) {
    Request request(RTM_GETROUTE, 0, sequence);
    bool const v4 = isV4(id.group);
    std::size_t const size = v4 ? 4 : 16;
    auto* head = static_cast<rtmsg*>(mnl_nlmsg_put_extra_header(request.message, sizeof(rtmsg)));
    head->rtm_family = v4 ? ipmrFamily : ip6mrFamily;
    head->rtm_src_len = head->rtm_dst_len = static_cast<U8>(size * 8);
    mnl_attr_put(request.message, RTA_SRC, size, id.source.v6Addr().bytes().data());
    mnl_attr_put(request.message, RTA_DST, size, id.group.v6Addr().bytes().data());
    // Without the table the kernel looks in its default one only, and for IPv6 not even there.
    mnl_attr_put_u32(request.message, RTA_TABLE, id.table);
    return request.bytes();
}

std::vector<U8> linkRequest(U32 sequence) {
    Request request(RTM_GETLINK, NLM_F_DUMP, sequence);
    mnl_nlmsg_put_extra_header(request.message, sizeof(ifinfomsg));
    return request.bytes();
}

} // namespace Cairn
