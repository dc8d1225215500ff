// Keeps a sink in step with the kernel's multicast routes: joins the feed, the belief (MirrorState)
// and the event loop. The sink is told each difference once, in bundles.
#pragma once

#include "KernelFeed.h"
#include "MirrorState.h"

#include "Dunlin/TaskSchedulerRoot.h"

namespace Cairn {

class KernelMirror {
public:
    struct Settings {
        std::string netns;        // empty: the present one
        double settleSeconds = 0; // how long to gather changes before they are told
        double holdSeconds = 0;   // how long routes outlive the daemon that put them in
        U32 receiveBuffer = KernelFeed::defaultReceiveBuffer;
    };
    using Sink = std::function<void(std::vector<RouteChange>&&)>;
    // One line for the operator: a resync and why, a question without an answer.
    using Notice = std::function<void(std::string const&)>;

    // Subscribes at once; raises KernelError. Nothing is told before `start`.
    KernelMirror(Dunlin::TaskSchedulerRoot& loop, Settings settings, Sink sink, Notice notice);
    ~KernelMirror();
    KernelMirror(KernelMirror const&) = delete;
    KernelMirror& operator=(KernelMirror const&) = delete;

    MirrorState const& state() const { return state_; }
    // Takes the first dump, tells what differs, and follows from then on. `kept` are the routes
    // that the sink holds from an earlier life: those that the kernel does not have go. Raises
    // KernelError.
    void start(std::vector<RouteName> const& kept = {});
    // Whether all that was heard is told, and nothing is due that could tell more.
    bool inStep() const;

private:
    void askKernel();
    KernelFeed::Drained drain();
    void wake();
    void resync();
    void publish();
    void timer(Dunlin::TaskSchedulerRoot::TimerId& id, double due, std::function<void()> task);

    Dunlin::TaskSchedulerRoot& loop_;
    Settings settings_;
    Sink sink_;
    Notice notice_;
    KernelFeed feed_;
    MirrorState state_;
    bool started_ = false;
    double nextResync_ = 0; // not before: half of the time at most goes into dumps
    double pause_ = 0;      // before the next repetition of a dump
    Dunlin::TaskSchedulerRoot::TimerId publishTimer_ = 0;
    Dunlin::TaskSchedulerRoot::TimerId resyncTimer_ = 0;
    Dunlin::TaskSchedulerRoot::TimerId echoTimer_ = 0;
    Dunlin::TaskSchedulerRoot::TimerId sweepTimer_ = 0;
};

} // namespace Cairn
