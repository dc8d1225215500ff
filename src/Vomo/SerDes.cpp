// Text forms of the builtins, and the cursor they are read with.
#include "Vomo/SerDes.h"

#include "Vomo/Exception.h"
#include "Vomo/Value.h"

#include <fmt/format.h>

#include <charconv>
#include <cstdarg>
#include <ostream>

namespace Vomo {

void CharRange::throwWanted(std::string_view wanted) const {
    constexpr std::size_t shown = 24;
    std::string_view const rest = text();
    std::string found = "the end";
    if (!rest.empty())
        found = fmt::format("\"{}{}\"", rest.substr(0, shown), rest.size() > shown ? "..." : "");
    throw ParseException(
        fmt::format("at character {}: wanted {}, found {}", position(), wanted, found), position(),
        std::string(wanted));
}

void CharRange::needString(std::string_view text) {
    if (!haveString(text)) throwWanted(fmt::format("\"{}\"", text));
}

bool CharRange::haveString(std::string_view text) {
    if (!this->text().starts_with(text)) return false;
    begin_ += text.size();
    return true;
}

void CharRange::checkAllDataConsumed() const {
    if (begin_ != end_) throwWanted("the end");
}

CharRange& CharRange::operator+=(U32 v) {
    PLAINASSERT(v <= remainingSize(), "v <= remainingSize()");
    begin_ += v;
    return *this;
}

String _fmt(char const* format, ...) {
    va_list args, again;
    va_start(args, format);
    va_copy(again, args);
    int const size = std::vsnprintf(nullptr, 0, format, args);
    va_end(args);
    String text;
    if (size > 0) {
        text.resize(static_cast<std::size_t>(size));
        std::vsnprintf(text.data(), text.size() + 1, format, again);
    }
    va_end(again);
    return text;
}

std::ostream& printString(std::ostream& stream, String const& text) {
    return stream << text;
}

String valueToStrep(bool v) {
    return v ? "True" : "False";
}

// The shortest text that reads back to the same number.
String valueToStrep(Seconds v) {
    char text[32];
    auto const result = std::to_chars(text, text + sizeof text, v);
    return String(text, result.ptr);
}

String valueToStrep(unsigned long long v) {
    return String(fmt::format_int(v).str());
}

String valueToStrep(String const& v) {
    String text;
    text.reserve(v.size() + 2);
    text += '\'';
    for (char const c : v) {
        if (c == '\\' || c == '\'') text += '\\';
        text += c;
    }
    text += '\'';
    return text;
}

namespace {

template <class Int>
Int parseNumber(CharRange& range, char const* attrName) {
    unsigned long long value = 0;
    auto const [end, error] = std::from_chars(range.begin(), range.end(), value);
    if (end == range.begin()) range.throwWanted("a number");
    constexpr auto max = std::numeric_limits<Int>::max();
    if (error != std::errc() || value > max)
        throwRangeException(fmt::format(
            "{}: {} exceeds {}", attrName,
            std::string_view(range.begin(), static_cast<std::size_t>(end - range.begin())), max));
    range += static_cast<U32>(end - range.begin());
    return static_cast<Int>(value);
}

} // namespace

template <>
U8 deserializeAttr<U8>(CharRange& r, char const* n) {
    return parseNumber<U8>(r, n);
}
template <>
U16 deserializeAttr<U16>(CharRange& r, char const* n) {
    return parseNumber<U16>(r, n);
}
template <>
U32 deserializeAttr<U32>(CharRange& r, char const* n) {
    return parseNumber<U32>(r, n);
}
template <>
U64 deserializeAttr<U64>(CharRange& r, char const* n) {
    return parseNumber<U64>(r, n);
}

template <>
S32 deserializeAttr<S32>(CharRange& range, char const* attrName) {
    if (!range.haveString("-")) {
        U32 const value = deserializeAttr<U32>(range, attrName);
        if (value <= 0x7fffffffU) return static_cast<S32>(value);
    } else if (U32 const value = deserializeAttr<U32>(range, attrName); value <= 0x80000000U) {
        return static_cast<S32>(0U - value);
    }
    throwRangeException(fmt::format("{}: out of the range of 32 bits with a sign", attrName));
}

template <>
bool deserializeAttr<bool>(CharRange& range, char const*) {
    if (range.haveString("True")) return true;
    if (range.haveString("False")) return false;
    range.throwWanted("True or False");
}

template <>
Seconds deserializeAttr<Seconds>(CharRange& range, char const* attrName) {
    Seconds value = 0;
    auto const [end, error] = std::from_chars(range.begin(), range.end(), value);
    if (end == range.begin()) range.throwWanted("a number of seconds");
    if (error != std::errc())
        throwRangeException(fmt::format("{}: number of seconds out of range", attrName));
    range += static_cast<U32>(end - range.begin());
    return value;
}

template <>
String deserializeAttr<String>(CharRange& range, char const*) {
    range.needString("'");
    String value;
    while (range.remainingSize() > 0) {
        char c = *range.begin();
        range += 1;
        if (c == '\'') return value;
        if (c == '\\') {
            if (range.remainingSize() == 0) break;
            c = *range.begin();
            range += 1;
        }
        value += c;
    }
    range.throwWanted("\"'\"");
}

} // namespace Vomo
