#include "KernelFeed.h"

#include "RouteMessage.h"

#include <fmt/format.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

namespace Cairn {
namespace {

// A message of the kernel is one datagram of a few hundred bytes; a dump answers in pieces of up to
// 32 KiB.
constexpr std::size_t batch = 64;
constexpr std::size_t datagramSize = 8192;
constexpr std::size_t answerSize = 65536;

[[noreturn]] void fail(std::string const& what, int error) {
    throw KernelError(fmt::format("{}: {}", what, std::strerror(error)));
}

// Enters a named network namespace and goes back at the end of its life.
class Namespace {
public:
    explicit Namespace(std::string const& name) : home_(openIf(!name.empty(), ownPath)) {
        if (name.empty()) return;
        if (name.find('/') != std::string::npos)
            throw KernelError(fmt::format("network namespace {}: not a name", name));
        Mem::Fd const target(::open(("/run/netns/" + name).c_str(), O_RDONLY | O_CLOEXEC));
        if (target.get() < 0) fail(fmt::format("network namespace {}", name), errno);
        if (::setns(target.get(), CLONE_NEWNET) != 0)
            fail(fmt::format("network namespace {}", name), errno);
        entered_ = true;
    }
    ~Namespace() {
        if (entered_ && ::setns(home_.get(), CLONE_NEWNET) != 0) std::abort();
    }
    Namespace(Namespace const&) = delete;
    Namespace& operator=(Namespace const&) = delete;

private:
    static constexpr char const* ownPath = "/proc/self/ns/net";
    static int openIf(bool wanted, char const* path) {
        if (!wanted) return -1;
        int const fd = ::open(path, O_RDONLY | O_CLOEXEC);
        if (fd < 0) fail(path, errno);
        return fd;
    }
    Mem::Fd home_;
    bool entered_ = false;
};

int openRtnetlink(int flags, U32 receiveBuffer) {
    int const fd = ::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | flags, NETLINK_ROUTE);
    if (fd < 0) fail("rtnetlink socket", errno);
    // Only root may go beyond the limit of the system; others get what it allows.
    if (::setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &receiveBuffer, sizeof receiveBuffer) != 0)
        ::setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
    // An unbound socket has the kernel's own port number, and hears none of its notifications.
    sockaddr_nl any{};
    any.nl_family = AF_NETLINK;
    if (::bind(fd, reinterpret_cast<sockaddr const*>(&any), sizeof any) != 0) {
        int const error = errno;
        ::close(fd);
        fail("rtnetlink socket", error);
    }
    return fd;
}

} // namespace

