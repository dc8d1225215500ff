// The tool's ears: one subscribed rtnetlink socket for notifications, and a second one for
// questions, so that an answer never queues behind a storm of notifications.
//
// Order matters to whoever mirrors: all groups share the one socket, so that a route and the
// interface it names come in the order in which the kernel made them. Subscribe (make a KernelFeed)
// before the first dump, and apply what is queued after it.
#pragma once

#include "KernelRoute.h"

#include "SharedMem/FileUtil.h"

#include <functional>
#include <stdexcept>

namespace Cairn {

class KernelError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

class KernelFeed {
public:
    // In bytes. The kernel doubles it and counts about 830 for a notification: room for some 80,000
    // of them. Its own default holds 257.
    static constexpr U32 defaultReceiveBuffer = 32u << 20;

    // Opens both sockets in the named network namespace (`ip netns`), or in the present one if the
    // name is empty. Raises KernelError.
    explicit KernelFeed(std::string const& netns, U32 receiveBuffer = defaultReceiveBuffer);

    // Readable when notifications wait.
    int fd() const { return feed_.get(); }

    struct Drained {
        U32 messages = 0;
        // The kernel dropped notifications: what is known may be wrong. It reports a gap once, and
        // goes on dropping without a word until the queue is empty: every call that does not empty
        // it reports the overrun again at the next.
        bool overrun = false;
        bool more = false; // stopped at `maxMessages`
    };
    // Takes what is queued, in order, without waiting.
    Drained drain(std::function<void(KernelEvent const&)> const& handler, U32 maxMessages);

    // Questions; each waits for its answer, two seconds at most, and raises KernelError.
    std::vector<KernelLink> links();
    // All entries of a family in all tables, pending ones included. Under churn a
    // dump may leave out entries and give others twice: see MirrorState::resync.
    std::vector<KernelRoute> routes(bool v4);
    // The one entry, or nothing if the kernel has none.
    std::optional<KernelRoute> route(RouteId const& id);

private:
    int ask(std::vector<U8> const& request, U32 sequence,
            std::function<void(std::span<U8 const>)> const& handler);

    Mem::Fd feed_;
    Mem::Fd query_;
    bool dropping_ = false; // an overrun was reported, and the queue was not empty since
    U32 sequence_ = 0;
    std::vector<U8> buffer_;
};

} // namespace Cairn
