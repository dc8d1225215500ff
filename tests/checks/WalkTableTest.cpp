// Makes tables of real types and hands them to a walker that knows nothing but the format notes
// (walk_table.py): every entry must come out of the files, byte for byte.
#include "support/TempBase.h"

#include "Mroute/Tables.h"

#include <cstdlib>
#include <fmt/format.h>
#include <fstream>
#include <gtest/gtest.h>
#include <random>

namespace {

template <class Table>
std::string hexOf(typename Table::Value const& value) {
    unsigned char bytes[sizeof value];
    std::memcpy(bytes, static_cast<void const*>(&value), sizeof value);
    std::string text;
    for (unsigned char const byte : bytes) text += fmt::format("{:02x}", byte);
    return text;
}

// Writes `count` values, removes every third, overwrites some, and has the result walked.
template <class Table, class Make>
void walkedByTheNotes(char const* name, U32 count, Make make) {
    Support::TempBase const base;
    auto trace = Dunlin::Platform::getDebugHandler("walk", false);
    typename Table::Writer writer(*trace, name, Brisk::MapDescriptor(100'000), {}, Table::typeName,
                                  {});
    ASSERT_TRUE(writer.initialize("test"));
    typename Table::Value old;
    for (U32 i = 0; i < count; ++i) writer.write(make(i, 1), true);
    for (U32 i = 0; i < count; i += 3) writer.remove(make(i, 1).fwkKey(), old);
    for (U32 i = 1; i < count; i += 3) writer.write(make(i, 2), true);
    std::string const expected = base.path() + "/expected";
    {
        std::ofstream out(expected);
        for (U32 i = 0; i < count; ++i)
            if (i % 3) out << hexOf<Table>(make(i, i % 3 == 1 ? 2 : 1)) << '\n';
    }
    std::string const command = fmt::format("{} -B {}/walk_table.py {} {}", PYTHON, CHECKS_DIR,
                                            writer.rootPath().text(), expected);
    EXPECT_EQ(std::system(command.c_str()), 0) << command;
    // The walker can fail: one entry more than it was told of.
    writer.write(make(count + 1, 1), true);
    EXPECT_NE(std::system((command + " > /dev/null").c_str()), 0);
}

Routing::Multicast::Fib::IpGenRouteKey routeKey(U32 i) {
    using namespace Kelpie;
    return {Prefix(IpAddr::fromWord(0x0a000000 + i * 7), i % 5 ? 32 : 0),
            Prefix(IpAddr::fromWord(0xe8000000 + i), 32)};
}

TEST(FormatNotes, AreEnoughToWalkRoutes) {
    using Table = Mroute::RouteTable;
    walkedByTheNotes<Table>("walk/route", 5000, [](U32 i, U32 version) {
        Table::Value route(routeKey(i));
        route.iifIs(Kelpie::IntfId(U64{i} + 1));
        route.versionIs(version);
        return route;
    });
}

TEST(FormatNotes, AreEnoughToWalkOutgoingInterfaces) {
    using Table = Mroute::OifIndexIntfTable;
    walkedByTheNotes<Table>("walk/oif", 500, [](U32 i, U32 version) {
        Table::Value value(Brisk::Multicast::Fib::OifIndex(static_cast<U16>(i)),
                           Kelpie::IntfId(U64{i} + 1));
        value.refCountIs(version);
        return value;
    });
}

} // namespace
