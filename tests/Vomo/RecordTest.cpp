// The module records, read back as raw memory from the built library by their layout alone.
#include <dlfcn.h>
#include <elf.h>
#include <link.h>

#include <cstring>
#include <fstream>

#include "Mroute/MfibTypes.h"
#include "Vomo/GenericIf.h"

namespace {

struct Symbol {
    char const* name;
    char const* library;
};
Symbol const own[] = {
    {"_BitMapperTypes_f5722ab7f2af9957_vomoModule", ""},
    {"_McastGroup_5302ff4251cd4c04_vomoModule", ""},
    {"_Mfib_81f0b1a1b6aa3812_vomoModule", ""},
    {"_MfibBriskTypes_aaea5100197a8ed6_vomoModule", ""},
    {"_MfibTypes_bf6f8d1799ee26b7_vomoModule", ""},
    {"_PortVlan_adcde2bd179a1d29_vomoModule", ""},
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

TEST(Record, LayoutOfEveryModule) {
    std::set<void const*> modules;
    for (auto* module : Vomo::modules()) modules.insert(module);
    for (auto const& symbol : own) {
        SCOPED_TRACE(symbol.name);
        void const* const record = ::dlsym(RTLD_DEFAULT, symbol.name);
        ASSERT_NE(record, nullptr);
        EXPECT_TRUE(modules.contains(record));
        auto const* types = reinterpret_cast<U8 const*>(word(record, 0));
        auto const* attributes = reinterpret_cast<U8 const*>(word(record, 1));
        auto const* parameters = reinterpret_cast<U8 const*>(word(record, 2));
        auto const* typeNames = reinterpret_cast<char const*>(word(record, 3));
        auto const* attributeNames = reinterpret_cast<char const*>(word(record, 4));
        auto const* references = reinterpret_cast<void const*>(word(record, 5));
        auto const* generic = reinterpret_cast<void const*>(word(record, 6));
        U64 const numTypes = word(record, 7);
        ASSERT_GT(numTypes, 0U);
        ASSERT_LT(numTypes, 30U);
        EXPECT_EQ(number(parameters, 2), 0U);
        for (unsigned i = 0; i < 3; ++i) EXPECT_EQ(number(parameters + 2 + 2 * i, 2), 0U);
        EXPECT_EQ(attributeNames[0], '\0');
        std::string lastType;
        unsigned nextAttribute = 0;
        for (U64 t = 0; t < numTypes; ++t) {
            U8 const* const row = types + 16 * t;
            unsigned const kind = row[0], nameWord = number(row + 2, 2), size = number(row + 4, 4);
            std::string const name = typeNames + nameWord / 8;
            SCOPED_TRACE(name);
            EXPECT_TRUE(kind == 0x21 || kind == 0x25 || kind == 0x29 || kind == 0x60);
            EXPECT_EQ(nameWord % 8, 0U);
            EXPECT_LT(lastType, name);
            lastType = name;
            EXPECT_GT(size >> 11, 0U);
            EXPECT_EQ((size >> 11) % (size >> 7 & 15), 0U);
            EXPECT_EQ(number(row + 12, 2), nextAttribute);
            unsigned const count = number(row + 14, 2);
            U32 last = 0;
            for (unsigned a = 0; a < count; ++a) {
                U8 const* const attribute = attributes + 20 * (nextAttribute + a);
                U32 const id = number(attribute, 4);
                EXPECT_GT(id, last);
                last = id;
                U32 const nameField = number(attribute + 7, 3);
                EXPECT_LE(nameField & 15, 1U);
                EXPECT_GT(std::strlen(attributeNames + (nameField >> 4)), 0U);
                unsigned const type = number(attribute + 10, 2);
                if (type < 0x8000) {
                    auto const* module = reinterpret_cast<void const*>(word(references, 2 * type));
                    EXPECT_TRUE(modules.contains(module));
                    EXPECT_LT(word(references, 2 * type + 1), word(module, 7));
                }
            }
            nextAttribute += count;
            EXPECT_NE(word(generic, 6 * t + 4), 0U); // genericIfAttributeOp
            // Only an entity that is made by name has newEntityForDir; only entities have a stream
            // table.
            EXPECT_EQ(word(generic, 6 * t + 1) != 0, kind == 0x60);
            if (kind != 0x60) {
                EXPECT_EQ(word(generic, 6 * t), 0U);
            }
        }
    }
}

TEST(Record, BytesOfOneTypeAreAsTold) {
    void const* const record = ::dlsym(RTLD_DEFAULT, "_McastGroup_5302ff4251cd4c04_vomoModule");
    auto const* names = reinterpret_cast<char const*>(word(record, 3));
    U8 const* row = reinterpret_cast<U8 const*>(word(record, 0));
    while (names + number(row + 2, 2) / 8 != std::string("Multicast::Group::GroupKey")) row += 16;
    EXPECT_EQ(row[0], 0x21);
    EXPECT_EQ(row[1], 0);
    EXPECT_EQ(number(row + 4, 4), 4U << 11 | 2U << 7);
    EXPECT_EQ(number(row + 8, 2), 0xffffU);
    EXPECT_EQ(number(row + 14, 2), 2U);
    U8 const* const kind = reinterpret_cast<U8 const*>(word(record, 1)) + 20 * number(row + 12, 2);
    auto const* attributeNames = reinterpret_cast<char const*>(word(record, 4));
    EXPECT_EQ(number(kind, 4), 2U);
    EXPECT_EQ(number(kind + 4, 3), 0x012c00U); // 00 2C 01
    EXPECT_STREQ(attributeNames + (number(kind + 7, 3) >> 4), "kind");
    EXPECT_EQ(number(kind + 7, 3) & 15, 1U);
    EXPECT_EQ(number(kind + 10, 2), 0x10000U - 7);
    EXPECT_EQ(number(kind + 12, 2), 0xffffU);
    // Constructor parameters: kind, index, then a record of zeros.
    auto const* parameters = reinterpret_cast<U8 const*>(word(record, 2));
    U8 const* const first = parameters + 2 + 6 * number(row + 10, 2);
    EXPECT_STREQ(attributeNames + number(first, 2), "kind");
    EXPECT_STREQ(attributeNames + number(first + 6, 2), "index");
    EXPECT_EQ(number(first + 12, 2), 0U);
}

TEST(Record, ModulesRegisterInOrderOfTheirSources) {
    std::vector<std::string> found;
    for (auto* module : Vomo::modules()) {
        Dl_info info;
        if (::dladdr1(module, &info, nullptr, 0) != 0 && info.dli_sname != nullptr)
            for (auto const& symbol : own)
                if (info.dli_sname == std::string(symbol.name)) found.push_back(symbol.name);
    }
    std::vector<std::string> expected;
    for (auto const& symbol : own) expected.push_back(symbol.name);
    EXPECT_EQ(found, expected);
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
