// Builds a module's registration record, at compile time, from the rows of its types. Only the
// modules' own sources include this.
//
// A module's source ends in `Vomo::ModuleRecord<Module>::value`, where Module is the module's list of
// types; beside it is `...::frames`, if its values have their text and log from their rows. A mistake
// fails at the type's own line with a sentence.
#pragma once

#include "Vomo/EntityFrame.h"

#include <algorithm>
#include <iostream> // the streams are there before a module registers

namespace Vomo {

// One type, ready for the record.
struct TypeFrame {
    TypeHead head;
    VomoTypeBase self;
    U32 size = 0;
    U32 alignment = 0;
    std::span<Row const> rows;
    GenericRow generic{};
    ValueFrame frame{}; // of a value type in a module with frames
    // A constructor parameter that is no attribute of its own: an entity's name, a base's value.
    Param lead{};
};

namespace Impl {
template <class T>
constexpr TypeFrame describe() {
    return {.head = Describe<T>::type,
            .self = IdOf<T>::type,
            .size = sizeof(T),
            .alignment = alignof(T),
            .rows = Describe<T>::attributes,
            .lead = Describe<T>::type.lead};
}
} // namespace Impl

template <class T>
constexpr TypeFrame makeFrame() {
    TypeFrame frame = Impl::describe<T>();
    if constexpr (std::is_enum_v<T>) {
        using U = std::underlying_type_t<T>;
        frame.generic.methods = &GenericIfImpl::GenericIfEnumMethods<U>::vtable_;
        frame.generic.attributeOp = GenericIfImpl::GenericIfEnumMethods<U>::genericIfAttributeOp;
    } else {
        static_assert(std::is_copy_constructible_v<T> && std::is_default_constructible_v<T>);
        frame.generic.methods = &GenericIfImpl::GenericIfValueMethods<T>::vtable_;
        frame.generic.constructFromCtorArgs = GenericIfImpl::genericIfConstructFromCtorArgs<T>;
        frame.generic.attributeOp = GenericIfImpl::genericIfAttributeOp<T>;
        if constexpr (FramedValue<T>) frame.frame = makeValueFrame<T>();
        if constexpr (IteratorFunctions<T>::hasCollection())
            frame.generic.iterator = IteratorFunctions<T>::genericIfIterator;
    }
    return frame;
}
template <class T>
constexpr TypeFrame makeEntityFrame() {
    using Functions = Impl::EntityFunctions<T>;
    TypeFrame frame = Impl::describe<T>();
    if constexpr (Functions::isNamed) frame.lead = {"name", &fieldType<String>};
    if constexpr (Functions::isNamed && Functions::numArguments == 1)
        frame.generic.newEntityForDir = Functions::newEntityForDir;
    frame.generic.stream = &Functions::stream;
    frame.generic.methods = &GenericIfImpl::GenericIfPtrInterfaceMethods<Entity>::vtable_;
    if constexpr (Functions::numArguments != 0)
        frame.generic.constructFromCtorArgs = Functions::genericIfConstructFromCtorArgs;
    frame.generic.attributeOp = Functions::genericIfAttributeOp;
    if (IteratorFunctions<T>::hasCollection())
        frame.generic.iterator = IteratorFunctions<T>::genericIfIterator;
    return frame;
}
namespace Impl {

// The frames of a module's types.
template <class... T>
constexpr std::array<TypeFrame, sizeof...(T)> framesOf(TypeList<T...> const*) {
    return {[] {
        if constexpr (Describe<T>::type.kind == TypeKind::entity)
            return makeEntityFrame<T>();
        else
            return makeFrame<T>();
    }()...};
}

// The strings of a name table: sorted, each once.
template <std::size_t capacity>
struct NameList {
    std::array<std::string_view, capacity> names{};
    std::size_t count = 0;

