// One walk over all records: what holds for every type, asked through the generic functions alone.
#include "Interface/LoadInterval.h"
#include "Mroute/McastTunnelTypes.h"
#include "Mroute/McastVplsPwTypes.h"
#include "Mroute/MfibBriskTypes.h"
#include "Mroute/MfibConfig.h"
#include "Mroute/MfibHardware.h"
#include "Mroute/MfibStatus.h"
#include "Mroute/MrouteLibAttr.h"
#include "Mroute/PimEnabled.h"
#include "Mroute/PimIntf.h"
#include "Mroute/PortVlanSet.h"
#include "Tunnel/TunnelId.h"
#include "Vomo/GenericIf.h"
#include "VomoBrisk/CollectionControl.h"

namespace {

using namespace Vomo;

// Storage for an object of a type that is known by its record alone.
class Object {
public:
    explicit Object(VomoType type, void const* from = nullptr)
        : type_(type), bytes_(new (std::align_val_t(16)) U8[type.row().size()]()) {
        methods().construct(bytes_, from);
    }
    ~Object() {
        methods().destruct(bytes_);
        ::operator delete[](bytes_, std::align_val_t(16));
    }
    Object(Object const&) = delete;
    Object& operator=(Object const&) = delete;
    GenericRow const& generic() const { return type_.module->genericTable[type_.index]; }
    ValueMethods const& methods() const { return *generic().methods; }
    String text() const { return methods().strRep(bytes_, type_); }
    void textIs(String const& text) { methods().strepToValue(bytes_, text, type_); }
    void* get() const { return bytes_; }
    U32 op(void* out, VomoAttr attr, AttributeOp op, void* a = nullptr, void* b = nullptr) const {
        return generic().attributeOp(out, bytes_, attr, op, a, b);
    }

private:
    VomoType type_;
    U8* bytes_;
};

template <class Visit>
void everyValueType(Visit&& visit) {
    int count = 0;
    for (VomoModule const* module : modules())
        for (U16 i = 0; i < module->numTypes; ++i) {
            VomoType const type{module, i};
            if (type.isPolymorphic()) continue;
            SCOPED_TRACE(type.name());
            visit(type);
            ++count;
        }
    EXPECT_GE(count, 50);
}

TEST(AllTypes, AreFoundByName) {
    everyValueType([](VomoType type) { EXPECT_EQ(typeByName(type.name()), type); });
    EXPECT_TRUE(typeByName("Brisk::Multicast::Fib::Routes").isNull());
}

// A value of each type besides the default one; of an ordered type in ascending order.
Kelpie::IntfId intf(char const* name) {
    return Kelpie::IntfId(String(name));
}
template <class T>
T parsed(char const* text) {
    return strepToValue(String(text), static_cast<T*>(nullptr));
}
template <class T, class Change>
T changed(T value, Change&& change) {
    change(value);
    return value;
}
auto samples() {
    using namespace Routing::Multicast::Fib;
    using namespace Brisk::Multicast::Fib;
    using namespace MrouteLib;
    using namespace Multicast::Tunnel::TunnelTable;
    using BitMapper::BitIndex, BitMapper::BitMapperKey, Multicast::Group::GroupKey;
    Kelpie::IpGenAddr const address = parsed<Kelpie::IpGenAddr>("2001:db8::1");
    auto const prefix = parsed<Kelpie::IpGenPrefix>("10.1.0.0/16");
    auto const key = makeRouteKeyEthGroup(Bridging::VlanId(7), Kelpie::EthAddr());
    BitMapperKey const bitMapperKey(intf("Vlan7"), address);
    return std::tuple{
        BitIndex(3),
        BitMapper::BitIndexMap(BitIndex(9), bitMapperKey),
        bitMapperKey,
        BitMapper::TableInfo(),
        BitMapper::WaitlistMap(bitMapperKey),
        GroupKey(19, 7),
        Multicast::Group::McastGroupKind::mcastGroupKindMpls,
        FecIndex(5),
        changed(McastTunnelEncapInfo(FecIndex(5)), [](auto& v) { v.outlifIdIs(6); }),
        changed(McastTunnelEncapInfoColl(),
                [](auto& v) { v.encapInfoIs(FecIndex(5), McastTunnelEncapInfo(FecIndex(5))); }),
        Multicast::Tunnel::TunnelId::fromVpls(intf("Ethernet1")),
        Multicast::Tunnel::TunnelType::vpls,
        VplsPwEncapInfo(1, U64{1} << 63, intf("Loopback0")),
        changed(Counter(key), [](auto& v) { v.lastRefreshTimeIs(0.1), v.activeIs(true); }),
        CounterMode::byteMode,
        Config::MultipathControl::multipathRouterId,
        Hardware::RouteStatus::HwFlags(2),
        changed(Intf(intf("Ethernet1")), [](auto& v) { v.frrIs(true); }),
        RouteKeyTypeConverter(RouteKeyType::mroute),
        changed(BidirGroup(prefix), [](auto& v) { v.rpaIs(RpaIndex(65535)); }),
        changed(DfProfile(intf("Vlan8")), [](auto& v) { v.dfBitmapIs(~U64{0}); }),
        IntfOifIndex(intf("Vlan8"), OifIndex(8)),
        OifIndex(511),
        OifIndexIntf(OifIndex(7), intf("Vlan9")),
        changed(Route(key), [](auto& v) { v.oifIs(OifIndex(511), true), v.noRpfIs(true); }),
        Brisk::Multicast::Fib::TableInfo(),
        IifFlags(1),
        IntfFlags(33),
        key,
        RouteFlags(255),
        RouteKey(makeRouteKeyVlanFloodset(Bridging::VlanId(4094))),
        RouteKeyType::ethGroup,
        RoutePriority(255),
        RpaIndex(4),
        RouteKeyInfo(key, Bridging::VlanIdOrNone(5), L3::VrfName("it's")),
        OutLif(4095),
        PortProperty(~0U),
        PortPropertyMask(255),
        changed(PortVlan(), [](auto& v) { v.portIs(intf("Vlan9")), v.outLifIs(OutLif(6)); }),
        PvSetChange::noChange,
        changed(PortVlanSet(),
                [](auto& v) {
                    v.portVlanIs(changed(PortVlan(), [](auto& pv) { pv.outLifIs(OutLif(6)); }),
                                 true);
                    v.natVlanIs(Bridging::VlanIdOrNone(7), false), v.saveHash();
                }),
        ToCpuPurpose(2),
        changed(TunnelPortVlanSet(), [](auto& v) { v.versionIs(~U64{0}), v.versionValidIs(true); }),
        PimIntf::PrefixKey(prefix, L3::VrfName("red")),
        PimIntf::PrefixMroute(prefix, intf("Vlan3")),
        intf("Port-Channel12"),
        Kelpie::AddressFamily(2),
        address.v6Addr(),
        address,
        prefix,
        Kelpie::IpAddr::fromWord(0x0a000001),
        Kelpie::Prefix(prefix.v4Prefix()),
        parsed<Kelpie::EthAddr>("01:00:5e:01:02:03"),
        Bridging::VlanId(4094),
        Bridging::VlanIdOrNone(1),
        L3::VrfName("default"),
        Tunnel::TunnelTable::TunnelId(12),
        Interface::LoadInterval(2, 0.5),
        VomoBrisk::CollectionInfo("route", 12000, 0),
        BitMapper::TableInfo::mountInfo(VomoBrisk::VomoBriskType::keyShadow),
        VomoBrisk::VomoBriskType::reader,
        Mem::MountStatus::flushing};
}

// It or a value in it: such a type is not read from text.
bool holdsCollection(VomoType type) {
    for (U16 i = 0; i < type.row().numAttributes; ++i) {
        VomoAttr const attr{type.module, static_cast<U16>(type.row().firstAttribute + i)};
        VomoType const of = typeOfReference(attr.module, attr.row().type);
        if (is(attr.row(), RowKind::memberMap)) return true;
        if (is(attr.row(), RowKind::mutates) && !of.isNull() && holdsCollection(of)) return true;
    }
    return false;
}

// Through its record a value gives what the typed members give.
template <class T>
void agreesWithItsRecord(T const& a, T const& b) {
    VomoType const type = IdOf<T>::type;
    Object x(type, &a), y(type, &b), back(type);
    EXPECT_EQ(x.text(), valueToStrep(a));
    if (!holdsCollection(type)) { // else the text says "None"
        back.textIs(x.text());
        EXPECT_EQ(back.text(), x.text());
    }
    NboAttrLog::Out typed, generic;
    if constexpr (std::is_enum_v<T>)
        typed << static_cast<U32>(a);
    else
        typed << a;
    x.methods().logWrite(generic, x.get());
    EXPECT_TRUE(std::ranges::equal(typed.bytes(), generic.bytes()));
    NboAttrLog::In in(generic.bytes());
    back.methods().logRead(&in, back.get());
    EXPECT_EQ(in.remaining(), 0U);
    EXPECT_EQ(back.text(), x.text());
    if constexpr (requires { attrLogSize(&a); }) {
        EXPECT_EQ(attrLogSize(&a), generic.size());
    }
    bool answer = false;
    EXPECT_EQ(back.op(&answer, {}, AttributeOp::equal, x.get()), 0U);
    EXPECT_TRUE(answer);
    EXPECT_EQ(x.op(&answer, {}, AttributeOp::equal, y.get()), 0U);
    EXPECT_EQ(answer, a == b);
    U32 const less = x.op(&answer, {}, AttributeOp::less, y.get());
    if constexpr (requires { a < b; }) {
        EXPECT_EQ(less, 0U);
        EXPECT_EQ(answer, a < b);
    } else {
        EXPECT_EQ(less, 1U);
    }
    U32 const truth = x.op(&answer, {}, AttributeOp::truth);
    if constexpr (std::is_enum_v<T>) {
        EXPECT_EQ(answer, static_cast<U32>(a) != 0);
    } else if constexpr (requires { a.operator bool(); }) {
        EXPECT_EQ(answer, bool(a));
    } else {
        EXPECT_EQ(truth, 1U);
    }
    if constexpr (requires { a.hash(); }) {
        EXPECT_EQ(x.methods().hash(x.get(), type), a.hash());
    } else if constexpr (requires { a.hash(0U); }) {
        EXPECT_EQ(x.methods().hash(x.get(), type), a.hash(0U));
    } else if constexpr (std::is_enum_v<T>) {
        EXPECT_EQ(x.methods().hash(x.get(), type), static_cast<U32>(a));
    } else if constexpr (requires { T::definedBits; }) {
        EXPECT_EQ(x.methods().hash(x.get(), type), GenericIfImpl::flagSetHash(a.value()));
    } else {
        EXPECT_THROW(x.methods().hash(x.get(), type), UnhashableException);
    }
}

TEST(AllTypes, AgreeWithTheirTypedMembers) {
    std::set<std::string> seen;
    std::apply(
        [&]<class... T>(T const&... sample) {
            auto const check = [&]<class V>(V const& v) {
                SCOPED_TRACE(IdOf<V>::type.name());
                seen.insert(IdOf<V>::type.name());
                V const standard{};
                agreesWithItsRecord(standard, v);
                agreesWithItsRecord(v, standard);
                agreesWithItsRecord(v, v);
                Object const made(IdOf<V>::type);
                EXPECT_EQ(made.text(), valueToStrep(standard)); // not zeroed: the default
            };
            (check(sample), ...);
        },
        samples());
    everyValueType([&](VomoType type) { EXPECT_TRUE(seen.contains(type.name())); });
}

// Storage for what an attribute, a key or a parameter is: a default one.
class Field {
public:
    Field(VomoModule const* module, U16 reference) {
        VomoType const type = typeOfReference(module, reference);
        if (builtinOfCode(reference) == Builtin::string)
            at_ = &text_;
        else if (type.isNull())
            at_ = bytes_;
        else if (type.isPolymorphic())
            at_ = &entity_;
        else
            at_ = (object_ = std::make_unique<Object>(type))->get();
        // For these the default is one behind the last index, and a family without paths.
        if (type == typeByName("Brisk::Multicast::Fib::OifIndex")) object_->textIs("0");
        if (type == typeByName("Kelpie::AddressFamily")) object_->textIs("2");
        // And here an address without a family, and tunnels without a kind.
        if (type == typeByName("Kelpie::IpGenAddr")) object_->textIs("224.0.0.1");
        if (type == typeByName("Multicast::Tunnel::TunnelType")) object_->textIs("'vxlanBum'");
        if (type == typeByName("Multicast::Tunnel::TunnelId"))
            *static_cast<Multicast::Tunnel::TunnelId*>(at_) =
                Multicast::Tunnel::TunnelId::fromVpls(Kelpie::IntfId(7));
    }
    void* get() const { return at_; }
    Ptr<Entity>& entity() { return entity_; }

private:
    void* at_;
    alignas(8) U8 bytes_[8] = {};
    String text_;
    Ptr<Entity> entity_;
    std::unique_ptr<Object> object_;
};
// Default arguments for the parameters that begin at record `first`.
std::vector<std::unique_ptr<Field>> arguments(VomoModule const* module, U16 first) {
    std::vector<std::unique_ptr<Field>> list;
    for (U16 const* p = module->parameterTable + 1 + 3 * first; p[0] != 0; p += 3)
        list.push_back(std::make_unique<Field>(module, p[1]));
    return list;
}
std::vector<void*> addresses(std::vector<std::unique_ptr<Field>> const& fields) {
    std::vector<void*> list{nullptr}; // one without parameters has an array, too
    if (!fields.empty()) list.clear();
    for (auto const& field : fields) list.push_back(field->get());
    return list;
}

Ptr<Entity> made(VomoType type, std::vector<void*> const& arguments) {
    U64 room = ~U64{0}; // holds nothing that could be released
    type.module->genericTable[type.index].constructFromCtorArgs(&room, arguments.data());
    Ptr<Entity>* const at = std::launder(reinterpret_cast<Ptr<Entity>*>(&room));
    Ptr<Entity> const entity(*at);
    std::destroy_at(at);
    return entity;
}
// An entity of default arguments; where one is its owner, of a real one, which is appended to `owners`.
Ptr<Entity> madeByDefault(VomoType type, std::vector<Ptr<Entity>>& owners) {
    VomoType of = type; // a derived type may have its parameters from its base
    while (of.row().parameters == 0 && !of.base().isNull()) of = of.base();
    auto const fields = arguments(of.module, of.row().parameters);
    for (U16 i = 0; i < of.row().numAttributes; ++i) {
        VomoAttr const attr{of.module, static_cast<U16>(of.row().firstAttribute + i)};
        if (!is(attr.row(), RowKind::owner)) continue;
        owners.push_back(madeByDefault(typeOfReference(attr.module, attr.row().type), owners));
        fields.back()->entity() = owners.back();
    }
    return made(type, addresses(fields));
}

using Op = AttributeOp;
// The operations that an attribute has.
std::set<Op> operationsOf(AttributeRow const& row) {
    RowFacts const* const facts = factsOf(row);
    if (facts == nullptr) {
        ADD_FAILURE() << "unknown flags";
        return {};
    }
    switch (facts->kind) {
    case RowKind::internal:
    case RowKind::literal:
        return {};
    case RowKind::ctor:
    case RowKind::owner:
    case RowKind::raw:
    case RowKind::derived:
    case RowKind::constant:
    case RowKind::readOnly:
        return {Op::get};
    case RowKind::mutates:
    case RowKind::notifying:
    case RowKind::flag:
    case RowKind::view:
    case RowKind::foreign:
    case RowKind::control:
        return {Op::get, Op::set};
    case RowKind::indexed:
        return {Op::get, Op::set, Op::del};
    case RowKind::function:
    case RowKind::givesEntity:
    case RowKind::mutating:
    case RowKind::makesEntity:
    case RowKind::statics:
        return {Op::call};
    case RowKind::readOnlyEntries:
        return {Op::get, Op::count, Op::version, Op::has};
    case RowKind::memberMap:
    case RowKind::valueMap:
    case RowKind::valueSet:
    case RowKind::children:
    case RowKind::entries:
    case RowKind::foreignEntries:
    case RowKind::table:
        return {Op::get, Op::set, Op::del, Op::count, Op::version, Op::has};
    }
    return {};
}

TEST(AllTypes, EveryAttributeAnswersItsOperationsAndNoOthers) {
    // Answered for keys of one kind alone; the others end the process.
    std::set<std::string> const ofSomeKinds{"vlanId", "mcastGroup", "evpnTepIp"};
    VomoAttr const foreign = attrByName(typeByName("Brisk::Multicast::Fib::Route"), "oifBitmap8");
    auto const walk = [&](VomoType type, void* object) {
        auto const& generic = type.module->genericTable[type.index];
        bool const isKey = std::string_view(type.name()).ends_with("RouteKey");
        auto const answer = [&](VomoAttr attr, Op op, void* out, void* a, void* b) {
            try {
                return generic.attributeOp(out, object, attr, op, a, b);
            } catch (RangeException const&) {
                return 0U; // a VLAN of a target that has none
            } catch (TypeException const&) {
                return 0U; // the interface of a tunnel of another kind
            } catch (NoImplementationException const&) {
                return 0U; // left to derived directories
            } catch (std::bad_cast const&) {
                return 0U; // a directory of another kind
            }
        };
        if (type.row().numAttributes < 30) {
            EXPECT_EQ(answer(foreign, Op::get, nullptr, nullptr, nullptr), 2U);
        }
        if (type.row().kind == TypeKind::enumeration) return;
        for (U16 i = 0; i < type.row().numAttributes; ++i) {
            VomoAttr const attr{type.module, static_cast<U16>(type.row().firstAttribute + i)};
            AttributeRow const& row = attr.row();
            SCOPED_TRACE(attr.name());
            std::set<Op> const has = operationsOf(row);
            for (Op const op :
                 {Op::get, Op::set, Op::del, Op::count, Op::version, Op::has, Op::call})
                if (!has.contains(op)) {
                    EXPECT_EQ(answer(attr, op, nullptr, nullptr, nullptr), 1U)
                        << static_cast<U32>(op);
                }
            if (has.empty()) continue;
            Field value(type.module, row.type);
            if (has.contains(Op::call)) {
                if (isKey && ofSomeKinds.contains(attr.name())) continue;
                auto const fields = arguments(type.module, row.parameters);
                auto list = addresses(fields);
                EXPECT_EQ(answer(attr, Op::call, value.get(), list.data(), nullptr), 0U);
                continue;
            }
            Field const key(type.module, row.keyOrValue);
            bool const keyed = row.keyOrValue != 0xFFFF;
            if (is(row, RowKind::table)) { // an entry has its key
                VomoType const entry = typeOfReference(type.module, row.type);
                entry.module->genericTable[entry.index].attributeOp(
                    key.get(), value.get(), attrByName(entry, "key"), Op::get, nullptr, nullptr);
            }
            EXPECT_EQ(answer(attr, Op::get, value.get(), key.get(), nullptr), 0U);
            if (is(row, RowKind::foreignEntries)) { // null takes a member out
                VomoType const entry = typeOfReference(type.module, row.type);
                auto* const made = static_cast<Entity*>(
                    entry.module->genericTable[entry.index].newEntityForDir("other", nullptr));
                *static_cast<Ptr<Entity>*>(value.get()) = Ptr<Entity>(made);
                made->referencesDec(); // the factory's
            }
            if (has.contains(Op::count)) {
                U32 count = 7, before = 0, version = 0, later = 0;
                bool present = true; // what a set takes
                void* const member = is(row, RowKind::valueSet) ? &present : value.get();
                EXPECT_EQ(answer(attr, Op::count, &before, nullptr, nullptr), 0U);
                EXPECT_EQ(answer(attr, Op::version, &version, nullptr, nullptr), 0U);
                if (!has.contains(Op::set)) continue;
                if (is(row, RowKind::entries))
                    value.entity() = made(typeOfReference(type.module, row.type), {key.get()});
                EXPECT_EQ(answer(attr, Op::set, nullptr, key.get(), member), 0U);
                EXPECT_EQ(answer(attr, Op::version, &later, nullptr, nullptr), 0U);
                EXPECT_NE(later, version);
                present = false;
                EXPECT_EQ(answer(attr, Op::has, &present, key.get(), nullptr), 0U);
                EXPECT_TRUE(present);
                EXPECT_EQ(answer(attr, Op::del, nullptr, key.get(), nullptr), 0U);
                EXPECT_EQ(answer(attr, Op::count, &count, nullptr, nullptr), 0U);
                EXPECT_EQ(count, before);
            } else if (has.contains(Op::set)) {
                EXPECT_EQ(keyed ? answer(attr, Op::set, nullptr, key.get(), value.get())
                                : answer(attr, Op::set, nullptr, value.get(), nullptr),
                          0U);
                if (has.contains(Op::del)) {
                    EXPECT_EQ(answer(attr, Op::del, nullptr, key.get(), nullptr), 0U);
                }
            }
        }
    };
    int entities = 0;
    for (VomoModule const* module : modules())
        for (U16 i = 0; i < module->numTypes; ++i) {
            VomoType const type{module, i};
            SCOPED_TRACE(type.name());
            auto const& generic = module->genericTable[i];
            if (!type.isPolymorphic()) {
                walk(type, Object(type).get());
                continue;
            }
            if (generic.constructFromCtorArgs == nullptr) continue; // a table's control
            ++entities;
            std::vector<Ptr<Entity>> owners;
            Ptr<Entity> const entity = madeByDefault(type, owners);
            EXPECT_EQ(entity->fwkType(), type);
            for (VomoType of = type; !of.isNull(); of = of.base()) walk(of, entity.ptr());
        }
    EXPECT_GE(entities, 5);
}

TEST(Generic, RouteByName) {
    VomoType const type = typeByName("Brisk::Multicast::Fib::Route");
    Object route(type);
    U32 version = 9;
    EXPECT_EQ(route.op(nullptr, attrByName(type, "version"), AttributeOp::set, &version), 0U);
    bool flag = true;
    EXPECT_EQ(route.op(nullptr, attrByName(type, "iifPmsi"), AttributeOp::set, &flag), 0U);
    Brisk::Multicast::Fib::OifIndex index(70), max(70), next;
    EXPECT_EQ(route.op(nullptr, attrByName(type, "oif"), AttributeOp::set, &index, &flag), 0U);
    EXPECT_EQ(route.op(nullptr, attrByName(type, "maxOifIndex"), AttributeOp::set, &max), 0U);
    Brisk::Multicast::Fib::OifIndex const none;
    void* const args[] = {const_cast<Brisk::Multicast::Fib::OifIndex*>(&none)};
    EXPECT_EQ(
        route.op(&next, attrByName(type, "nextOif"), AttributeOp::call, const_cast<void**>(args)),
        0U);
    EXPECT_EQ(next.value(), 70);
    auto const& typed = *static_cast<Brisk::Multicast::Fib::Route const*>(route.get());
    EXPECT_EQ(typed.version(), 9U);
    EXPECT_TRUE(typed.iifPmsi());
    EXPECT_EQ(typed.oifBitmap2(), 1U << 6);
    // A route has "and" and "xor", and no hash.
    Object difference(type);
    EXPECT_EQ(route.op(difference.get(), {}, AttributeOp::bitXor, route.get()), 0U);
    EXPECT_EQ(route.op(difference.get(), {}, AttributeOp::bitAnd, route.get()), 0U);
    EXPECT_EQ(route.op(difference.get(), {}, AttributeOp::bitOr, route.get()), 1U);
    EXPECT_THROW(route.methods().hash(route.get(), type), UnhashableException);
}

TEST(Generic, WrappersFlagSetsAndBases) {
    VomoType const rpa = typeByName("Routing::Multicast::Fib::RpaIndex");
    VomoType const bitIndex = typeByName("BitMapper::BitIndex");
    EXPECT_TRUE(VomoTypeBase::isDerived(rpa, bitIndex));
    EXPECT_FALSE(VomoTypeBase::isDerived(bitIndex, rpa));
    Object object(rpa);
    U16 value = 1;
    EXPECT_EQ(object.op(&value, attrByName(rpa, "value"), AttributeOp::get),
              0U); // the base answers
    EXPECT_EQ(value, 0);
    EXPECT_EQ(object.op(&value, attrByName(rpa, "null"), AttributeOp::get), 0U);
    EXPECT_EQ(value, 65535);
    EXPECT_EQ(object.methods().voidPtrIs(object.get(), rpa, bitIndex), object.get());
    EXPECT_THROW(object.methods().voidPtrIs(object.get(), bitIndex, rpa), TypeException);

    VomoType const flags = typeByName("Routing::Multicast::Fib::IntfFlags");
    Object set(flags), result(flags);
    bool on = true;
    EXPECT_EQ(set.op(nullptr, attrByName(flags, "frr"), AttributeOp::set, &on), 0U);
    U8 raw = 0;
    EXPECT_EQ(set.op(&raw, attrByName(flags, "value"), AttributeOp::get), 0U);
    EXPECT_EQ(raw, 32);
    EXPECT_EQ(set.op(result.get(), {}, AttributeOp::complement), 0U);
    EXPECT_EQ(*static_cast<U8*>(result.get()), 31);

    VomoType const oif = typeByName("Brisk::Multicast::Fib::OifIndex");
    Object index(oif);
    U16 tooBig = 513, good = 512;
    void* args[] = {&tooBig};
    EXPECT_THROW(index.generic().constructFromCtorArgs(index.get(), args), RangeException);
    args[0] = &good;
    index.generic().constructFromCtorArgs(index.get(), args);
    EXPECT_EQ(index.text(), "512");
    object.generic().constructFromCtorArgs(object.get(), args); // a base's argument
    EXPECT_EQ(object.text(), "512");
}

} // namespace
