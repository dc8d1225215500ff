#include "KernelMirror.h"

#include <fmt/format.h>

#include <sys/epoll.h>

namespace Cairn {
namespace {

// What one turn of the loop takes at most, so that a storm without end cannot keep changes from
// being told; a multiple of what the kernel makes in the time of a write.
constexpr U32 messagesPerTurn = 50'000;
// How long after the last sign of a silent change the routes are read once more: the kernel may
// announce forwarding on a vif a moment before it puts the vif's number in use.
constexpr double echoSeconds = 0.1;
constexpr double retrySeconds = 1;
// While routes go all the time no dump is sure to be whole. The pauses between repetitions double up
// to this one, so that a steady churn does not cost a dump after the other.
constexpr double longestPause = 2;

} // namespace

KernelMirror::KernelMirror(Dunlin::TaskSchedulerRoot& loop, Settings settings, Sink sink,
                           Notice notice)
    : loop_(loop), settings_(std::move(settings)), sink_(std::move(sink)),
      notice_(std::move(notice)), feed_(settings_.netns, settings_.receiveBuffer),
      state_(settings_.holdSeconds) {}

KernelMirror::~KernelMirror() {
    if (started_) loop_.fdDel(feed_.fd());
    for (auto const id : {publishTimer_, resyncTimer_, echoTimer_, sweepTimer_})
        if (id) loop_.timerDel(id);
}

// A dump, and all that was queued up to its end.
void KernelMirror::askKernel() {
    drain(); // what went before does not disturb the dump
    U64 const gone = state_.counters().gone;
    auto const links = feed_.links();
    auto routes = feed_.routes(true);
    auto v6 = feed_.routes(false);
    std::move(v6.begin(), v6.end(), std::back_inserter(routes));
    state_.resync(
        links, routes, [&](RouteId const& id) { return feed_.route(id); }, loop_.now());
    auto const drained = drain();
    state_.resyncEnded(drained.overrun || drained.more || state_.counters().gone != gone);
}

bool KernelMirror::inStep() const {
    return state_.resyncReason().empty() && !state_.dirty() && !echoTimer_;
}

void KernelMirror::start(std::vector<RouteName> const& kept) {
    for (auto& link : feed_.links())
        state_.fold({KernelEvent::Kind::linkNew, {}, std::move(link)}, loop_.now());
    std::vector<RouteChange> strays; // of a VRF that is no more
    for (auto const& name : kept) {
        if (auto const id = state_.idOf(name))
            state_.seed(*id);
        else
            strays.push_back({RouteChange::Kind::gone, {name, {}, {}}});
    }
    if (!strays.empty()) sink_(std::move(strays));
    askKernel();
    started_ = true;
    loop_.fdAdd(feed_.fd(), EPOLLIN, [this](U32) {
        drain();
        wake();
    });
    publish();
    wake();
}

// Replaces a timer; `due` is on the loop's clock.
void KernelMirror::timer(Dunlin::TaskSchedulerRoot::TimerId& id, double due,
                         std::function<void()> task) {
    if (id) loop_.timerDel(id);
    id = loop_.timerAdd(std::max(0.0, due - loop_.now()), [&id, task = std::move(task)] {
        id = 0;
        task();
    });
}

KernelFeed::Drained KernelMirror::drain() {
    auto const drained = feed_.drain(
        [this](KernelEvent const& event) { state_.fold(event, loop_.now()); }, messagesPerTurn);
    if (drained.overrun) state_.overrun();
    if (state_.takeSilentSign())
        timer(echoTimer_, loop_.now() + echoSeconds, [this] {
            state_.wantResync("once more after a change of an interface");
            wake();
        });
    return drained;
}

// Does what is due now, and sets the timers of the rest.
void KernelMirror::wake() {
    double const now = loop_.now();
    state_.sweep(now);
    if (!state_.resyncReason().empty() && now >= nextResync_) resync();
    // Also when the resync itself has found the reason for the next.
    if (!state_.resyncReason().empty() && !resyncTimer_)
        timer(resyncTimer_, nextResync_, [this] { wake(); });
    if (state_.dirty()) {
        if (settings_.settleSeconds <= 0)
            publish();
        else if (!publishTimer_)
            timer(publishTimer_, now + settings_.settleSeconds, [this] { publish(); });
    }
    if (auto const due = state_.nextSweep(); due && !sweepTimer_)
        timer(sweepTimer_, *due, [this] { wake(); });
}

void KernelMirror::resync() {
    double const begin = loop_.now();
    std::string const reason = state_.resyncReason();
    auto const before = state_.counters();
    try {
        askKernel();
    } catch (KernelError const& error) {
        notice_(fmt::format("resync failed, tried again in {} s: {}", retrySeconds, error.what()));
        nextResync_ = loop_.now() + retrySeconds;
        return;
    }
    double const end = loop_.now();
    double const took = end - begin;
    bool const repeats = state_.resyncReason() == MirrorState::incompleteDump;
    pause_ = repeats ? std::max(took, std::min(2 * pause_, longestPause)) : took;
    nextResync_ = end + pause_;
    auto const& after = state_.counters();
    notice_(fmt::format("resync: {}; {} routes, {} missing in the dump, {} of them still there, "
                        "{:.1f} ms",
                        reason, state_.size(), after.confirmations - before.confirmations,
                        after.spared - before.spared, took * 1e3));
}

void KernelMirror::publish() {
    if (state_.dirty()) sink_(state_.takeChanges());
}

} // namespace Cairn