    constexpr void add(char const* name) {
        if (name != nullptr) names[count++] = name;
    }
    constexpr void arrange() {
        std::sort(names.begin(), names.begin() + static_cast<std::ptrdiff_t>(count));
        std::size_t kept = 0;
        for (std::size_t i = 0; i < count; ++i)
            if (kept == 0 || names[kept - 1] != names[i]) names[kept++] = names[i];
        count = kept;
    }
    constexpr std::size_t bytes() const {
        std::size_t total = 0;
        for (std::size_t i = 0; i < count; ++i) total += names[i].size() + 1;
        return total;
    }
    // Where each name stands in the table.
    constexpr std::array<U32, capacity> offsets() const {
        std::array<U32, capacity> result{};
        U32 next = 0;
        for (std::size_t i = 0; i < count; ++i) {
            result[i] = next;
            next += static_cast<U32>(names[i].size()) + 1;
        }
        return result;
    }
    constexpr std::size_t find(std::string_view name) const {
        return static_cast<std::size_t>(
            std::lower_bound(names.begin(), names.begin() + static_cast<std::ptrdiff_t>(count),
                             name) -
            names.begin());
    }
    template <std::size_t n>
    constexpr std::array<char, n> table() const {
        std::array<char, n> text{};
        std::size_t next = 0;
        for (std::size_t i = 0; i < count; ++i, ++next)
            for (char const c : names[i]) text[next++] = c;
        return text;
    }
};

template <std::size_t capacity>
struct ReferenceList {
    std::array<ReferenceRow, capacity> rows{};
    std::size_t count = 0;

    constexpr U16 add(VomoTypeBase type) {
        for (std::size_t i = 0; i < count; ++i)
            if (rows[i].module == type.module && rows[i].index == type.index)
                return static_cast<U16>(i);
        rows[count] = {type.module, type.index};
        return static_cast<U16>(count++);
    }
    // A reference index, or a builtin's code; 0xFFFF for none.
    constexpr U16 code(FieldType const* type) {
        if (type == nullptr) return 0xFFFF;
        return type->type.module == nullptr ? codeOfBuiltin(type->builtin) : add(type->type);
    }
};

constexpr std::size_t numParams(Row const& row) {
    std::size_t n = 0;
    while (n < row.params.size() && row.params[n].type != nullptr) ++n;
    return n;
}

constexpr bool isCtorParam(Row const& row) {
    return row.kind == RowKind::ctor || row.kind == RowKind::owner;
}
// The constructor parameters of a type are its constructor attributes, behind the leading one.
constexpr std::size_t numCtorParams(TypeFrame const& type) {
    std::size_t n = type.lead.name != nullptr;
    for (Row const& row : type.rows) n += isCtorParam(row);
    return n;
}

} // namespace Impl

template <class Module>
struct ModuleRecord {
private:
    static constexpr U16 numTypes = Module::size;
    static constexpr auto types = Impl::framesOf(static_cast<Module const*>(nullptr));

    struct Counts {
        std::size_t attributes = 0, names = 1, references = 0, parameterRecords = 1;
    };
    static constexpr Counts count() {
        Counts counts;
        for (TypeFrame const& type : types) {
            counts.references += 2;
            std::size_t const ctor = Impl::numCtorParams(type);
            counts.names += 1;
            counts.parameterRecords += ctor == 0 ? 0 : ctor + 1;
            for (Row const& row : type.rows) {
                std::size_t const n = Impl::numParams(row);
                ++counts.attributes;
                counts.names += 2 + n;
                counts.references += 2 + n;
                counts.parameterRecords += n == 0 ? 0 : n + 1;
            }
        }
        return counts;
    }
    static constexpr Counts upper = count();

    static constexpr auto listAttributeNames() {
        Impl::NameList<upper.names> list;
        list.add("");
        for (TypeFrame const& type : types) {
            list.add(type.lead.name);
            for (Row const& row : type.rows) {
                list.add(row.name);
                list.add(row.keyName);
                for (Param const& param : row.params) list.add(param.name);
            }
        }
        list.arrange();
        return list;
    }
    static constexpr auto listTypeNames() {
        Impl::NameList<numTypes + 1> list;
        for (TypeFrame const& type : types) list.add(type.head.name);
        for (std::size_t i = 1; i < numTypes; ++i)
            if (list.names[i] <= list.names[i - 1]) throw "types must stand in order of name";
        return list;
    }
    static constexpr auto attributeNameList = listAttributeNames();
    static constexpr auto typeNameList = listTypeNames();

