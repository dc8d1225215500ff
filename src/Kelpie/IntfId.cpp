// The forms of the word, by its top two bits:
//   01  text: 10 digits to base 73, the first character in the lowest
//   10  switch name: 6 bits kind, 2 bits count less 1, 4 numbers of 13 bits, 1 bit "the last
//       separator is a dot", 1 bit zero
//   11  the name stands in the names file; the word is a hash of it, moved on while taken
// A name takes the first form that holds it, so that it has one word only.
#include "Kelpie/IntfId.h"

#include "Dunlin/Trace.h"
#include "Dunlin/Util.h"
#include "Kelpie/NamesFile.h"
#include "Vomo/Exception.h"
#include "Vomo/Hash.h"
#include "Vomo/NboAttrLog.h"
#include "Vomo/Record.h"

#include <ostream>

template <>
struct Vomo::Describe<Kelpie::IntfId> {
    using T = Kelpie::IntfId;
    static constexpr auto type = value("Kelpie::IntfId");
    static constexpr auto attributes = rows({
        derived<&T::word>(2, "word"),
        function<&T::stringValue>(4, "stringValue"),
    });
};

namespace Kelpie {
namespace {

constexpr U64 textForm = U64{1} << 62;
constexpr U64 switchForm = U64{2} << 62;
constexpr U64 namedForm = U64{3} << 62;
constexpr U64 formMask = U64{3} << 62;

constexpr std::string_view alphabet =
    "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ-_.:/@+=,~";
constexpr U64 textBase = alphabet.size() + 1;
constexpr std::size_t maxTextLength = 10;
static_assert(alphabet.size() == 72);

// Numbers are part of the word: new names go to the end.
constexpr std::string_view switchNames[] = {
    "Ethernet",       "Port-Channel",   "Vlan",     "Loopback", "Management", "Tunnel",
    "Vxlan",          "Recirc-Channel", "Register", "Dps",      "Fabric",     "Multicast",
    "InternalRecirc", "MplsTrunk",      "Switch",   "Peer",     "Pseudowire", "Unconnected",
};
constexpr U64 maxNumber = (1 << 13) - 1;

// 0: does not fit this form.
U64 textWord(std::string_view name) {
    if (name.empty() || name.size() > maxTextLength) return 0;
    U64 word = 0;
    for (std::size_t i = name.size(); i-- > 0;) {
        std::size_t const digit = alphabet.find(name[i]);
        if (digit == alphabet.npos) return 0;
        word = word * textBase + digit + 1;
    }
    return textForm | word;
}

std::string textName(U64 word) {
    std::string name;
    for (word &= ~formMask; word != 0; word /= textBase) {
        if (word % textBase == 0) return {};
        name += alphabet[word % textBase - 1];
    }
    return name;
}

U64 switchWord(std::string_view name) {
    std::size_t const firstDigit = name.find_first_of("0123456789");
    if (firstDigit == name.npos) return 0;
    U64 kind = 0;
    while (kind < std::size(switchNames) && switchNames[kind] != name.substr(0, firstDigit)) ++kind;
    if (kind == std::size(switchNames)) return 0;
    U64 numbers = 0, count = 0, dot = 0;
    for (std::string_view rest = name.substr(firstDigit);;) {
        U64 number = 0;
        std::size_t digits = 0;
        for (; digits < rest.size() && rest[digits] >= '0' && rest[digits] <= '9'; ++digits) {
            number = number * 10 + static_cast<U64>(rest[digits] - '0');
            if (number > maxNumber) return 0;
        }
        if (digits == 0 || (digits > 1 && rest[0] == '0') || count == 4) return 0;
        numbers |= number << (13 * count++);
        if (digits == rest.size()) break;
        if (dot != 0 || (rest[digits] != '/' && rest[digits] != '.')) return 0;
        dot = rest[digits] == '.';
        rest.remove_prefix(digits + 1);
    }
    return switchForm | kind << 56 | (count - 1) << 54 | numbers << 2 | dot << 1;
}

std::string switchName(U64 word) {
    U64 const kind = word >> 56 & 63, count = (word >> 54 & 3) + 1, dot = word >> 1 & 1;
    if (kind >= std::size(switchNames)) return {};
    std::string name(switchNames[kind]);
    for (U64 i = 0; i < count; ++i) {
        if (i != 0) name += dot != 0 && i + 1 == count ? '.' : '/';
        name += std::to_string(word >> (2 + 13 * i) & maxNumber);
    }
    return name;
}

constexpr std::string_view unnamedLead = "Intf-";

// The word behind "Intf-" and 16 lower-case hexadecimal digits; 0 for any other name.
U64 unnamedWord(std::string_view name) {
    if (!name.starts_with(unnamedLead) || name.size() != unnamedLead.size() + 16) return 0;
    U64 word = 0;
    for (char const c : name.substr(unnamedLead.size())) {
        std::size_t const digit = std::string_view("0123456789abcdef").find(c);
        if (digit == std::string_view::npos) return 0;
        word = word << 4 | digit;
    }
    return word;
}

U64 wordOf(std::string_view name) {
    if (name.empty()) return 0;
    if (U64 const word = textWord(name)) return word;
    if (U64 const word = switchWord(name)) return word;
    if (U64 const word = unnamedWord(name)) return word;
    U64 state = Tumbrel::mix64(0, name.size());
    for (char const c : name) state = Tumbrel::mix64(state, static_cast<U8>(c));
    return NamesFile::instance().wordOf(name, namedForm | state, namedForm);
}

} // namespace

IntfId::IntfId(Vomo::String const& name) {
    if (name.bytes() > maxLength)
        Vomo::throwRangeException("Kelpie::IntfId::name of more than 255 bytes not allowed");
    word_ = wordOf(name);
}

IntfId::IntfId(Vomo::CharRange& range)
    : IntfId(Vomo::deserializeAttr<Vomo::String>(range, "intfId")) {}

IntfId::IntfId(Vomo::NboAttrLog::In* in, Vomo::StreamBogon) : word_(in->nextU64()) {}

U32 IntfId::hash(U32 seed) const {
    return Vomo::hashSingleAttr(seed, word_);
}

Vomo::String IntfId::stringValue() const {
    if (word_ == 0) return {};
    std::string name;
    switch (word_ & formMask) {
    case textForm:
        name = textName(word_);
        if (textWord(name) == word_) return name;
        break;
    case switchForm:
        name = switchName(word_);
        // What the text form holds was never packed this way.
        if (switchWord(name) == word_ && textWord(name) == 0) return name;
        break;
    case namedForm:
        name = NamesFile::instance().nameOf(word_);
        if (!name.empty()) return name;
        break;
    default:
        break;
    }
    return fmt::format("{}{:016x}", unnamedLead, word_);
}

Vomo::String valueToStrep(IntfId v) {
    return Vomo::valueToStrep(v.stringValue());
}

std::ostream& operator<<(std::ostream& stream, IntfId v) {
    return stream << v.stringValue();
}

Vomo::NboAttrLog::Out& operator<<(Vomo::NboAttrLog::Out& out, IntfId v) {
    return out << v.word();
}

} // namespace Kelpie

namespace Vomo {
constinit VomoModule const _IntfId_638f3da9b062f5a9_vomoModule = ModuleRecord<IntfIdModule>::value;
static ModuleRegistration const registration(IntfIdModule::record);
} // namespace Vomo
