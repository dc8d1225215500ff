// The seven tables, each as an attribute of an entity, so that one test drives them all: keys and
// values by number, the attribute's functions, and a listener that keeps what it hears.
#pragma once

#include "Mroute/Tables.h"
#include "VomoBrisk/Mount.h"
#include "VomoBrisk/TableMember.h"
#include "VomoBrisk/VomoBriskMapImpl.h"
#include "tests/support/Loop.h"
#include "tests/support/TempBase.h"

#include <gtest/gtest.h>
#include <map>

namespace Support {

// `stamp` is what tells two values of a key apart.
template <class Table>
struct Sample;

inline Kelpie::Prefix host(U32 address) {
    return {Kelpie::IpAddr::fromWord(address), 32};
}
inline Routing::Multicast::Fib::IpGenRouteKey routeKey(U32 i) {
    return {host(0x0a000000 + i), host(0xe8000000 + 7 * i)};
}
inline BitMapper::BitMapperKey bitMapperKey(U32 i) {
    return {Kelpie::IntfId(U64{i} + 1),
            Kelpie::IpGenAddr(Kelpie::IpAddr::fromWord(0x0a000000 + i))};
}
template <>
struct Sample<Mroute::RouteTable> {
    static auto key(U32 i) { return routeKey(i); }
    static Mroute::RouteTable::Value value(U32 i, U32 stamp) {
        Mroute::RouteTable::Value v(key(i));
        v.versionIs(stamp);
        return v;
    }
    static U64 stamp(Mroute::RouteTable::Value const& v) { return v.version(); }
};
template <>
struct Sample<Mroute::OifIndexIntfTable> {
    static auto key(U32 i) { return Brisk::Multicast::Fib::OifIndex(static_cast<U16>(i)); }
    static Mroute::OifIndexIntfTable::Value value(U32 i, U32 stamp) {
        Mroute::OifIndexIntfTable::Value v(key(i), Kelpie::IntfId(U64{i} + 1));
        v.refCountIs(stamp);
        return v;
    }
    static U64 stamp(Mroute::OifIndexIntfTable::Value const& v) { return v.refCount(); }
};
template <>
struct Sample<Mroute::BidirGroupTable> {
    static auto key(U32 i) { return Kelpie::IpGenPrefix(host(0xef000000 + i)); }
    static Mroute::BidirGroupTable::Value value(U32 i, U32 stamp) {
        Mroute::BidirGroupTable::Value v(key(i));
        v.rpaIs(Routing::Multicast::Fib::RpaIndex(static_cast<U16>(stamp)));
        return v;
    }
    static U64 stamp(Mroute::BidirGroupTable::Value const& v) { return v.rpa().value(); }
};
template <>
struct Sample<Mroute::DfProfileTable> {
    static auto key(U32 i) { return Kelpie::IntfId(U64{i} + 1); }
    static Mroute::DfProfileTable::Value value(U32 i, U32 stamp) {
        Mroute::DfProfileTable::Value v(key(i));
        v.dfBitmapIs(stamp);
        return v;
    }
    static U64 stamp(Mroute::DfProfileTable::Value const& v) { return v.dfBitmap(); }
};
template <>
struct Sample<Mroute::CounterTable> {
    static auto key(U32 i) { return routeKey(i); }
    static Mroute::CounterTable::Value value(U32 i, U32 stamp) {
        Mroute::CounterTable::Value v(key(i));
        v.valueIs(stamp);
        return v;
    }
    static U64 stamp(Mroute::CounterTable::Value const& v) { return v.value(); }
};
template <>
struct Sample<Mroute::BitIndexMapTable> {
    static auto key(U32 i) { return BitMapper::BitIndex(static_cast<U16>(i)); }
    static Mroute::BitIndexMapTable::Value value(U32 i, U32 stamp) {
        Mroute::BitIndexMapTable::Value v(key(i), bitMapperKey(i));
        v.refCountIs(stamp);
        return v;
    }
    static U64 stamp(Mroute::BitIndexMapTable::Value const& v) { return v.refCount(); }
};
template <>
struct Sample<Mroute::WaitlistMapTable> {
    static auto key(U32 i) { return bitMapperKey(i); }
    static Mroute::WaitlistMapTable::Value value(U32 i, U32 stamp) {
        Mroute::WaitlistMapTable::Value v(key(i));
        v.refCountIs(stamp);
        return v;
    }
    static U64 stamp(Mroute::WaitlistMapTable::Value const& v) { return v.refCount(); }
};

// An entity with one table.
template <class Table>
class OwnerOf : public VomoBrisk::TableOwner {
public:
    enum Attr : U32 { tableAttr = 258, tableControlAttr };
    using Member = VomoBrisk::TableMember<OwnerOf, tableAttr, Table>;
    using Key = typename Member::Key;
    using Value = typename Member::Value;

    explicit OwnerOf(Vomo::String const& name) : name_(name) { zeroReferencesAttach(); }
    Vomo::String name() const override { return name_; }
    Vomo::NotifieeListRecord notifieeList() const override { return {1, &notifiees_, 0, 0}; }

    typename Member::Map const& map() const { return table_.map(); }
    typename Member::Map& map() { return table_.map(); }
    Value get(Key const& key) const { return table_.get(key); }
    bool has(Key const& key) const { return table_.has(key); }
    void is(Value const& value) { table_.is(value); }
    Value del(Key const& key) { return table_.del(key); }
    void delAll() { table_.delAll(); }
    void isAll(typename Member::Values values) { table_.isAll(values); }
    void delMany(typename Member::Keys keys) { table_.delAll(keys); }
    void commit(Value const* value) { table_.commit(value); }
    // Virtual, to see that the table calls through the owner's own functions.
    virtual void notify(Key const& key) { table_.notify(key); }
    void notifyQuiesced(bool on) { table_.notifyQuiesced(on); }
    void notifyMountStatus() { table_.notifyMountStatus(); }
    auto const& control() const { return table_.control(); }
    void controlIs(Vomo::Ptr<VomoBrisk::CollectionControl> const& c) { table_.controlIs(c); }

private:
    Vomo::String name_;
    Member table_{*this, &OwnerOf::notify, &OwnerOf::notifyMountStatus, &OwnerOf::notifyQuiesced};
    mutable Vomo::NotifieeList notifiees_;
};

// What one entity's notifiees hear: for each key of the attribute, how often; and other attributes.
template <class Table>
class Listener : public Vomo::PtrInterface::NotifieeConst {
public:
    using Owner = OwnerOf<Table>;
    explicit Listener(Vomo::Ptr<Owner> const& owner) { notifierIs(owner.ptr()); }
    void onAttribute(Vomo::AttributeId id, void const* key) override {
        if (id != Owner::tableAttr) {
            others.push_back(id);
            return;
        }
        ++told;
        ++heard[number(*static_cast<typename Table::Key const*>(key))];
        if (onTold) onTold();
    }
    static U32 number(typename Table::Key const& key) {
        for (U32 i = 0; i < 400; ++i)
            if (Sample<Table>::key(i) == key) return i;
        return ~0U;
    }
    std::map<U32, U32> take() { return std::exchange(heard, {}); }

    std::map<U32, U32> heard;
    std::vector<U32> others;
    U64 told = 0;
    std::function<void()> onTold;
};
// Each of the numbers once.
inline std::map<U32, U32> once(U32 from, U32 to) {
    std::map<U32, U32> all;
    for (U32 i = from; i < to; ++i) all[i] = 1;
    return all;
}

} // namespace Support
