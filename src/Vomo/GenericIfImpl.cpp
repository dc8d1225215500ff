#include "Vomo/GenericIf.h"

#include "Vomo/EntityFrame.h"
#include "Vomo/EnumType.h"
#include "Vomo/Hash.h"

namespace Vomo {
namespace {

std::vector<VomoModule const*>& registry() {
    static auto* const list = new std::vector<VomoModule const*>; // outlives every library
    return *list;
}

} // namespace

void vomoModuleIs(VomoModule const* module) {
    registry().push_back(module);
}
void vomoModuleDel(VomoModule const* module) {
    std::erase(registry(), module);
}
std::vector<VomoModule const*> const& modules() {
    return registry();
}

VomoType typeOfReference(VomoModule const* module, U16 reference) {
    if (reference >= 0x8000) return {};
    ReferenceRow const& row = module->referenceTable[reference];
    return {row.module, static_cast<U16>(row.index)};
}

VomoTypeBase VomoTypeBase::base() const {
    return typeOfReference(module, row().base);
}

bool VomoTypeBase::isDerived(VomoTypeBase type, VomoTypeBase base) {
    for (; !type.isNull(); type = type.base())
        if (type == base) return true;
    return false;
}

VomoType typeByName(std::string_view name) {
    for (VomoModule const* module : modules()) {
        // Names stand in order.
        U64 low = 0, high = module->numTypes;
        while (low < high) {
            VomoType const type{module, static_cast<U16>((low + high) / 2)};
            int const order = name.compare(type.name());
            if (order == 0) return type;
            (order < 0 ? high : low) = order < 0 ? U64{type.index} : U64{type.index} + 1;
        }
    }
    return {};
}

namespace {

template <class Test>
VomoAttr findAttribute(VomoType type, Test&& matches) {
    for (; !type.isNull(); type = type.base()) {
        TypeRow const& row = type.row();
        for (U16 i = 0; i < row.numAttributes; ++i)
            if (VomoAttr const attr{type.module, static_cast<U16>(row.firstAttribute + i)};
                matches(attr))
                return attr;
    }
    return {};
}

} // namespace

VomoAttr attrByName(VomoType type, std::string_view name) {
    return findAttribute(type, [&](VomoAttr attr) { return name == attr.name(); });
}
VomoAttr attrByNumber(VomoType type, U32 number) {
    return findAttribute(type, [&](VomoAttr attr) { return number == attr.attributeId(); });
}

char const* builtinName(Builtin builtin) {
    switch (builtin) {
    case Builtin::entity:
        return "Vomo::Entity";
    case Builtin::nothing:
        return "void";
    case Builtin::u8:
        return "U8";
    case Builtin::u16:
        return "U16";
    case Builtin::u32:
        return "U32";
    case Builtin::s32:
        return "S32";
    case Builtin::u64:
        return "U64";
    case Builtin::boolean:
        return "bool";
    case Builtin::string:
        return "Vomo::String";
    case Builtin::seconds:
        return "Vomo::Seconds";
    case Builtin::none:
        break;
    }
    return "unknown";
}

void throwDenseEnumBoolSetRangeException(VomoTypeBase type, U32 value) {
    throwRangeException(fmt::format("{}: {:#x} has bits that are no flag", type.name(), value));
}

void scalarIs(Row const& row, Entity* entity, void const* value) {
    if (row.set != nullptr) return row.set(entity, value);
    void* const field = const_cast<void*>(row.field(entity));
    if (row.type->equal(field, value)) return;
    row.type->assign(field, value);
    entity->notify(row.number);
}

namespace GenericIfImpl {

void throwUnhashableException(VomoType type) {
    Dunlin::fmthrow<UnhashableException>("{} has no hash", type.name());
}
void throwTypeException(VomoType type) {
    Dunlin::fmthrow<TypeException>("{} is not the type that was asked for, nor derived from it",
                                   type.name());
}
void throwSetFalseValueException(VomoAttr attr) {
    Dunlin::fmthrow<ArgumentException>("a member of the set {} cannot be false", attr.name());
}

void* voidPtrIs(void const* object, VomoType type, VomoType target) {
    auto* const pointer = static_cast<char*>(const_cast<void*>(object));
    if (type == target) return pointer;
    if (!VomoTypeBase::isDerived(type, target)) throwTypeException(type);
    if (type.isPolymorphic() == target.isPolymorphic()) return pointer;
    // The virtual table's word stands in front of the part that has none.
    PLAINASSERT(type.isPolymorphic(), "type.isPolymorphic()");
    PLAINASSERT(!target.isPolymorphic(), "!t.isPolymorphic()");
    return pointer + sizeof(void*);
}

U32 flagSetHash(U8 bits) {
    Hash hash(0);
    U32 const word = bits;
    hash.hashMix<4>(&word);
    return hash.result();
}

namespace {

U32 collectionOp(Row const& row, VomoAttr attr, void* out, void* object, AttributeOp op, void* a,
                 void* b) {
    CollectionOps const& coll = *row.collection;
    bool const isReadOnly = row.kind == RowKind::readOnlyEntries;
    if (isReadOnly && (op == AttributeOp::set || op == AttributeOp::del)) return 1;
    switch (op) {
    case AttributeOp::get: {
        void const* const found = coll.find(object, a);
        if (coll.child != nullptr)
            Impl::store(out, Ptr<Entity>(static_cast<Entity*>(const_cast<void*>(found))));
        else if (coll.value == nullptr)
            Impl::store(out, found != nullptr);
        else if (found == nullptr)
            coll.value->reset(out);
        else
            coll.value->assign(out, found);
        return 0;
    }
    case AttributeOp::set:
        if (coll.child == nullptr && coll.value == nullptr && b != nullptr &&
            !*static_cast<bool const*>(b))
            throwSetFalseValueException(attr);
        coll.set(object, a, b);
        return 0;
    case AttributeOp::del:
        coll.del(object, a);
        return 0;
    case AttributeOp::count:
        return Impl::store(out, coll.members(object)), 0;
    case AttributeOp::version:
        return Impl::store(out, coll.version(object)), 0;
    case AttributeOp::has:
        return Impl::store(out, coll.find(object, a) != nullptr), 0;
    default:
        return 1;
    }
}

} // namespace

U32 rowsOp(TypeHead const& head, std::span<Row const> rows, void* out, void* object, VomoAttr attr,
           AttributeOp op, void* a, void* b) {
    U32 const number = attr.attributeId();
    auto const found = std::lower_bound(rows.begin(), rows.end(), number,
                                        [](Row const& row, U32 n) { return row.number < n; });
    if (found == rows.end() || found->number != number) {
        if (head.base == nullptr || head.base->type.isNull()) return 2;
        VomoType const base = head.base->type;
        return base.module->genericTable[base.index].attributeOp(out, object, attr, op, a, b);
    }
    Row const& row = *found;
    if (row.collection != nullptr) return collectionOp(row, attr, out, object, op, a, b);
    if (row.op != nullptr) return row.op(out, object, op, a, b);
    switch (row.kind) {
    case RowKind::flag: {
        auto& bits = *static_cast<U8*>(object);
        if (op == AttributeOp::get) return Impl::store(out, (bits & row.literal) != 0), 0;
        if (op != AttributeOp::set) return 1;
        bits = static_cast<U8>(*static_cast<bool const*>(a) ? bits | row.literal
                                                            : bits & ~row.literal);
        return 0;
    }
    case RowKind::raw:
        if (op != AttributeOp::get) return 1;
        return Impl::store(out, *static_cast<U8 const*>(object)), 0;
    case RowKind::constant: // of a flag set
        if (op != AttributeOp::get) return 1;
        return Impl::store(out, static_cast<U8>(row.literal)), 0;
    case RowKind::owner:
        if (op != AttributeOp::get) return 1;
        return Impl::store(out, Ptr<Entity>(row.ownerOf(static_cast<Entity*>(object)))), 0;
    case RowKind::notifying:
        if (op == AttributeOp::set) {
            scalarIs(row, static_cast<Entity*>(object), a);
            return 0;
        }
        if (op != AttributeOp::get) return 1;
        row.type->assign(out, row.field(object));
        return 0;
    case RowKind::mutates:
        if (op == AttributeOp::set) {
            row.type->assign(const_cast<void*>(row.field(object)), a);
            return 0;
        }
        [[fallthrough]];
    case RowKind::ctor:
    case RowKind::readOnly:
        if (op != AttributeOp::get) return 1;
        row.type->assign(out, row.field(object));
        return 0;
    default:
        return 1;
    }
}

void constructFromRows(std::span<Row const> rows, void* to, void* const* args) {
    for (Row const& row : rows)
        if (row.kind == RowKind::ctor) row.type->assign(const_cast<void*>(row.field(to)), *args++);
}

template <class U>
U32 GenericIfEnumMethods<U>::genericIfAttributeOp(void* out, void* object, VomoAttr attr,
                                                  AttributeOp op, void* a, void*) {
    if (!attr.isNull()) {
        // One function serves all enums of a width, and cannot tell whose literal it is.
        if (!is(attr.row(), RowKind::literal)) return 2;
        if (op != AttributeOp::get) return 1;
        return Impl::store(out, static_cast<U>(attr.row().keyOrValue)), 0;
    }
    U const v = *static_cast<U const*>(object);
    switch (op) {
    case AttributeOp::truth:
        return Impl::store(out, v != 0), 0;
    case AttributeOp::equal:
        return Impl::store(out, v == *static_cast<U const*>(a)), 0;
    case AttributeOp::less:
        return Impl::store(out, v < *static_cast<U const*>(a)), 0;
    default:
        return 1;
    }
}

namespace {
template <class U>
struct EnumMethods {
    static void construct(void* to, void const* from) {
        *static_cast<U*>(to) = from != nullptr ? *static_cast<U const*>(from) : U{0};
    }
    static void destruct(void*) {}
    static U32 hash(void const* object, VomoType) { return *static_cast<U const*>(object); }
    static String strRep(void const* object, VomoType type) {
        return EnumType<U>::valueToStrep(type, *static_cast<U const*>(object));
    }
    static void strepToValue(void* to, String const& text, VomoType type) {
        CharRange range(text);
        U const v = EnumType<U>::sequenceToValue(range, type);
        range.checkAllDataConsumed();
        *static_cast<U*>(to) = v;
    }
    static void logWrite(NboAttrLog::Out& out, void const* object) {
        out << U32{*static_cast<U const*>(object)};
    }
    static void logRead(NboAttrLog::In* in, void* to) {
        *static_cast<U*>(to) = static_cast<U>(in->nextU32());
    }
};
} // namespace

// clang-format takes the class for a function.
// clang-format off
template <class U>
constinit ValueMethods const GenericIfEnumMethods<U>::vtable_{
    EnumMethods<U>::construct, EnumMethods<U>::destruct, EnumMethods<U>::hash, voidPtrIs, {},
    EnumMethods<U>::strRep, EnumMethods<U>::strepToValue, EnumMethods<U>::logWrite,
    EnumMethods<U>::logRead};
// clang-format on

namespace {
// An object is a Ptr<Entity>; its text is the entity's type and name.
struct EntityMethods {
    using P = Ptr<Entity>;
    static void construct(void* to, void const* from) {
        if (from != nullptr)
            new (to) P(*static_cast<P const*>(from));
        else
            new (to) P();
    }
    static void destruct(void* object) { static_cast<P*>(object)->~P(); }
    static U32 hash(void const*, VomoType type) { throwUnhashableException(type); }
    static String strRep(void const* object, VomoType) {
        auto const& entity = *static_cast<P const*>(object);
        if (!entity) return "None";
        return fmt::format("<{} {}>", entity->fwkType().name(), std::string_view(entity->name()));
    }
    static void strepToValue(void*, String const&, VomoType type) {
        Dunlin::fmthrow<NoImplementationException>("{} has no text form to read", type.name());
    }
};
} // namespace

// clang-format takes the class for a function.
// clang-format off
template <class T>
constinit ValueMethods const GenericIfPtrInterfaceMethods<T>::vtable_{
    EntityMethods::construct, EntityMethods::destruct, EntityMethods::hash, voidPtrIs,
    {}, EntityMethods::strRep, EntityMethods::strepToValue, nullptr, nullptr};
// clang-format on
template struct GenericIfPtrInterfaceMethods<Entity>;

template struct GenericIfEnumMethods<U8>;
template struct GenericIfEnumMethods<U32>;

} // namespace GenericIfImpl
} // namespace Vomo
