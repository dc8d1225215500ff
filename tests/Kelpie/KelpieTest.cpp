// Network values: names of interfaces, addresses, prefixes and their order.
#include "Dunlin/Util.h"
#include "Kelpie/IntfId.h"
#include "Kelpie/IpPrefix.h"
#include "Vomo/SerDes.h"

#include <filesystem>
#include <fstream>
#include <random>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using namespace Kelpie;

// A base directory of its own for each test.
class Names : public testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/kelpie-XXXXXX";
        directory_ = ::mkdtemp(pattern);
        Dunlin::Util::baseDirectoryIs(directory_);
    }
    void TearDown() override {
        Dunlin::Util::baseDirectoryIs("");
        std::filesystem::remove_all(directory_);
    }
    std::string file() const { return directory_ + "/interface-names"; }
    std::string directory_;
};

TEST_F(Names, WordAndNameStandForEachOther) {
    struct {
        char const* name;
        U64 word; // 0: not pinned, it stands in the file
    } const rows[] = {
        {"", 0},
        {"eth0", 0x4000000000076ee8},
        {"Ethernet1/1", 0x8040000000008004},
        {"Port-Channel1000", 0x8100000000000fa0},
        {"Ethernet36/1/4.4094", 0},
        {"Vlan100", 0},
        {"Loopback0", 0},
        {"Ethernet9999", 0},
        {"Ethernet01", 0},
        {"pimreg", 0},
        {"br-9f86d081884c", 0},
        {"name with blank", 0},
        {"quote'and\\back", 0},
        {"Intf-0123456789abcdef", 0x0123456789abcdef},
    };
    for (auto const& row : rows) {
        SCOPED_TRACE(row.name);
        IntfId const id{Vomo::String(row.name)};
        EXPECT_EQ(id.stringValue(), row.name);
        EXPECT_EQ(IntfId(id.word()).stringValue(), row.name);
        if (row.word != 0) {
            EXPECT_EQ(fmt::format("{:#x}", id.word()), fmt::format("{:#x}", row.word));
        }
        EXPECT_EQ(Vomo::strepToValue(valueToStrep(id), static_cast<IntfId*>(nullptr)), id);
    }
    EXPECT_THROW(IntfId(Vomo::String(256, 'x')), Vomo::RangeException);
}

TEST_F(Names, EveryNameOfUpTo15CharactersIsKept) {
    std::mt19937 random(7);
    std::map<U64, std::string> seen;
    for (int i = 0; i < 3000; ++i) {
        Vomo::String name(1 + random() % 15, ' ');
        for (char& c : name) c = static_cast<char>('!' + random() % 94);
        IntfId const id(name);
        EXPECT_EQ(id.stringValue(), name);
        EXPECT_TRUE(seen.emplace(id.word(), name).first->second == name);
    }
}