    // All that refers to types; built in one pass, so that the references are numbered once.
    struct Tables {
        std::array<TypeRow, numTypes + 1> typeRows{};
        std::array<AttributeRow, upper.attributes + 1> attributes{};
        Impl::ReferenceList<upper.references + 1> references;
        std::array<U16, 1 + 3 * upper.parameterRecords> parameters{};
    };
    static constexpr Tables build() {
        Tables t;
        constexpr auto nameOffsets = attributeNameList.offsets();
        constexpr auto typeOffsets = typeNameList.offsets();
        auto const nameOffset = [&](char const* name) {
            return name == nullptr ? 0U : nameOffsets[attributeNameList.find(name)];
        };
        std::size_t nextAttribute = 0, nextParameter = 1;
        auto const addParameter = [&](char const* name, FieldType const* type) {
            U16* const words = &t.parameters[1 + 3 * nextParameter++];
            words[0] = static_cast<U16>(nameOffset(name));
            words[1] = t.references.code(type);
        };
        for (std::size_t i = 0; i < numTypes; ++i) {
            TypeFrame const& type = types[i];
            TypeRow& row = t.typeRows[i];
            row.kind = type.head.kind;
            row.flags = type.head.flags;
            row.nameOffset8 = static_cast<U16>(typeOffsets[i] << 3);
            if (typeOffsets[i] > 0x1FFF) throw "the names of a module's types exceed 8191 bytes";
            row.sizeAndAlignment = type.size << 11 | type.alignment << 7;
            row.base = t.references.code(type.head.base);
            if (Impl::numCtorParams(type) != 0) {
                row.parameters = static_cast<U16>(nextParameter);
                if (type.lead.name != nullptr) addParameter(type.lead.name, type.lead.type);
                for (Row const& attribute : type.rows)
                    if (Impl::isCtorParam(attribute)) addParameter(attribute.name, attribute.type);
                ++nextParameter;
            }
            row.firstAttribute = static_cast<U16>(nextAttribute);
            row.numAttributes = static_cast<U16>(type.rows.size());
            U16 const self = t.references.add(type.self);
            for (Row const& source : type.rows) {
                AttributeRow& attribute = t.attributes[nextAttribute++];
                attribute.number = source.number;
                for (std::size_t b = 0; b < 3; ++b)
                    attribute.flags[b] = factsOf(source.kind).flags[b];
                U32 const name = nameOffset(source.name) << 4 | (source.stored ? 1U : 0U);
                for (unsigned b = 0; b < 3; ++b)
                    attribute.name[b] = static_cast<U8>(name >> (8 * b));
                attribute.type = source.type == nullptr ? self : t.references.code(source.type);
                attribute.keyOrValue = source.kind == RowKind::literal
                                           ? source.literal
                                           : t.references.code(source.key);
                attribute.keyName = nameOffset(source.keyName);
                if (Impl::numParams(source) != 0) {
                    attribute.parameters = static_cast<U16>(nextParameter);
                    for (Param const& param : source.params)
                        if (param.type != nullptr) addParameter(param.name, param.type);
                    ++nextParameter;
                }
            }
        }
        return t;
    }
    static constexpr Tables tables = build();
    template <std::size_t n, class Row, std::size_t m>
    static constexpr std::array<Row, n> first(std::array<Row, m> const& rows) {
        std::array<Row, n> result{};
        for (std::size_t i = 0; i < n; ++i) result[i] = rows[i];
        return result;
    }
    static constexpr auto listGeneric() {
        std::array<GenericRow, numTypes + 1> rows{};
        for (std::size_t i = 0; i < numTypes; ++i) rows[i] = types[i].generic;
        return rows;
    }

    // What the record points to: nothing else of the above is kept. Each table ends in a row of zeros,
    // so that a module without types has tables too.
    static constexpr auto typeTable = tables.typeRows;
    static constexpr auto attributeTable = first<upper.attributes + 1>(tables.attributes);
    static constexpr auto parameterTable = tables.parameters;
    static constexpr auto typeNames = typeNameList.template table<typeNameList.bytes() + 1>();
    static constexpr auto attributeNames =
        attributeNameList.template table<attributeNameList.bytes()>();
    static constexpr auto references = first<tables.references.count + 1>(tables.references.rows);
    static constexpr auto generic = listGeneric();

public:
    static constexpr VomoModule value{
        typeTable.data(),      attributeTable.data(), parameterTable.data(), typeNames.data(),
        attributeNames.data(), references.data(),     generic.data(),        numTypes};
    // The table beside the record.
    static constexpr ValueFrames<numTypes> frames = [] {
        ValueFrames<numTypes> list{};
        for (std::size_t i = 0; i < numTypes; ++i) list.of[i] = types[i].frame;
        return list;
    }();
};

} // namespace Vomo
