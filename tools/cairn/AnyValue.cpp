#include "AnyValue.h"

#include "TableNames.h"

#include <fmt/format.h>

#include <cstring>
#include <new>

namespace Cairn {

using namespace Vomo;

VomoType wantedType(std::string const& name) {
    VomoType const type = typeByName(name);
    if (!type.isNull()) return type;
    std::string alike;
    for (VomoModule const* m : modules())
        for (U16 i = 0; i < m->numTypes; ++i)
            if (std::string const full = VomoType{m, i}.name(); full.ends_with("::" + name))
                alike += (alike.empty() ? "; did you mean " : " or ") + full;
    throw CommandError(badUse, fmt::format("no type \"{}\"{}", printable(name),
                                           alike.empty() ? "; `cairn types` lists them" : alike));
}

std::string snakeCase(std::string_view name) {
    std::string text;
    for (char const c : name) {
        if (c >= 'A' && c <= 'Z')
            (text += '_') += static_cast<char>(c - 'A' + 'a');
        else
            text += c;
    }
    return text;
}

namespace {

GenericRow const& genericOf(VomoType type) {
    return type.module->genericTable[type.index];
}

template <class Visit>
void eachAttribute(VomoType type, Visit&& visit) {
    for (VomoType t = type; !t.isNull(); t = t.base())
        for (U16 i = 0; i < t.row().numAttributes; ++i)
            visit(VomoAttr{t.module, static_cast<U16>(t.row().firstAttribute + i)});
}

// The attribute that a value prints bare; null if it has several, or a text of its own.
VomoAttr onlyStored(VomoType type) {
    VomoAttr only;
    U32 count = 0;
    eachAttribute(type, [&](VomoAttr attr) {
        if (attr.row().stored() && count++ == 0) only = attr;
    });
    return count == 1 ? only : VomoAttr{};
}

bool isEntityOrNothing(VomoModule const* module, U16 reference) {
    Builtin const builtin = builtinOfCode(reference);
    if (builtin != Builtin::none) return builtin == Builtin::entity || builtin == Builtin::nothing;
    VomoType const type = typeOfReference(module, reference);
    return type.isNull() || type.isPolymorphic();
}

// Storage for what a reference of a record means: a builtin or a value.
class Field {
public:
    Field(VomoModule const* module, U16 reference) : builtin_(builtinOfCode(reference)) {
        if (builtin_ == Builtin::none)
            object_ = std::make_unique<AnyValue>(typeOfReference(module, reference));
    }
    void* get() {
        if (object_) return object_->get();
        return builtin_ == Builtin::string ? static_cast<void*>(&text_) : word_;
    }
    Row::Value shown() const {
        switch (builtin_) {
        case Builtin::u8:
            return U64{word<U8>()};
        case Builtin::u16:
            return U64{word<U16>()};
        case Builtin::u32:
            return U64{word<U32>()};
        case Builtin::s32:
            return static_cast<U64>(word<S32>());
        case Builtin::u64:
            return word<U64>();
        case Builtin::boolean:
            return word<bool>();
        case Builtin::seconds:
            return word<Seconds>();
        case Builtin::string:
            return std::string(text_);
        default:
            break;
        }
        if (VomoAttr const only = onlyStored(object_->type()); !only.isNull())
            if (auto value = object_->attribute(only)) return *std::move(value);
        if (!holdsCollection(object_->type())) return object_->text();
        // The text would leave the members out.
        Row row;
        for (auto& [attr, shown] : object_->attributes())
            row.add(snakeCase(attr.name()), std::move(shown));
        return Row::Rows{std::move(row)};
    }

private:
    template <class T>
    T word() const {
        T v;
        std::memcpy(&v, word_, sizeof v);
        return v;
    }

    Builtin builtin_;
    alignas(8) U8 word_[8] = {};
    String text_;
    std::unique_ptr<AnyValue> object_;
};

} // namespace

bool holdsCollection(VomoType type) {
    bool holds = false;
    eachAttribute(type, [&](VomoAttr attr) {
        AttributeRow const& row = attr.row();
        holds |= is(row, RowKind::memberMap) ||
                 (row.stored() && !isEntityOrNothing(attr.module, row.type) &&
                  builtinOfCode(row.type) == Builtin::none &&
                  holdsCollection(typeOfReference(attr.module, row.type)));
    });
    return holds;
}

AnyValue::AnyValue(VomoType type)
    : type_(type), bytes_(::operator new(type.row().size(), std::align_val_t(16))) {
    std::memset(bytes_, 0, type.row().size());
    methods().construct(bytes_, nullptr);
}
AnyValue::~AnyValue() {
    methods().destruct(bytes_);
    ::operator delete(bytes_, std::align_val_t(16));
}
ValueMethods const& AnyValue::methods() const {
    return *genericOf(type_).methods;
}

Row::Rows AnyValue::members(VomoAttr collection) const {
    GenericIfRaw::Iterator::IteratorVTable const* walk = nullptr;
    void* const at = genericOf(type_).iterator(bytes_, nullptr, collection, &walk);
    Row::Rows members;
    for (; walk->iterNonnull(collection, at); walk->iterInc(collection, at)) {
        Field key(collection.module, collection.row().keyOrValue);
        Field value(collection.module, collection.row().type);
        walk->iterKey(collection, at, key.get());
        walk->iterObj(collection, at, value.get());
        members.push_back(Row().add("key", key.shown()).add("value", value.shown()));
    }
    walk->iterDel(collection, at);
    return members;
}

std::optional<Row::Value> AnyValue::attribute(VomoAttr attr) const try {
    AttributeRow const& row = attr.row();
    if (is(row, RowKind::memberMap)) return members(attr);
    if (isEntityOrNothing(attr.module, row.type)) return std::nullopt;
    Field field(attr.module, row.type);
    if (genericOf(type_).attributeOp(field.get(), bytes_, attr, GenericIf::AttributeOp::get,
                                     nullptr, nullptr) != 0)
        return std::nullopt;
    return field.shown();
} catch (Vomo::Exception const&) {
    return std::nullopt;
}

std::vector<AnyValue::Shown> AnyValue::attributes() const {
    std::vector<Shown> list;
    if (type_.row().kind == TypeKind::enumeration) return list;
    eachAttribute(type_, [&](VomoAttr attr) {
        // What has flags here is of the class, or of one member, or a function.
        if (attr.row().flags[0] != 0 && !is(attr.row(), RowKind::memberMap)) return;
        if (auto value = attribute(attr)) list.push_back({attr, *std::move(value)});
    });
    return list;
}

} // namespace Cairn
