// The module records, read back as raw memory from the built library by their layout alone.
#include <dlfcn.h>
#include <elf.h>
#include <link.h>

#include <cstring>
#include <sstream>

#include "Mroute/MfibTypes.h"
#include "Vomo/GenericIf.h"

namespace {

// In the order in which they register.
char const* const own[] = {
    "_BitMapperTypes_f5722ab7f2af9957_vomoModule",
    "_McastGroup_5302ff4251cd4c04_vomoModule",
    "_McastTunnelTypes_30f62c28a09469df_vomoModule",
    "_McastVplsPwTypes_46bcb70d7f81f4f2_vomoModule",
    "_McastVxlanTypes_639bdfcf9008dd06_vomoModule",
    "_Mfib_81f0b1a1b6aa3812_vomoModule",
    "_MfibBriskTypes_aaea5100197a8ed6_vomoModule",
    "_MfibTypes_bf6f8d1799ee26b7_vomoModule",
    "_MrouteLibAttr_9a81120073b9f37c_vomoModule",
    "_PortVlan_adcde2bd179a1d29_vomoModule",
    "_PortVlanSet_a48c9f8d500e2295_vomoModule",
    "_PrefixMroute_11d6cdb3e6c20fbe_vomoModule",
};
// Of the platform: what those refer to.
char const* const outside[] = {
    "_IntfId_638f3da9b062f5a9_vomoModule",      "_IpGenAddr_115cb65b3d99135e_vomoModule",
    "_IpGenPrefix_d4a8d99ed5f09fc7_vomoModule", "_Ip_df105a5f51aead53_vomoModule",
    "_EthAddr_5ea519cab6df4342_vomoModule",     "_VlanId_c2b91fe4f92f5433_vomoModule",
    "_VrfName_24b4c36c4490e7d8_vomoModule",     "_TunnelBasicTypes_868265ad3920b5fa_vomoModule",
    "_MountInfo_c13df29ad60eeca0_vomoModule",   "_CollectionControl_9cdb198bb6e6436b_vomoModule",
    "_Intf_ddf23f8cba610f0b_vomoModule",        "_IntfBoundaryStatus_6d8ffdafd8f4e068_vomoModule",
};

// Makes the linker keep the library.
[[maybe_unused]] auto* const volatile linked = &Routing::Multicast::Fib::mountPath;

U64 word(void const* at, std::size_t index) {
    U64 v;
    std::memcpy(&v, static_cast<char const*>(at) + 8 * index, 8);
    return v;
}
U32 number(U8 const* at, unsigned bytes) {
    U32 v = 0;
    for (unsigned i = bytes; i-- > 0;) v = v << 8 | at[i];
    return v;
}

// A record, read as memory.
struct Raw {
    explicit Raw(void const* from)
        : record(from), types(at(0)), attributes(at(1)), parameters(at(2)), typeNames(text(3)),
          attributeNames(text(4)), references(at(5)), generic(at(6)), numTypes(word(from, 7)) {}
    U8 const* at(std::size_t w) const { return reinterpret_cast<U8 const*>(word(record, w)); }
    char const* text(std::size_t w) const { return reinterpret_cast<char const*>(word(record, w)); }
    std::string nameOf(U8 const* attribute) const {
        return attributeNames + (number(attribute + 7, 3) >> 4);
    }
    // The name behind a reference index or a builtin's code.
    std::string meaning(unsigned reference) const {
        if (reference >= 0x8000) return std::to_string(0x10000 - reference);
        Raw const other(reinterpret_cast<void const*>(word(references, 2 * reference)));
        U64 const index = word(references, 2 * reference + 1);
        EXPECT_LT(index, other.numTypes);
        return other.typeNames + number(other.types + 16 * index + 2, 2) / 8;
    }
    // The parameters from record `first` on, as "name:type name:type".
    std::string list(unsigned first) const {
        std::string result;
        for (U8 const* p = parameters + 2 + 6 * first; number(p, 2) != 0; p += 6) {
            if (!result.empty()) result += ' ';
            result +=
                fmt::format("{}:{}", attributeNames + number(p, 2), meaning(number(p + 2, 2)));
            EXPECT_EQ(number(p + 4, 2), 0U);
        }
        return result;
    }

