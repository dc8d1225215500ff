#include "Vomo/EnumType.h"

#include "Vomo/SerDes.h"

#include <ostream>
#include <span>

namespace Vomo {
namespace {

std::span<AttributeRow const> literals(VomoTypeBase type) {
    if (type.index >= type.module->numTypes) return {};
    TypeRow const& row = type.module->typeTable[type.index];
    return {type.module->attributeTable + row.firstAttribute, row.numAttributes};
}
char const* nameOf(VomoTypeBase type, AttributeRow const& literal) {
    return type.module->attributeNames + literal.nameOffset();
}
char const* typeName(VomoTypeBase type) {
    if (type.index >= type.module->numTypes) return "enum";
    return type.module->typeNames + type.module->typeTable[type.index].nameOffset();
}

U32 valueOf(VomoTypeBase type, std::string_view name) {
    for (AttributeRow const& literal : literals(type))
        if (name == nameOf(type, literal)) return literal.keyOrValue;
    throwRangeException(fmt::format("{} has no enumerator '{}'", typeName(type), name));
}

char const* nameOf(VomoTypeBase type, U32 value) {
    for (AttributeRow const& literal : literals(type))
        if (literal.keyOrValue == value) return nameOf(type, literal);
    return nullptr;
}

} // namespace

template <class U>
U EnumType<U>::instance(VomoTypeBase type, unsigned number) {
    if (nameOf(type, number) == nullptr)
        throwRangeException(
            fmt::format("{} has no enumerator of value {}", typeName(type), number));
    return static_cast<U>(number);
}

template <class U>
U EnumType<U>::instance(VomoTypeBase type, String const& name) {
    return static_cast<U>(valueOf(type, name));
}

template <class U>
std::ostream& EnumType<U>::operatorLessLess(std::ostream& stream, VomoTypeBase type, U v) {
    return stream << EnumType::valueToStrep(type, v);
}

template <class U>
String EnumType<U>::valueToStrep(VomoTypeBase type, U v) {
    char const* const name = nameOf(type, v);
    return name != nullptr ? String("'").append(name).append("'") : stringValue(type, v);
}

template <class U>
U EnumType<U>::sequenceToValue(CharRange& range, VomoTypeBase type) {
    if (range.remainingSize() > 0 && *range.begin() >= '0' && *range.begin() <= '9')
        return deserializeAttr<U>(range, typeName(type));
    return static_cast<U>(valueOf(type, deserializeAttr<String>(range, typeName(type))));
}

template <class U>
String EnumType<U>::stringValue(VomoTypeBase type, U v) {
    char const* const name = nameOf(type, v);
    return name != nullptr ? String(name) : Vomo::valueToStrep(static_cast<unsigned long long>(v));
}

template struct EnumType<U8>;
template struct EnumType<U32>;

} // namespace Vomo
