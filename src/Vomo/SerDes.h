// Text forms: print and parse of the builtins, and what every value type adds to them.
//
// A value's text form is what `valueToStrep` gives; its text constructor, taking a CharRange, reads
// it back. Both stand in the type's own namespace and class.
#pragma once

#include "Vomo/CharRange.h"
#include "Vomo/Exception.h"

#include <fmt/core.h>

#include <concepts>
#include <type_traits>

namespace Vomo {

// As sprintf, into a string.
[[gnu::format(printf, 1, 2)]] String _fmt(char const* format, ...);

String valueToStrep(bool v);               // True or False
String valueToStrep(Seconds v);            // the shortest text that reads back equal
String valueToStrep(unsigned long long v); // decimal
String valueToStrep(String const& v);      // in single quotes; a backslash before these and itself

// Consumes the longest text that is a T. Raises RangeException, naming the attribute, for a value
// out of T's range and ParseException for a text that is none. No sign and no blank is taken.
template <class T>
T deserializeAttr(CharRange& range, char const* attrName) {
    try {
        return T(range);
    } catch (RangeException const& ex) {
        rethrowFromDeserializeAttr(ex, attrName);
    }
}
template <>
U8 deserializeAttr<U8>(CharRange&, char const*);
template <>
U16 deserializeAttr<U16>(CharRange&, char const*);
template <>
U32 deserializeAttr<U32>(CharRange&, char const*);
template <>
U64 deserializeAttr<U64>(CharRange&, char const*);
template <>
S32 deserializeAttr<S32>(CharRange&, char const*); // with a sign if negative
template <>
bool deserializeAttr<bool>(CharRange&, char const*);
template <>
Seconds deserializeAttr<Seconds>(CharRange&, char const*);
template <>
String deserializeAttr<String>(CharRange&, char const*);

// The value of which `text` is the whole text form. The pointer only selects T.
template <class T>
T strepToValue(String const& text, T*) {
    CharRange range(text);
    T value(range);
    range.checkAllDataConsumed();
    return value;
}

} // namespace Vomo

namespace VomoFormat {
// A class or enum with a text form of its own; found by argument-dependent lookup alone.
template <class T>
concept HasStrep = (std::is_class_v<T> ||
                    std::is_enum_v<T>)&&!std::is_convertible_v<T const&, std::string_view> &&
                   requires(T const& v) {
    { valueToStrep(v) } -> std::same_as<Vomo::String>;
};
} // namespace VomoFormat

// "{}" prints the text form.
template <VomoFormat::HasStrep T>
struct fmt::formatter<T, char> {
    constexpr auto parse(format_parse_context& context) { return context.begin(); }
    template <class Context>
    auto format(T const& v, Context& context) const {
        auto out = context.out();
        for (char const c : valueToStrep(v)) *out++ = c;
        return out;
    }
};
