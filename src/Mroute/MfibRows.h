// The rows of the entities of the module Mfib, for its record alone.
#pragma once

#include "Mroute/MfibConfig.h"
#include "Mroute/MfibHardware.h"
#include "Mroute/MfibStatus.h"
#include "Vomo/EntityFrame.h"

template <>
struct Vomo::Describe<Routing::Multicast::Fib::BidirStatus> {
    using T = Routing::Multicast::Fib::BidirStatus;
    static constexpr auto type = entity("Routing::Multicast::Fib::BidirStatus", wide);
    static constexpr auto attributes = rows({
        collection<&T::bidirEnabledVrf_>("bidirEnabledVrf"),
    });
};
template <>
struct Vomo::Describe<Routing::Multicast::Fib::Config> {
    using T = Routing::Multicast::Fib::Config;
    static constexpr auto type = entity("Routing::Multicast::Fib::Config", wide);
    static constexpr auto attributes = rows({
        notifying<&T::routing_>(T::routingAttr, "routing"),
        notifying<&T::useUribAsFallback_>(T::useUribAsFallbackAttr, "useUribAsFallback"),
        constant<&T::useUribAsFallbackDefault>(T::useUribAsFallbackDefaultAttr,
                                               "useUribAsFallbackDefault"),
        notifying<&T::multipathControl_>(T::multipathControlAttr, "multipathControl"),
        notifying<&T::multipathColor_>(T::multipathColorAttr, "multipathColor"),
        constant<&T::multipathColorDefault>(T::multipathColorDefaultAttr, "multipathColorDefault"),
        notifying<&T::fastdrop_>(T::fastdropAttr, "fastdrop"),
        constant<&T::fastdropDefault>(T::fastdropDefaultAttr, "fastdropDefault"),
        notifying<&T::maxFastdrops_>(T::maxFastdropsAttr, "maxFastdrops"),
        constant<&T::maxFastdropsDefault>(T::maxFastdropsDefaultAttr, "maxFastdropsDefault"),
        collection<&T::counterRoute_>("counterRoute"),
        collection<&T::clearCounterRoute_>("clearCounterRoute"),
        notifying<&T::clearFastdrop_>(T::clearFastdropAttr, "clearFastdrop"),
        notifying<&T::clearMfibCount_>(T::clearMfibCountAttr, "clearMfibCount"),
        function<&T::isDefault>(T::isDefaultAttr, "isDefault"),
        mutating<&T::reset>(T::resetAttr, "reset"),
    });
};
template <>
struct Vomo::Describe<Routing::Multicast::Fib::CounterStatusCtl> {
    using T = Routing::Multicast::Fib::CounterStatusCtl;
    static constexpr auto type = entity("Routing::Multicast::Fib::CounterStatusCtl");
    static constexpr auto attributes = rows({
        notifying<&T::mode_>(T::modeAttr, "mode"),
        notifying<&T::maxCounters_>(T::maxCountersAttr, "maxCounters"),
        notifying<&T::currSize_>(T::currSizeAttr, "currSize"),
        notifying<&T::currActive_>(T::currActiveAttr, "currActive"),
    });
};
template <>
struct Vomo::Describe<Routing::Multicast::Fib::Hardware::RouteStatus> {
    using T = Routing::Multicast::Fib::Hardware::RouteStatus;
    static constexpr auto type = entity("Routing::Multicast::Fib::Hardware::RouteStatus", wide);
    static constexpr auto attributes = rows({
        ctor<&T::key_>(T::keyAttr, "key"),
        notifying<&T::noRpf_>(T::noRpfAttr, "noRpf"),
        notifying<&T::hwFlags_>(T::hwFlagsAttr, "hwFlags"),
        view<&T::noRoute, &T::noRouteIs>(T::noRouteAttr, "noRoute"),
        view<&T::noIntfs, &T::noIntfsIs>(T::noIntfsAttr, "noIntfs"),
        notifying<&T::lastPollTime_>(T::lastPollTimeAttr, "lastPollTime"),
        collection<&T::fastdropLastPollTime_>("fastdropLastPollTime"),
        notifying<&T::notifyingIntfId_>(T::notifyingIntfIdAttr, "notifyingIntfId"),
        notifying<&T::staticFastdropIntfId_>(T::staticFastdropIntfIdAttr, "staticFastdropIntfId"),
        notifying<&T::acceptingIntfId_>(T::acceptingIntfIdAttr, "acceptingIntfId"),
        notifying<&T::frrIntfId_>(T::frrIntfIdAttr, "frrIntfId"),
        readOnly<&T::creationTime_>(T::creationTimeAttr, "creationTime"),
    });
};
template <>
struct Vomo::Describe<Routing::Multicast::Fib::Hardware::Status> {
    using T = Routing::Multicast::Fib::Hardware::Status;
    static constexpr auto type = entity("Routing::Multicast::Fib::Hardware::Status", wide);
    static constexpr auto attributes = rows({
        notifying<&T::hwRouting_>(T::hwRoutingAttr, "hwRouting"),
        collection<&T::vrfStatus_>("vrfStatus", "vrfName"),
        notifying<&T::hwResourceFull_>(T::hwResourceFullAttr, "hwResourceFull"),
        notifying<&T::pollingInterval_>(T::pollingIntervalAttr, "pollingInterval"),
        notifying<&T::pollingMinInterval_>(T::pollingMinIntervalAttr, "pollingMinInterval"),
        notifying<&T::needIifInOifSet_>(T::needIifInOifSetAttr, "needIifInOifSet"),
        notifying<&T::routeLimit_>(T::routeLimitAttr, "routeLimit"),
        notifying<&T::batchEnabled_>(T::batchEnabledAttr, "batchEnabled"),
        notifying<&T::routeCounterSupported_>(T::routeCounterSupportedAttr,
                                              "routeCounterSupported"),
        notifying<&T::routingEnabled_>(T::routingEnabledAttr, "routingEnabled"),
        notifying<&T::waitForRoutingDisabledCnt_>(T::waitForRoutingDisabledCntAttr,
                                                  "waitForRoutingDisabledCnt"),
        notifying<&T::avoidDuplicates_>(T::avoidDuplicatesAttr, "avoidDuplicates"),
        notifying<&T::deleteL2RouteOnFailure_>(T::deleteL2RouteOnFailureAttr,
                                               "deleteL2RouteOnFailure"),
        notifying<&T::mcastFlexCounterSupport_>(T::mcastFlexCounterSupportAttr,
                                                "mcastFlexCounterSupport"),
        notifying<&T::anyDirtyLag_>(T::anyDirtyLagAttr, "anyDirtyLag"),
        collection<&T::dirtyLag_>("dirtyLag"),
        statics<&T::mountPath>(T::mountPathAttr, "mountPath", {"af"}),
        function<&T::routes>(T::routesAttr, "routes"),
    });
};
template <>
struct Vomo::Describe<Routing::Multicast::Fib::Hardware::VrfStatus> {
    using T = Routing::Multicast::Fib::Hardware::VrfStatus;
    static constexpr auto type = entity("Routing::Multicast::Fib::Hardware::VrfStatus", wide);
    static constexpr auto attributes = rows({
        ctor<&T::key_>(T::vrfNameAttr, "vrfName"),
        collection<&T::route_>("route", "key"),
        notifying<&T::failedMroutes_>(T::failedMroutesAttr, "failedMroutes"),
        notifying<&T::fastdropCount_>(T::fastdropCountAttr, "fastdropCount"),
    });
};
template <>
struct Vomo::Describe<Routing::Multicast::Fib::IntfConfig> {
    using T = Routing::Multicast::Fib::IntfConfig;
    static constexpr auto type = entity("Routing::Multicast::Fib::IntfConfig");
    static constexpr auto attributes = rows({
        notifying<&T::noFastdrop_>(T::noFastdropAttr, "noFastdrop"),
    });
};
template <>
struct Vomo::Describe<Routing::Multicast::Fib::MbrIntf> {
    using T = Routing::Multicast::Fib::MbrIntf;
    static constexpr auto type = entity("Routing::Multicast::Fib::MbrIntf", wide);
    static constexpr auto attributes = rows({
        collection<&T::intf_>("intf"),
        statics<&T::mountPath>(T::mountPathAttr, "mountPath", {"af"}),
    });
};
template <>
struct Vomo::Describe<Routing::Multicast::Fib::ReadyStatus> {
    using T = Routing::Multicast::Fib::ReadyStatus;
    static constexpr auto type = entity("Routing::Multicast::Fib::ReadyStatus", wide);
    static constexpr auto attributes = rows({
        collection<&T::vrfReady_>("vrfReady"),
        statics<&T::mountPath>(T::mountPathAttr, "mountPath", {"af", "name"}),
    });
};
template <>
struct Vomo::Describe<Routing::Multicast::Fib::SparseModeStatus> {
    using T = Routing::Multicast::Fib::SparseModeStatus;
    static constexpr auto type = entity("Routing::Multicast::Fib::SparseModeStatus", wide);
    static constexpr auto attributes = rows({
        collection<&T::fastFailoverIntf_>("fastFailoverIntf"),
        statics<&T::mountPath>(T::mountPathAttr, "mountPath", {"af"}),
    });
};
template <>
struct Vomo::Describe<Routing::Multicast::Fib::Status> {
    using T = Routing::Multicast::Fib::Status;
    static constexpr auto type = entity("Routing::Multicast::Fib::Status", wide);
    static constexpr auto attributes = rows({
        collection<&T::notifyLocalSources_>("notifyLocalSources"),
        collection<&T::intfBoundaryStatus_>("intfBoundaryStatus", "name"),
        collection<&T::vxlanIntf_>("vxlanIntf"),
        statics<&T::mountPath>(T::mountPathAttr, "mountPath", {"af"}),
    });
};
template <>
struct Vomo::Describe<Routing::Multicast::Fib::VrfConfig> {
    using T = Routing::Multicast::Fib::VrfConfig;
    static constexpr auto type = entity("Routing::Multicast::Fib::VrfConfig", wide);
    static constexpr auto attributes = rows({
        notifying<&T::routing_>(T::routingAttr, "routing"),
        notifying<&T::counterMode_>(T::counterModeAttr, "counterMode"),
        constant<&T::counterModeDefault>(T::counterModeDefaultAttr, "counterModeDefault"),
        notifying<&T::loadInterval_>(T::loadIntervalAttr, "loadInterval"),
        notifying<&T::allCounter_>(T::allCounterAttr, "allCounter"),
        constant<&T::allCounterDefault>(T::allCounterDefaultAttr, "allCounterDefault"),
        notifying<&T::activityPollingInterval_>(T::activityPollingIntervalAttr,
                                                "activityPollingInterval"),
        constant<&T::activityPollingIntervalDefault>(T::activityPollingIntervalDefaultAttr,
                                                     "activityPollingIntervalDefault"),
        collection<&T::intfConfig_>("intfConfig", "name"),
        collection<&T::config_>("config", "name"),
        statics<&T::mountPath>(T::mountPathAttr, "mountPath", {"af"}),
        mutating<&T::reset>(T::resetAttr, "reset"),
        function<&T::isDefault>(T::isDefaultAttr, "isDefault"),
        mutating<&T::doInit>(T::doInitAttr, "doInit"),
    });
};
template <>
struct Vomo::Describe<Routing::Multicast::Fib::VrfEnabledStatus> {
    using T = Routing::Multicast::Fib::VrfEnabledStatus;
    static constexpr auto type = entity("Routing::Multicast::Fib::VrfEnabledStatus", wide);
    static constexpr auto attributes = rows({
        collection<&T::vrf_>("vrf"),
        statics<&T::mountPath>(T::mountPathAttr, "mountPath", {"af"}),
    });
};
template <>
struct Vomo::Describe<Routing::Multicast::MulticastLegacyConfig> {
    using T = Routing::Multicast::MulticastLegacyConfig;
    static constexpr auto type = entity("Routing::Multicast::MulticastLegacyConfig");
    static constexpr auto attributes = rows({
        notifying<&T::legacy_>(T::legacyAttr, "legacy"),
        notifying<&T::version_>(T::versionAttr, "version"),
        constant<&T::globalMode>(T::globalModeAttr, "globalMode"),
        constant<&T::routerMode>(T::routerModeAttr, "routerMode"),
        constant<&T::ipMode>(T::ipModeAttr, "ipMode"),
    });
};
template <>
struct Vomo::Describe<Routing::Multicast::Pim::Status> {
    using T = Routing::Multicast::Pim::Status;
    static constexpr auto type = entity("Routing::Multicast::Pim::Status", wide);
    static constexpr auto attributes = rows({
        collection<&T::pimEnabledSparseModeVrf_>("pimEnabledSparseModeVrf"),
        collection<&T::pimEnabledBidirVrf_>("pimEnabledBidirVrf"),
        statics<&T::mountPath>(T::mountPathAttr, "mountPath", {"af"}),
    });
};
template <>
struct Vomo::Describe<Routing::Multicast::Vxlan::Status> {
    using T = Routing::Multicast::Vxlan::Status;
    static constexpr auto type = entity("Routing::Multicast::Vxlan::Status", wide);
    static constexpr auto attributes = rows({
        collection<&T::vxlanIntf_>("vxlanIntf"),
        statics<&T::mountPath>(T::mountPathAttr, "mountPath", {"af"}),
    });
};
