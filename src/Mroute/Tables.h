// The seven shared tables: for each value type its policy bundle, its writer and its reader. They
// are instantiated once, in this library.
//
//   RouteTable            routes, by route key
//   OifIndexIntfTable     the interface of each outgoing-interface index
//   BidirGroupTable       group ranges of bidirectional multicast
//   DfProfileTable        designated-forwarder state, by interface
//   CounterTable          traffic counters, by route key
//   BitIndexMapTable      allocated bit indexes
//   WaitlistMapTable      keys that wait for a bit index
#pragma once

#include "Brisk/Table.h"
#include "Mroute/BitMapperTypes.h"
#include "Mroute/Mfib.h"
#include "Mroute/MfibBriskTypes.h"
#include "VomoBrisk/ValueWrapper.h"

namespace Mroute {

// `Value` is what the table holds: ValueType with the same members and layout. `typeName` is the
// name that stands in the files, `attribute` that of the owner's attribute and of the directory.
template <class ValueType, class KeyType>
struct SharedTable {
    using Key = KeyType;
    using Value = VomoBrisk::VomoBriskMapValueWrapper<ValueType, Key, &ValueType::key, true>;
    static_assert(sizeof(Value) == sizeof(ValueType));
    using Ops = Brisk::OpsOf<Key, Value, &Value::fwkKey>;
    using Writer = Brisk::BriskWriter<Ops>;
    using Reader = Brisk::BriskReader<Ops>;
};

struct RouteTable
    : SharedTable<Brisk::Multicast::Fib::Route, Routing::Multicast::Fib::IpGenRouteKey> {
    static constexpr char const* typeName = "Brisk::Multicast::Fib::Route";
    static constexpr char const* attribute = "route";
};
struct OifIndexIntfTable
    : SharedTable<Brisk::Multicast::Fib::OifIndexIntf, Brisk::Multicast::Fib::OifIndex> {
    static constexpr char const* typeName = "Brisk::Multicast::Fib::OifIndexIntf";
    static constexpr char const* attribute = "oifIndexIntf";
};
struct BidirGroupTable : SharedTable<Brisk::Multicast::Fib::BidirGroup, Kelpie::IpGenPrefix> {
    static constexpr char const* typeName = "Brisk::Multicast::Fib::BidirGroup";
    static constexpr char const* attribute = "bidirGroup";
};
struct DfProfileTable : SharedTable<Brisk::Multicast::Fib::DfProfile, Kelpie::IntfId> {
    static constexpr char const* typeName = "Brisk::Multicast::Fib::DfProfile";
    static constexpr char const* attribute = "dfProfile";
};
struct CounterTable
    : SharedTable<Routing::Multicast::Fib::Counter, Routing::Multicast::Fib::IpGenRouteKey> {
    static constexpr char const* typeName = "Routing::Multicast::Fib::Counter";
    static constexpr char const* attribute = "counter";
};
struct BitIndexMapTable : SharedTable<BitMapper::BitIndexMap, BitMapper::BitIndex> {
    static constexpr char const* typeName = "BitMapper::BitIndexMap";
    static constexpr char const* attribute = "bitIndexMap";
};
struct WaitlistMapTable : SharedTable<BitMapper::WaitlistMap, BitMapper::BitMapperKey> {
    static constexpr char const* typeName = "BitMapper::WaitlistMap";
    static constexpr char const* attribute = "waitlistMap";
};

} // namespace Mroute

BRISK_TABLE_EXTERN(Mroute::RouteTable::Ops);
BRISK_TABLE_EXTERN(Mroute::OifIndexIntfTable::Ops);
BRISK_TABLE_EXTERN(Mroute::BidirGroupTable::Ops);
BRISK_TABLE_EXTERN(Mroute::DfProfileTable::Ops);
BRISK_TABLE_EXTERN(Mroute::CounterTable::Ops);
BRISK_TABLE_EXTERN(Mroute::BitIndexMapTable::Ops);
BRISK_TABLE_EXTERN(Mroute::WaitlistMapTable::Ops);