KernelFeed::KernelFeed(std::string const& netns, U32 receiveBuffer)
    : feed_([&] {
          Namespace const inside(netns);
          return openRtnetlink(SOCK_NONBLOCK, receiveBuffer);
      }()),
      query_([&] {
          Namespace const inside(netns);
          return openRtnetlink(0, defaultReceiveBuffer);
      }()),
      buffer_(std::max(batch * datagramSize, answerSize)) {
    for (int const group : {RTNLGRP_LINK, RTNLGRP_IPV4_NETCONF, RTNLGRP_IPV6_NETCONF,
                            RTNLGRP_IPV4_MROUTE, RTNLGRP_IPV6_MROUTE})
        if (::setsockopt(fd(), SOL_NETLINK, NETLINK_ADD_MEMBERSHIP, &group, sizeof group) != 0)
            fail(fmt::format("rtnetlink group {}", group), errno);
    timeval const patience{2, 0};
    ::setsockopt(query_.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
}

KernelFeed::Drained KernelFeed::drain(std::function<void(KernelEvent const&)> const& handler,
                                      U32 maxMessages) {
    Drained drained;
    drained.overrun = dropping_;
    std::array<mmsghdr, batch> headers{};
    std::array<iovec, batch> pieces{};
    for (std::size_t i = 0; i < batch; ++i) {
        pieces[i] = {buffer_.data() + i * datagramSize, datagramSize};
        headers[i].msg_hdr.msg_iov = &pieces[i];
        headers[i].msg_hdr.msg_iovlen = 1;
    }
    while (drained.messages < maxMessages) {
        int const n = ::recvmmsg(fd(), headers.data(), batch, MSG_DONTWAIT, nullptr);
        if (n < 0) {
            if (errno == EINTR) continue;
            if (errno == EAGAIN) {
                dropping_ = false;
                return drained;
            }
            if (errno != ENOBUFS) fail("rtnetlink notifications", errno);
            drained.overrun = dropping_ = true;
            continue;
        }
        for (std::size_t i = 0; i < static_cast<std::size_t>(n); ++i) {
            std::span<U8 const> const datagram(buffer_.data() + i * datagramSize,
                                               headers[i].msg_len);
            // A cut datagram is a lost one.
            if (headers[i].msg_hdr.msg_flags & MSG_TRUNC) drained.overrun = true;
            forEachMessage(datagram, [&](auto message) { handler(decodeMessage(message)); });
        }
        drained.messages += static_cast<U32>(n);
    }
    drained.more = true;
    return drained;
}

// Sends a request and hands on each message of the answer; returns the answer's error code.
int KernelFeed::ask(std::vector<U8> const& request, U32 sequence,
                    std::function<void(std::span<U8 const>)> const& handler) {
    if (::send(query_.get(), request.data(), request.size(), 0) < 0)
        fail("rtnetlink request", errno);
    bool const dump =
        (reinterpret_cast<nlmsghdr const*>(request.data())->nlmsg_flags & NLM_F_DUMP) == NLM_F_DUMP;
    std::optional<int> result;
    while (!result) {
        auto const size = ::recv(query_.get(), buffer_.data(), buffer_.size(), 0);
        if (size < 0 && errno == EINTR) continue;
        if (size < 0) fail("rtnetlink answer", errno);
        forEachMessage({buffer_.data(), static_cast<std::size_t>(size)}, [&](auto message) {
            auto const* head = reinterpret_cast<nlmsghdr const*>(message.data());
            if (head->nlmsg_seq != sequence || result) return; // of a question given up before
            if (head->nlmsg_type == NLMSG_ERROR || head->nlmsg_type == NLMSG_DONE) {
                int error = 0;
                if (message.size() >= NLMSG_HDRLEN + sizeof error)
                    std::memcpy(&error, message.data() + NLMSG_HDRLEN, sizeof error);
                result = error < 0 ? -error : 0;
                return;
            }
            handler(message);
            if (!dump) result = 0;
        });
    }
    return *result;
}

std::vector<KernelLink> KernelFeed::links() {
    std::vector<KernelLink> links;
    U32 const sequence = ++sequence_;
    int const error = ask(linkRequest(sequence), sequence, [&](auto message) {
        auto event = decodeMessage(message);
        if (event.kind == KernelEvent::Kind::linkNew) links.push_back(std::move(event.link));
    });
    if (error) fail("dump of the links", error);
    return links;
}

std::vector<KernelRoute> KernelFeed::routes(bool v4) {
    std::vector<KernelRoute> routes;
    U32 const sequence = ++sequence_;
    int const error =
        ask(dumpRequest(v4 ? ipmrFamily : ip6mrFamily, sequence), sequence, [&](auto message) {
            auto event = decodeMessage(message);
            if (event.kind == KernelEvent::Kind::routeNew) routes.push_back(std::move(event.route));
        });
    // A kernel without multicast routing of a family has no routes of it.
    if (error && error != EOPNOTSUPP && error != EAFNOSUPPORT && error != ENOENT)
        fail("dump of the multicast routes", error);
    return routes;
}

std::optional<KernelRoute> KernelFeed::route(RouteId const& id) {
    std::optional<KernelRoute> found;
    U32 const sequence = ++sequence_;
    int const error = ask(routeRequest(id, sequence), sequence, [&](auto message) {
        auto event = decodeMessage(message);
        if (event.kind == KernelEvent::Kind::routeNew && event.route.id == id &&
            !event.route.pending)
            found = std::move(event.route);
    });
    if (error && error != ENOENT)
        fail(fmt::format("question for ({},{})", sourceText(id.source), toText(id.group)), error);
    return found;
}

} // namespace Cairn
