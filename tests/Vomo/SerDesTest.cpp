// Text and log forms of builtins, hashes of keys.
#include "Vomo/SerDes.h"
#include "Vomo/Hash.h"
#include "Vomo/NboAttrLog.h"

#include <cmath>
#include <random>
#include <set>

namespace {

using namespace Vomo;

TEST(CharRange, NeedsExactlyTheText) {
    CharRange range(std::string_view("ab}"));
    EXPECT_THROW(range.needString("abc"), ParseException);
    range.needString("ab");
    try {
        range.needString(", ");
        FAIL();
    } catch (ParseException const& e) {
        EXPECT_EQ(e.message(), "at character 2: wanted \", \", found \"}\"");
        EXPECT_EQ(e.position(), 2U);
    }
    EXPECT_THROW(range.checkAllDataConsumed(), ParseException);
    range += 1;
    range.checkAllDataConsumed();
    EXPECT_DEATH(range += 1, "v <= remainingSize\\(\\)");
}

TEST(Builtins, NumbersTakeNoSignAndKeepTheirRange) {
    struct {
        char const* text;
        bool range; // RangeException, else ParseException
    } const bad[] = {
        {"256", true}, {"99999999999999999999", true}, {"-1", false}, {" 1", false}, {"", false}};
    for (auto const& row : bad) {
        CharRange range{std::string_view(row.text)};
        if (row.range) {
            EXPECT_THROW(deserializeAttr<U8>(range, "x"), RangeException) << row.text;
        } else {
            EXPECT_THROW(deserializeAttr<U8>(range, "x"), ParseException) << row.text;
        }
    }
    CharRange range(std::string_view("255,"));
    EXPECT_EQ(deserializeAttr<U8>(range, "x"), 255);
    EXPECT_EQ(range.text(), ",");
}

TEST(Builtins, StringsAndSecondsReadBack) {
    for (String const& text :
         {String(), String("plain"), String("it's \\ 'quoted'"), String("a\0b", 3)}) {
        String const strep = valueToStrep(text);
        CharRange range(strep);
        EXPECT_EQ(deserializeAttr<String>(range, "s"), text);
        range.checkAllDataConsumed();
    }
    CharRange open(std::string_view("'abc"));
    EXPECT_THROW(deserializeAttr<String>(open, "s"), ParseException);
    for (Seconds const s : {0.0, 0.1, 1.0 / 3, -2.5e300, 1e-320, HUGE_VAL}) {
        CharRange range(valueToStrep(s));
        String const strep = valueToStrep(s);
        CharRange again(strep);
        EXPECT_EQ(deserializeAttr<Seconds>(again, "t"), s);
    }
}

TEST(AttributeLog, BytesAreBigEndianAndReadBack) {
    NboAttrLog::Out out;
    out << U8{1} << U16{0x0203} << U32{0x04050607} << U64{0x08090a0b0c0d0e0f} << true << 1.0
        << String("hi") << String();
    EXPECT_EQ(Dunlin::formatText("{:02x}", fmt::make_format_args(fmt::join(out.bytes(), ""))),
              "010203040506"
              "0708090a0b0c0d0e0f013ff00000000000000000000268690000"
              "0000");
    NboAttrLog::In in(out.bytes());
    EXPECT_EQ(in.nextU8(), 1);
    EXPECT_EQ(in.nextU16(), 0x0203);
    EXPECT_EQ(in.nextU32(), 0x04050607U);
    EXPECT_EQ(in.nextU64(), 0x08090a0b0c0d0e0fU);
    EXPECT_TRUE(in.nextbool());
    EXPECT_EQ(in.nextSeconds(), 1.0);
    EXPECT_EQ(in.nextString(), "hi");
    EXPECT_EQ(in.nextValidString(0), "");
    EXPECT_EQ(in.remaining(), 0U);
    EXPECT_THROW(in.nextU8(), AttrLogRecordException);
}

TEST(Hashes, EveryBitOfATextCounts) {
    std::mt19937 random(7);
    for (std::size_t size = 0; size <= 50; ++size) {
        std::string text(size, 'x');
        for (char& c : text) c = static_cast<char>(random());
        std::set<U32> hashes{hashSingleAttr(0, text), hashSingleAttr(0, text + '\0')};
        for (std::size_t bit = 0; bit < 8 * size; ++bit) {
            text[bit / 8] = static_cast<char>(text[bit / 8] ^ 1 << bit % 8);
            hashes.insert(hashSingleAttr(0, text));
            text[bit / 8] = static_cast<char>(text[bit / 8] ^ 1 << bit % 8);
        }
        EXPECT_EQ(hashes.size(), 2 + 8 * size) << size;
    }
    std::set<U32> hashes; // of names as they occur: about one pair in 100,000 meets by chance
    for (int i = 0; i < 50000; ++i) {
        hashes.insert(hashSingleAttr(0, fmt::format("vrf-{:x}", i)));
        hashes.insert(hashSingleAttr(0, fmt::format("Ethernet{}/{}", i / 100, i % 100)));
    }
    EXPECT_GT(hashes.size(), 100000U - 10);
}

TEST(Hashes, AreTheSameInEveryBuild) {
    EXPECT_EQ(hashSingleAttr(0, U16{7}), 3967593574U);
    EXPECT_EQ(hashSingleAttr(0, U32{7}), 4107123915U);
    EXPECT_EQ(hashSingleAttr(0, U64{7}), 2176694220U);
    EXPECT_EQ(hashSingleAttr(0, std::string_view("default")), 1703484673U);
    EXPECT_EQ(hashSingleAttr(0, std::string_view("Ethernet12/1.4094")), 1143038841U);
    EXPECT_NE(hashSingleAttr(1, U32{7}), hashSingleAttr(0, U32{7}));
    Tumbrel::HashMix mix, same;
    mix.mixBytes8(0x0123456789abcdef);
    U64 const word = 0x0123456789abcdef;
    same.mix(&word, 8);
    EXPECT_EQ(unsigned(mix), unsigned(same));
    Tumbrel::HashMix ab, ba;
    ab.mixBytes2(1), ab.mixBytes4(2);
    ba.mixBytes4(2), ba.mixBytes2(1);
    EXPECT_NE(unsigned(ab), unsigned(ba));
    EXPECT_EQ(unsigned(mix), 1525710830U);
}

} // namespace
