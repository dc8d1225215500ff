// `cairn mirror`: the writer. Fed by the kernel or by a file, until a signal ends it.
#include "Access.h"
#include "Churn.h"
#include "Commands.h"
#include "KernelMirror.h"
#include "RouteFile.h"
#include "RouteTables.h"
#include "Signals.h"

#include "Dunlin/TaskSchedulerRoot.h"

#include <csignal>
#include <fmt/format.h>

#include <cmath>

namespace Cairn {
namespace {

Dunlin::TaskSchedulerRoot& loop() {
    return *Dunlin::schedulerRootDunlin;
}

class Mirror {
public:
    Mirror(MirrorArguments const& arguments, Common const& common, EndBySignal const& endBySignal)
        : arguments_(arguments), endBySignal_(endBySignal),
          tables_(arguments.name, common.v4, common.v6) {}

    void run() {
        if (arguments_.from.empty()) {
            tables_.open();
            fromKernel();
        } else {
            auto file = readRouteFile(arguments_.from); // before any table is touched
            tables_.open();
            fromFile(std::move(file));
        }
        if (retryTimer_) loop().timerDel(retryTimer_);
        if (boardTimer_) loop().timerDel(boardTimer_);
        auto const& c = tables_.counters();
        say("ended: {} routes; {} written, {} removed, {} told again unchanged", tables_.size(),
            c.written, c.removed, c.unchanged);
    }

private:
    template <class... A>
    void say(fmt::format_string<A...> format, A&&... args) {
        if (!arguments_.quiet)
            complain("cairn mirror: " + fmt::vformat(format, fmt::make_format_args(args...)));
    }

    void fromKernel() {
        std::vector<RouteName> kept;
        tables_.forEach([&](RouteName const& name) { kept.push_back(name); });
        KernelMirror::Settings settings;
        settings.netns = arguments_.netns;
        settings.settleSeconds = arguments_.settleMs / 1e3;
        settings.holdSeconds = arguments_.holdSeconds;
        if (arguments_.receiveBuffer) settings.receiveBuffer = arguments_.receiveBuffer;
        KernelMirror kernel(
            loop(), settings,
            [this](std::vector<RouteChange>&& changes) {
                tables_.apply(changes);
                checkWritten();
            },
            [this](std::string const& notice) { say("{}", notice); });
        kernel.start(kept);
        say("{} routes of the kernel{}{}; {} kept from before, {} removed", tables_.size(),
            arguments_.netns.empty() ? "" : " in namespace ", arguments_.netns, kept.size(),
            tables_.counters().removed);
        postNotices();
        if (arguments_.once)
            awaitStep(kernel);
        else
            loop().run();
        auto const& c = kernel.state().counters();
        say("{} messages, {} unchanged, {} overruns, {} resyncs, {} routes confirmed one by one, "
            "{} pending, {} entries that are no routes",
            c.messages, c.unchanged, c.overruns, c.resyncs, c.confirmations,
            kernel.state().pending().size(), c.passedOver);
    }

    // The first dump may have to be repeated; routes that never rest are not waited for.
    void awaitStep(KernelMirror const& kernel) {
        double const end = loop().now() + 10;
        while (!kernel.inStep() && !endBySignal_.ended() && loop().now() < end) loop().runOnce(1);
        if (!kernel.inStep()) say("routes may be missing: the kernel's were never at rest");
    }

    void fromFile(RouteFile file) {
        std::size_t const kept = tables_.size();
        tables_.replaceAll(file.routes);
        checkWritten();
        say("{} routes from {}; {} kept from before, {} removed{}", tables_.size(), arguments_.from,
            kept, tables_.counters().removed,
            file.passedOver == 0
                ? std::string()
                : fmt::format("; {} entries passed over: unresolved or never routed",
                              file.passedOver));
        if (arguments_.once) {
            if (tables_.retry())
                throw CommandError(noTable,
                                   "not all routes could be written: " + tables_.takeFault());
            return;
        }
        if (arguments_.churn > 0) {
            churn_.emplace(std::move(file.routes), arguments_.seed);
            churnStart_ = loop().now();
            churnTick();
        }
        postNotices();
        loop().run();
    }

    void postNotices() {
        tables_.post();
        // An idle writer should sleep.
        auto const& c = tables_.counters();
        bool const idle = std::exchange(noticed_, c.written + c.removed) == c.written + c.removed;
        boardTimer_ = loop().timerAdd(idle ? 10 : 1, [this] { postNotices(); });
    }

    // Makes the changes that are due; when the machine has slept, at most those of a second.
    void churnTick() {
        double const tick = std::max(0.01, 1 / arguments_.churn);
        auto const due = static_cast<U64>((loop().now() - churnStart_) * arguments_.churn);
        U64 const atOnce = static_cast<U64>(std::ceil(arguments_.churn));
        if (due > churned_ + atOnce) churned_ = due - atOnce;
        std::vector<RouteChange> changes;
        for (; churned_ < due; ++churned_) changes.push_back(churn_->next());
        tables_.apply(changes);
        checkWritten();
        loop().timerAdd(tick, [this] { churnTick(); });
    }

    // Changes without room are tried again each second; the operator is told.
    void checkWritten() {
        auto const fault = tables_.takeFault();
        if (fault.empty()) return;
        say("{}; tried again each second", fault);
        if (!retryTimer_)
            retryTimer_ = loop().timerAdd(1, [this] {
                retryTimer_ = 0;
                if (!tables_.retry()) say("all changes are written");
                checkWritten();
            });
    }

    MirrorArguments const& arguments_;
    EndBySignal const& endBySignal_;
    RouteTables tables_;
    std::optional<Churn> churn_;
    double churnStart_ = 0;
    U64 churned_ = 0;
    Dunlin::TaskSchedulerRoot::TimerId retryTimer_ = 0;
    Dunlin::TaskSchedulerRoot::TimerId boardTimer_ = 0;
    U64 noticed_ = 0; // writes as of the last notice
};

} // namespace

int mirrorCommand(Common const& common, MirrorArguments const& arguments) {
    if (!isDirectoryName(arguments.name))
        throw CommandError(badUse, fmt::format("--name \"{}\": not a name", arguments.name));
    // What the tables say of trouble (files that had to be given up, say) is for the operator.
    keepTrace([&](std::string const& line) {
        if (!arguments.quiet) complain("cairn mirror: " + line);
    });
    std::signal(SIGPIPE, SIG_IGN); // who reads stderr may go, and the tables be written on
    EndBySignal const endBySignal;
    try {
        Mirror(arguments, common, endBySignal).run();
    } catch (Dunlin::Exception const&) {
        throw errorOfException("tables " + arguments.name);
    }
    return done;
}

} // namespace Cairn
