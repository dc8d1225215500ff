// What a record says of builtins, types and attributes in numbers that stay for ever. The record,
// those who read it and the tests have them from here.
#pragma once

#include "Vomo/Module.h"

#include <array>

namespace Vomo {

// The builtin types, by the number that a record's code is the negative of.
enum class Builtin : U16 {
    none = 0,
    entity = 3,
    nothing = 4,
    u8 = 5,
    u16 = 7,
    u32 = 9,
    s32 = 10,
    u64 = 11,
    boolean = 13,
    string = 17,
    seconds = 25,
};
constexpr U16 codeOfBuiltin(Builtin builtin) {
    return static_cast<U16>(-static_cast<U16>(builtin));
}
// The builtin that a code means; none for a reference index.
constexpr Builtin builtinOfCode(U16 code) {
    return code >= 0x8000 && code != 0xFFFF ? Builtin{static_cast<U16>(0x10000 - code)}
                                            : Builtin::none;
}
char const* builtinName(Builtin builtin);

// Flags of a type: a wrapped integer that prints bare; one that holds a wide address, a collection
// or another such type; an entity of which derived classes give the mutators.
inline constexpr U8 wrapper = 0x08, wide = 0x04, abstractMutators = 0x01;

// What an attribute is; the record's flags follow from it.
enum class RowKind : U8 {
    ctor,            // stored, fixed at construction
    owner,           // fixed at construction: the entity that owns this one, which is not held
    mutates,         // stored in a value, with a mutator
    flag,            // a bit of a flag set
    raw,             // the byte of a flag set
    view,            // accessor, and perhaps mutator, on a part of a stored field
    derived,         // accessor that computes
    constant,        // of the class
    function,        // const
    givesEntity,     // const function that returns an entity
    mutating,        // function that changes the object
    makesEntity,     // function that changes the object and returns an entity
    internal,        // function that changes the object, not reached by the generic interface
    statics,         // static function
    literal,         // of an enum
    indexed,         // view by a key
    memberMap,       // collection in a value
    notifying,       // stored in an entity; a change notifies
    readOnly,        // likewise, changed by the entity and by the log alone
    valueMap,        // collection of values in an entity
    valueSet,        // likewise, of keys alone
    children,        // collection of entities that it makes
    entries,         // collection of entities that the owner fills
    readOnlyEntries, // likewise, which the generic interface cannot change
    foreignEntries,  // likewise, of entities that another one owns
    foreign,         // pointer to an entity that is somewhere else
    table,           // shared table; not sent
    control,         // pointer to what shows a table's state
};
struct RowFacts {
    RowKind kind;
    U8 flags[3];
    char const* words; // for people
};
inline constexpr std::array allRowFacts{
    RowFacts{RowKind::ctor, {0x00, 0x2C, 0x01}, "constructor"},
    RowFacts{RowKind::owner, {0x20, 0x2C, 0x05}, "constructor,owner"},
    RowFacts{RowKind::mutates, {0x00, 0x9C, 0x01}, "mutable"},
    RowFacts{RowKind::flag, {0x00, 0x1C, 0x00}, "flag"},
    RowFacts{RowKind::raw, {0x00, 0x08, 0x01}, "raw"},
    RowFacts{RowKind::view, {0x00, 0x18, 0x00}, "view"},
    RowFacts{RowKind::derived, {0x00, 0x28, 0x00}, "derived"},
    RowFacts{RowKind::constant, {0x08, 0x28, 0x00}, "constant"},
    RowFacts{RowKind::function, {0x10, 0x08, 0x00}, "function"},
    RowFacts{RowKind::givesEntity, {0x30, 0x08, 0x10}, "function,entity"},
    RowFacts{RowKind::mutating, {0x11, 0x08, 0x00}, "function,changes"},
    RowFacts{RowKind::makesEntity, {0x31, 0x08, 0x00}, "function,changes,entity"},
    RowFacts{RowKind::internal, {0x11, 0x00, 0x00}, "function,changes,internal"},
    RowFacts{RowKind::statics, {0x18, 0x08, 0x00}, "function,static"},
    RowFacts{RowKind::literal, {0x88, 0x28, 0x00}, "literal"},
    RowFacts{RowKind::indexed, {0x01, 0x18, 0x00}, "view,indexed"},
    RowFacts{RowKind::memberMap, {0x01, 0x9C, 0x01}, "collection"},
    RowFacts{RowKind::notifying, {0x00, 0xDC, 0x01}, "mutable,notifies"},
    RowFacts{RowKind::readOnly, {0x00, 0x4C, 0x01}, "read-only,notifies"},
    RowFacts{RowKind::valueMap, {0x01, 0xDC, 0x01}, "collection,notifies"},
    RowFacts{RowKind::valueSet, {0x01, 0xDC, 0x09}, "set,notifies"},
    RowFacts{RowKind::children, {0x21, 0xDD, 0x01}, "collection,entities,instantiating,notifies"},
    RowFacts{RowKind::entries, {0x21, 0xDC, 0x01}, "collection,entities,notifies"},
    RowFacts{RowKind::readOnlyEntries, {0x21, 0x4C, 0x01}, "collection,entities,read-only"},
    RowFacts{RowKind::foreignEntries, {0x21, 0xDC, 0x15}, "collection,entities,foreign,notifies"},
    RowFacts{RowKind::foreign, {0x20, 0x5C, 0x11}, "foreign,notifies"},
    RowFacts{RowKind::table, {0x01, 0x5C, 0x01}, "table,notifies"},
    RowFacts{RowKind::control, {0x20, 0x5C, 0x01}, "control,notifies"},
};
constexpr RowFacts const& factsOf(RowKind kind) {
    return allRowFacts[static_cast<std::size_t>(kind)];
}
// Null for a combination of flags that does not occur.
constexpr RowFacts const* factsOf(AttributeRow const& row) {
    for (RowFacts const& facts : allRowFacts)
        if (facts.flags[0] == row.flags[0] && facts.flags[1] == row.flags[1] &&
            facts.flags[2] == row.flags[2])
            return &facts;
    return nullptr;
}
constexpr bool is(AttributeRow const& row, RowKind kind) {
    RowFacts const* const facts = factsOf(row);
    return facts != nullptr && facts->kind == kind;
}
static_assert([] {
    for (std::size_t i = 0; i < allRowFacts.size(); ++i)
        if (allRowFacts[i].kind != static_cast<RowKind>(i)) return false;
    return true;
}());

} // namespace Vomo