TEST_F(Names, AnotherProcessReadsAndExtendsTheSameNames) {
    Vomo::String const mine = "interface-of-parent", theirs = "interface-of-child";
    U64 const word = IntfId(mine).word();
    pid_t const child = ::fork();
    if (child == 0) {
        Dunlin::Util::baseDirectoryIs(directory_ + "/."); // forget what the parent had read
        bool const same = IntfId(word).stringValue() == mine && IntfId(mine).word() == word;
        (void)IntfId(theirs);
        ::_exit(same ? 0 : 1);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    U64 const theirWord = IntfId(theirs).word();
    EXPECT_EQ(IntfId(theirWord).stringValue(), theirs);
    std::ifstream lines(file());
    EXPECT_EQ(std::count(std::istreambuf_iterator<char>(lines), {}, '\n'), 2);
}

TEST_F(Names, ATakenWordMovesOnAndATornLineIsDropped) {
    U64 const word = IntfId(Vomo::String("a name of some length")).word();
    std::filesystem::remove(file());
    // A damaged line costs nobody behind it his name.
    std::string const others = fmt::format(
        "{:016x} 5 other\n0123 no name\n{:016x} 9 other\n{:016x} 21 one behind the damage\n", word,
        word + 7, word + 8);
    std::ofstream(file()) << others << "0123";
    Dunlin::Util::baseDirectoryIs(directory_ + "/.");
    IntfId const moved(Vomo::String("a name of some length"));
    EXPECT_EQ(moved.word(), word + 1);
    EXPECT_EQ(IntfId(word).stringValue(), "other");
    EXPECT_EQ(IntfId(word + 8).stringValue(), "one behind the damage");
    std::ifstream lines(file());
    std::string const text{std::istreambuf_iterator<char>(lines), {}};
    EXPECT_EQ(text, others + fmt::format("{:016x} 21 a name of some length\n", word + 1));
}

// A name may hold a line's end, at which the writer was stopped or died.
TEST_F(Names, ALineThatIsBegunIsReadWhenItEnds) {
    std::filesystem::create_directories(std::filesystem::path(file()).parent_path());
    std::ofstream lines(file());
    lines << "c000000000000123 18 first\nsecond" << std::flush;
    EXPECT_EQ(IntfId(0xc000000000000123).stringValue(), "Intf-c000000000000123");
    lines << "\nthird\n"
          << "c000000000000124 5 other\n"
          << std::flush;
    EXPECT_EQ(IntfId(0xc000000000000123).stringValue(), "first\nsecond\nthird");
    EXPECT_EQ(IntfId(0xc000000000000124).stringValue(), "other");
    lines << "c000000000000125 200 dead\nc000000000000126 5 alive\n" << std::flush;
    EXPECT_EQ(IntfId(0xc000000000000126).stringValue(), "alive");
    IntfId const entered(Vomo::String("a name of some length"));
    Dunlin::Util::baseDirectoryIs(directory_ + "/.");
    EXPECT_EQ(IntfId(entered.word()).stringValue(), "a name of some length");
    EXPECT_EQ(IntfId(0xc000000000000126).stringValue(), "alive");
}

TEST(IntfId, AWordWithoutNamePrintsItself) {
    EXPECT_EQ(IntfId(5).stringValue(), "Intf-0000000000000005");
    EXPECT_EQ(IntfId(Vomo::String("Intf-0000000000000005")).word(), 5U);
    EXPECT_EQ(IntfId(5).hash(), 3574253598U);
}

TEST(IpAddresses, TextReadsBackOrFails) {
    struct {
        char const* text;
        char const* printed; // null: does not parse
    } const rows[] = {
        {"10.1.2.3", "10.1.2.3"},
        {"::", "::"},
        {"2001:db8::1", "2001:db8::1"},
        {"2001:0DB8:0:0:0:0:0:1", "2001:db8::1"},
        {"ff02::1", "ff02::1"},
        {"::ffff:1.2.3.4", "::ffff:1.2.3.4"},
        {"none", "none"},
        {"10.1.2", nullptr},
        {"10.1.2.256", nullptr},
        {"10.1.2.3 ", nullptr},
        {"g::1", nullptr},
        {"1:2", nullptr},
        {"", nullptr},
    };
    for (auto const& row : rows) {
        SCOPED_TRACE(row.text);
        IpGenAddr* const tag = nullptr;
        if (row.printed == nullptr) {
            EXPECT_THROW(Vomo::strepToValue(Vomo::String(row.text), tag), Vomo::ParseException);
        } else {
            EXPECT_EQ(valueToStrep(Vomo::strepToValue(Vomo::String(row.text), tag)), row.printed);
        }
    }
}

IpGenPrefix prefix(char const* text) {
    return Vomo::strepToValue(Vomo::String(text), static_cast<IpGenPrefix*>(nullptr));
}

TEST(Prefixes, TextAndParts) {
    EXPECT_EQ(valueToStrep(IpGenPrefix()), "none/0");
    EXPECT_EQ(prefix("none/0"), IpGenPrefix());
    EXPECT_TRUE(prefix("239.1.1.1/32").isMulticast() && prefix("239.1.1.1/32").isHost());
    EXPECT_TRUE(prefix("ff0e::1/128").isMulticast() && prefix("ff0e::1/128").isHost());
    EXPECT_FALSE(prefix("10.0.0.0/8").isMulticast() || prefix("10.0.0.0/8").isHost());
    for (char const* bad : {"10.0.0.0/33", "::/129", "none/1"})
        EXPECT_THROW(prefix(bad), Vomo::RangeException) << bad;
    EXPECT_EQ(valueToStrep(prefix("239.1.2.3/32").address().mcastEtherAddress()),
              "01:00:5e:01:02:03");
    EXPECT_EQ(valueToStrep(prefix("ff02::1:3/128").address().mcastEtherAddress()),
              "33:33:00:01:00:03");
    // Stops where a composite goes on.
    Vomo::CharRange range(std::string_view("10.0.0.0/8, 'x'"));
    EXPECT_EQ(valueToStrep(IpGenPrefix(range)), "10.0.0.0/8");
    EXPECT_EQ(range.text(), ", 'x'");
}

TEST(Prefixes, OrderIsTotal) {
    char const* const inOrder[] = {
        "none/0",        "9.9.9.9/32",      "10.0.0.0/16", "10.1.1.1/32", "10.1.0.0/16",
        "10.0.0.0/8",    "10.0.0.1/8",      "11.0.0.0/8",  "0.0.0.0/0",   "2001:db8::/48",
        "2001:db8::/32", "2001:db9::1/128", "::/0",
    };
    for (std::size_t i = 0; i < std::size(inOrder); ++i)
        for (std::size_t k = 0; k < std::size(inOrder); ++k)
            EXPECT_EQ(prefix(inOrder[i]) < prefix(inOrder[k]), i < k)
                << inOrder[i] << " " << inOrder[k];
}

TEST(Hashes, AreTheSameInEveryBuild) {
    EXPECT_EQ(prefix("2001:db8::1/128").address().v6Addr().hash(), 3057771336U);
    EXPECT_EQ(prefix("10.0.0.0/8").hash(), 1309738442U);
}

TEST(EthAddr, TextReadsBackOrFails) {
    EthAddr* const tag = nullptr;
    EXPECT_EQ(valueToStrep(Vomo::strepToValue(Vomo::String("01:00:5E:7f:00:ff"), tag)),
              "01:00:5e:7f:00:ff");
    for (char const* bad :
         {"01:00:5e:7f:00", "1:0:5e:7f:0:ff", "01-00-5e-7f-00-ff", "01:00:5e:7f:00:fg"})
        EXPECT_THROW(Vomo::strepToValue(Vomo::String(bad), tag), Vomo::ParseException) << bad;
}

} // namespace