    void const* record;
    U8 const *types, *attributes, *parameters;
    char const *typeNames, *attributeNames;
    U8 const *references, *generic;
    U64 numTypes;
};

TEST(Record, LayoutOfEveryModule) {
    std::set<void const*> modules;
    for (auto* module : Vomo::modules()) modules.insert(module);
    std::vector<char const*> symbols(std::begin(own), std::end(own));
    symbols.insert(symbols.end(), std::begin(outside), std::end(outside));
    for (char const* symbol : symbols) {
        SCOPED_TRACE(symbol);
        void const* const record = ::dlsym(RTLD_DEFAULT, symbol);
        ASSERT_NE(record, nullptr);
        EXPECT_TRUE(modules.contains(record));
        Raw const raw(record);
        ASSERT_LT(raw.numTypes, 30U);
        EXPECT_EQ(raw.list(0), "");
        EXPECT_EQ(number(raw.parameters, 2), 0U);
        std::set<std::string> used{""};
        std::string lastType;
        unsigned nextAttribute = 0;
        for (U64 t = 0; t < raw.numTypes; ++t) {
            U8 const* const row = raw.types + 16 * t;
            unsigned const kind = row[0], nameWord = number(row + 2, 2), size = number(row + 4, 4);
            std::string const name = raw.typeNames + nameWord / 8;
            SCOPED_TRACE(name);
            EXPECT_TRUE(kind == 0x21 || kind == 0x25 || kind == 0x29 || kind == 0x60);
            EXPECT_EQ(nameWord % 8, 0U);
            EXPECT_LT(lastType, name);
            lastType = name;
            EXPECT_GT(size >> 11, 0U);
            EXPECT_EQ((size >> 11) % (size >> 7 & 15), 0U);
            EXPECT_EQ(size & 127, 0U);
            unsigned const base = number(row + 8, 2);
            if (kind == 0x25) {
                EXPECT_EQ(base, (size >> 11) == 1 ? 0x10000U - 5 : 0x10000U - 9);
            } else if (kind == 0x60 && base >= 0x8000) {
                EXPECT_EQ(base, 0x10000U - 3);
            } else if (base != 0xffff) {
                EXPECT_NE(raw.meaning(base), "");
            }
            EXPECT_EQ(number(row + 12, 2), nextAttribute);
            unsigned const count = number(row + 14, 2);
            U32 last = 0;
            // A directory makes by name what needs no more than that.
            bool const isNamed =
                word(raw.generic + 48 * t, 0) != 0 ||
                (kind == 0x60 && raw.list(number(row + 10, 2)).starts_with("name:17 "));
            // What is no attribute of its own: a name; the number of a value derived from a number.
            std::string ctor = isNamed                          ? "name:17"
                               : kind == 0x21 && base != 0xffff ? "value:7"
                                                                : "";
            if (!ctor.empty()) used.insert(ctor.substr(0, ctor.find(':')));
            bool hasCollection = false;
            for (unsigned a = 0; a < count; ++a) {
                U8 const* const attribute = raw.attributes + 20 * (nextAttribute + a);
                U32 const id = number(attribute, 4), flags = number(attribute + 4, 3);
                EXPECT_GT(id, last);
                last = id;
                EXPECT_LE(number(attribute + 7, 3) & 15, 1U);
                std::string const attributeName = raw.nameOf(attribute);
                EXPECT_NE(attributeName, "");
                used.insert(attributeName);
                std::string const type = raw.meaning(number(attribute + 10, 2));
                hasCollection |= flags == 0x019c01;
                if (flags == 0x012c00 || flags == 0x052c20) // or an owner
                    ctor += fmt::format("{}{}:{}", ctor.empty() ? "" : " ", attributeName, type);
                if (flags == 0x002888) { // a literal's type is its enum
                    EXPECT_EQ(type, name);
                } else if (number(attribute + 12, 2) != 0xffff) {
                    EXPECT_NE(raw.meaning(number(attribute + 12, 2)), "");
                }
                if (U32 const key = number(attribute + 16, 4))
                    used.insert(raw.attributeNames + key);
                std::istringstream names(raw.list(number(attribute + 14, 2)));
                for (std::string p; names >> p;) used.insert(p.substr(0, p.find(':')));
            }
            nextAttribute += count;
            // What makes one is its constructor attributes.
            EXPECT_EQ(raw.list(number(row + 10, 2)), ctor);
            U8 const* const generic = raw.generic + 48 * t;
            EXPECT_NE(word(generic, 2), 0U);
            EXPECT_EQ(word(generic, 3) != 0, kind != 0x25 && !name.ends_with("CollectionControl"));
            EXPECT_NE(word(generic, 4), 0U);
            EXPECT_EQ(word(generic, 1) != 0, kind == 0x60);
            if (kind != 0x60) {
                EXPECT_EQ(word(generic, 0), 0U);
                EXPECT_EQ(word(generic, 5) != 0, hasCollection);
            } else { // ten functions, two null words, the iterator's five
                auto const* stream = reinterpret_cast<void const*>(word(generic, 1));
                for (std::size_t w : std::initializer_list<std::size_t>{0, 1, 2, 3, 4, 6, 7, 8, 9})
                    EXPECT_NE(word(stream, w), 0U);
                for (std::size_t w : std::initializer_list<std::size_t>{10, 11, 17, 18, 19})
                    EXPECT_EQ(word(stream, w), 0U);
                for (std::size_t w : std::initializer_list<std::size_t>{12, 13, 14, 15, 16})
                    EXPECT_EQ(word(stream, w) != 0, word(generic, 5) != 0);
            }
            // The functions of its kind: two null words in the middle.
            auto const* methods = reinterpret_cast<void const*>(word(generic, 2));
            for (std::size_t w = 0; w < 8; ++w) EXPECT_EQ(word(methods, w) == 0, w == 4 || w == 5);
        }
        // Sorted, each once, none more than are used.
        char const* next = raw.attributeNames;
        for (std::string const& name : used) {
            EXPECT_EQ(next, name);
            next += std::strlen(next) + 1;
        }
    }
}

// What a type is to the outside: kind, type flags, size, alignment, base, and its attributes as
// number, flag bytes, stored, name, type and key.
std::string described(Raw const& raw, U64 t) {
    U8 const* const row = raw.types + 16 * t;
    U32 const size = number(row + 4, 4), base = number(row + 8, 2);
    std::ostringstream out;
    out << raw.typeNames + number(row + 2, 2) / 8 << std::hex << " " << +row[0] << " " << +row[1]
        << std::dec;
    if (row[0] != 0x60) out << " " << (size >> 11) << "/" << (size >> 7 & 15);
    if (base != 0xffff) out << " " << raw.meaning(base);
    unsigned const first = number(row + 12, 2);
    for (unsigned a = first; a < first + number(row + 14, 2); ++a) {
        U8 const* const attribute = raw.attributes + 20 * a;
        out << "; " << number(attribute, 4) << " "
            << fmt::format("{:02x}{:02x}{:02x}", attribute[4], attribute[5], attribute[6])
            << ((attribute[7] & 15) != 0 ? " *" : " ") << raw.nameOf(attribute);
        if (row[0] == 0x25) {
            out << " " << number(attribute + 12, 2);
            continue;
        }
        out << " " << raw.meaning(number(attribute + 10, 2));
        if (U32 const key = number(attribute + 12, 2); key != 0xffff)
            out << "[" << raw.meaning(key);
        if (U32 const key = number(attribute + 16, 4)) out << " " << raw.attributeNames + key;
        if (std::string const list = raw.list(number(attribute + 14, 2)); !list.empty())
            out << "(" << list << ")";
    }
    return out.str();
}

// Numbers, names, flags and sizes are part of the format: they stay for ever.
TEST(Record, TypesOfThreeModulesStayAsTheyAre) {
    char const* const expected[] = {
        "Multicast::Group::Config 60 4 3; 258 21dd01 *request "
        "Multicast::Group::Request[Multicast::Group::GroupKey key",
        "Multicast::Group::GroupKey 21 0 4/2; 2 002c01 *kind 7; 3 002c01 *index 7",
        "Multicast::Group::McastGroupKind 25 0 4/4 9; 2 882800 mcastGroupKindTapAgg 19; 3 "
        "882800 mcastGroupKindTapAggLimitRange 20; 4 882800 mcastGroupKindMpls 21; 5 882800 "
        "mcastGroupKindMirror 22; 6 882800 mcastGroupKindSflowAccel 23; 7 882800 "
        "mcastGroupKindNexthopGroup 24",
        "Multicast::Group::Request 60 4 3; 258 002c01 *key Multicast::Group::GroupKey; 259 "
        "01dc01 *portVlan 13[MrouteLib::PortVlan; 260 00dc01 *requestId 9; 261 00dc01 *toCpu "
        "13; 262 00dc01 *featureFlag 9",
        "Multicast::Group::Response 60 0 3; 258 002c01 *key Multicast::Group::GroupKey; 259 "
        "00dc01 *success 13; 260 00dc01 *multicastId 9; 261 00dc01 *requestId 9; 262 00dc01 "
        "*responseId 9",
        "Multicast::Group::Status 60 4 3; 258 21dd01 *response "
        "Multicast::Group::Response[Multicast::Group::GroupKey key",
        "Routing::Multicast::Fib::IifFlags 29 0 1/1; 2 001c00 *noRpf 13; 3 000801 value 5; 4 "
        "082800 noRpf_ Routing::Multicast::Fib::IifFlags",
        "Routing::Multicast::Fib::IntfFlags 29 0 1/1; 2 001c00 *forward 13; 3 001c00 *accept "
        "13; 4 001c00 *notify 13; 5 001c00 *noRpf 13; 6 001c00 *fastdrop 13; 7 001c00 *frr "
        "13; 8 000801 value 5; 9 082800 forward_ Routing::Multicast::Fib::IntfFlags; 10 "
        "082800 accept_ Routing::Multicast::Fib::IntfFlags; 11 082800 notify_ "
        "Routing::Multicast::Fib::IntfFlags; 12 082800 noRpf_ "
        "Routing::Multicast::Fib::IntfFlags; 13 082800 fastdrop_ "
        "Routing::Multicast::Fib::IntfFlags; 14 082800 frr_ "
        "Routing::Multicast::Fib::IntfFlags",
        "Routing::Multicast::Fib::IpGenRouteKey 21 4 48/4; 2 009c01 *s Kelpie::IpGenPrefix; 3 "
        "009c01 *g Kelpie::IpGenPrefix; 4 002800 hash 9; 5 100800 pretty 17; 6 100800 kind "
        "Routing::Multicast::Fib::RouteKeyType; 7 100800 vlanId Bridging::VlanId; 8 100800 "
        "ethAddr Kelpie::EthAddr; 9 100800 mcastGroup Multicast::Group::GroupKey; 10 100800 "
        "evpnTepIp Kelpie::IpGenAddr; 11 180800 makeRouteKeyVlanFloodset "
        "Routing::Multicast::Fib::IpGenRouteKey(vlanId:Bridging::VlanId); 12 180800 "
        "makeRouteKeyMulticastFloodset "
        "Routing::Multicast::Fib::IpGenRouteKey(vlanId:Bridging::VlanId); 13 180800 "
        "makeRouteKeyEthGroup Routing::Multicast::Fib::IpGenRouteKey(vlanId:Bridging::VlanId "
        "ethAddr:Kelpie::EthAddr); 14 180800 makeRouteKeyMcastGroup "
        "Routing::Multicast::Fib::IpGenRouteKey(mcastGroup:Multicast::Group::GroupKey); 15 "
        "180800 makeRouteKeyVxlanCoreSideFloodset "
        "Routing::Multicast::Fib::IpGenRouteKey(vlanId:Bridging::VlanId); 16 180800 "
        "makeRouteKeyEvpnMultihomeFloodset "
        "Routing::Multicast::Fib::IpGenRouteKey(vlanId:Bridging::VlanId "
        "evpnTepIp:Kelpie::IpGenAddr); 17 180800 makeRouteKeyMulticastV6Floodset "
        "Routing::Multicast::Fib::IpGenRouteKey(vlanId:Bridging::VlanId); 18 180800 "
        "makeRouteKeyMroute Routing::Multicast::Fib::IpGenRouteKey(s:Kelpie::Prefix "
        "g:Kelpie::Prefix)",
        "Routing::Multicast::Fib::RouteFlags 29 0 1/1; 2 001c00 *valid 13; 3 001c00 *toCpu "
        "13; 4 001c00 *iifRegister 13; 5 001c00 *oifRegister 13; 6 001c00 *programmable 13; 7 "
        "001c00 *skipSoftwareProgramming 13; 8 001c00 *iifPmsi 13; 9 001c00 *virtualRoute 13; "
        "10 000801 value 5; 11 082800 valid_ Routing::Multicast::Fib::RouteFlags; 12 082800 "
        "toCpu_ Routing::Multicast::Fib::RouteFlags; 13 082800 iifRegister_ "
        "Routing::Multicast::Fib::RouteFlags; 14 082800 oifRegister_ "
        "Routing::Multicast::Fib::RouteFlags; 15 082800 programmable_ "
        "Routing::Multicast::Fib::RouteFlags; 16 082800 skipSoftwareProgramming_ "
        "Routing::Multicast::Fib::RouteFlags; 17 082800 iifPmsi_ "
        "Routing::Multicast::Fib::RouteFlags; 18 082800 virtualRoute_ "
        "Routing::Multicast::Fib::RouteFlags",
        "Routing::Multicast::Fib::RouteKey 21 0 16/4; 2 009c01 *s Kelpie::Prefix; 3 009c01 *g "
        "Kelpie::Prefix; 4 100800 hash 9; 5 100800 pretty 17; 6 100800 kind "
        "Routing::Multicast::Fib::RouteKeyType; 7 100800 vlanId Bridging::VlanId; 8 100800 "
        "ethAddr Kelpie::EthAddr; 9 100800 mcastGroup Multicast::Group::GroupKey; 10 100800 "
        "evpnTepIp Kelpie::IpGenAddr",
        "Routing::Multicast::Fib::RouteKeyType 25 0 4/4 9; 2 882800 unknownRouteKeyType 0; 3 "
        "882800 vlanFloodset 1; 4 882800 multicastFloodset 2; 5 882800 ethGroup 3; 6 882800 "
        "mcastGroup 4; 7 882800 vxlanCoreSideFloodset 5; 8 882800 evpnMultihomeFloodset 6; 9 "
        "882800 multicastV6Floodset 7; 10 882800 mroute 8",
        "Routing::Multicast::Fib::RoutePriority 21 8 1/1; 2 002c01 *value 5; 3 002800 hash 9; "
        "4 082800 null 5; 5 082800 min 5; 6 082800 max 5; 7 082800 pimPriority 5; 8 082800 "
        "staticPriority 5; 9 082800 mcsPriority 5",
        "Routing::Multicast::Fib::RpaIndex 21 8 2/2 BitMapper::BitIndex; 130 082800 "
        "rpaDefault 7",
        "MrouteLib::OutLif 21 8 4/4; 2 009c01 *value 9; 3 082800 null 9; 4 002800 hash 9",
        "MrouteLib::PortProperty 21 0 4/4; 2 009c01 *value 9; 3 001800 isMlagPort 13; 4 "
        "001800 isTagOnEgress 13; 5 001800 isNonDfPort 13; 6 001800 isMacSecViaLoopback 13; 7 "
        "001800 logicalPortId 7; 8 001800 sharedPort 13; 9 001800 hash 9",
        "MrouteLib::PortPropertyMask 21 0 1/1; 2 009c01 *mask 5; 3 001800 mlagPort 13; 4 "
        "001800 tagOnEgress 13; 5 001800 nonDfPort 13; 6 001800 macSecViaLoopback 13; 7 "
        "001800 logicalPortId 13",
        "MrouteLib::PortVlan 21 0 24/8; 2 009c01 *port Kelpie::IntfId; 3 001800 vlanId "
        "Bridging::VlanId; 4 009c01 *outLif MrouteLib::OutLif; 5 009c01 *overlayVlanId "
        "Bridging::VlanIdOrNone; 6 009c01 *portProperty MrouteLib::PortProperty; 7 100800 "
        "isOutLif 13",
    };
    std::vector<std::string> found;
    for (char const* symbol : {own[1], own[7], own[9]}) {
        Raw const raw(::dlsym(RTLD_DEFAULT, symbol));
        for (U64 t = 0; t < raw.numTypes; ++t) found.push_back(described(raw, t));
    }
    ASSERT_EQ(found.size(), std::size(expected));
    for (std::size_t i = 0; i < found.size(); ++i) EXPECT_EQ(found[i], expected[i]);
}

TEST(Record, ModulesRegisterInOrderOfTheirSources) {
    std::vector<std::string> found;
    for (auto* module : Vomo::modules()) {
        Dl_info info;
        if (::dladdr1(module, &info, nullptr, 0) != 0 && info.dli_sname != nullptr)
            for (std::string const symbol : own)
                if (info.dli_sname == symbol) found.push_back(symbol);
    }
    EXPECT_EQ(found, std::vector<std::string>(std::begin(own), std::end(own)));
}

// The tables lie where the loader forbids writing: in a segment that is not writable, or in the
// part that is made read-only after relocation.
TEST(Record, TablesCannotBeWritten) {
    std::vector<std::pair<U64, U64>> readOnly;
    ::dl_iterate_phdr(
        [](dl_phdr_info* info, std::size_t, void* data) {
            auto& ranges = *static_cast<std::vector<std::pair<U64, U64>>*>(data);
            for (int i = 0; i < info->dlpi_phnum; ++i) {
                auto const& header = info->dlpi_phdr[i];
                if ((header.p_type == PT_LOAD && !(header.p_flags & PF_W)) ||
                    header.p_type == PT_GNU_RELRO)
                    ranges.emplace_back(info->dlpi_addr + header.p_vaddr,
                                        info->dlpi_addr + header.p_vaddr + header.p_memsz);
            }
            return 0;
        },
        &readOnly);
    auto const covered = [&](U64 address) {
        return std::any_of(readOnly.begin(), readOnly.end(),
                           [&](auto const& r) { return r.first <= address && address < r.second; });
    };
    for (auto* module : Vomo::modules()) {
        EXPECT_TRUE(covered(reinterpret_cast<U64>(module)));
        for (std::size_t w = 0; w < 7; ++w) EXPECT_TRUE(covered(word(module, w))) << w;
    }
}

} // namespace
