// `cairn types`, `cairn type` and `cairn value`: the types as their modules describe them, and any
// value's text form read by the type that it names.
#include "Commands.h"
#include "TableNames.h"

#include "Bridging/VlanId.h"
#include "Kelpie/IpPrefix.h"
#include "Vomo/GenericIf.h"
#include "Vomo/PlacedRangeException.h"

#include <dlfcn.h>
#include <fmt/format.h>

#include <cstring>
#include <new>

namespace Cairn {
namespace {

using namespace Vomo;

// An object of a type known by its record alone.
class Object {
public:
    explicit Object(VomoType type)
        : type_(type), bytes_(::operator new(type.row().size(), std::align_val_t(16))) {
        std::memset(bytes_, 0, type.row().size());
        methods().construct(bytes_, nullptr);
    }
    ~Object() {
        methods().destruct(bytes_);
        ::operator delete(bytes_, std::align_val_t(16));
    }
    Object(Object const&) = delete;
    Object& operator=(Object const&) = delete;
    void* get() const { return bytes_; }
    std::string text() const { return methods().strRep(bytes_, type_); }
    void textIs(String const& text) { methods().strepToValue(bytes_, text, type_); }
    bool read(VomoAttr attr, void* out) const {
        return type_.module->genericTable[type_.index].attributeOp(
                   out, bytes_, attr, GenericIf::AttributeOp::get, nullptr, nullptr) == 0;
    }

private:
    ValueMethods const& methods() const { return *type_.module->genericTable[type_.index].methods; }
    VomoType type_;
    void* bytes_;
};

// The module's name is the first part of its record's symbol, "_Name_digest_vomoModule".
std::string moduleName(VomoModule const* module) {
    Dl_info info;
    if (::dladdr(module, &info) == 0 || info.dli_sname == nullptr) return "unknown";
    std::string_view const symbol(info.dli_sname + 1);
    return std::string(symbol.substr(0, symbol.find('_')));
}

std::string kindName(VomoType type) {
    switch (type.row().kind) {
    case TypeKind::value:
        return "value";
    case TypeKind::enumeration:
        return "enum";
    case TypeKind::flagSet:
        return "flags";
    case TypeKind::entity:
        return "entity";
    }
    return "unknown";
}

std::string nameOfReference(VomoModule const* module, U16 reference) {
    if (reference == 0xFFFF) return "none";
    if (Builtin const builtin = builtinOfCode(reference); builtin != Builtin::none)
        return builtinName(builtin);
    return typeOfReference(module, reference).name();
}

// The combinations of flag bytes that occur, in words.
std::string flagsInWords(AttributeRow const& row) {
    if (RowFacts const* const facts = factsOf(row)) return facts->words;
    return fmt::format("{:02x}:{:02x}:{:02x}", row.flags[0], row.flags[1], row.flags[2]);
}

std::string typeFlagsInWords(U8 flags) {
    std::string words;
    auto const add = [&](U8 flag, char const* word) {
        if (flags & flag) (words += words.empty() ? "" : ",") += word;
    };
    add(wrapper, "wrapper");
    add(wide, "wide");
    add(abstractMutators, "abstract");
    return words.empty() ? "none" : words;
}

// The attribute that a value prints bare; null if it has several, or a text of its own.
VomoAttr onlyStored(VomoType type) {
    VomoAttr only;
    for (VomoType t = type; !t.isNull(); t = t.base())
        for (U16 i = 0; i < t.row().numAttributes; ++i) {
            VomoAttr const attr{t.module, static_cast<U16>(t.row().firstAttribute + i)};
            if (!attr.row().stored()) continue;
            if (!only.isNull()) return {};
            only = attr;
        }
    return only;
}

// The value of a readable attribute: a number, a truth value or a text. False if the object has
// none: a VLAN of a target that names none.
bool readAttribute(Object const& object, VomoAttr attr, Row::Value& value) try {
    AttributeRow const& row = attr.row();
    auto const number = [&]<class Int>(Int v) {
        if (!object.read(attr, &v)) return false;
        value = static_cast<U64>(v);
        return true;
    };
    switch (builtinOfCode(row.type)) {
    case Builtin::u8:
        return number(U8{});
    case Builtin::u16:
        return number(U16{});
    case Builtin::u32:
        return number(U32{});
    case Builtin::s32:
        return number(S32{});
    case Builtin::u64:
        return number(U64{});
    case Builtin::boolean: {
        bool v = false;
        if (!object.read(attr, &v)) return false;
        value = v;
        return true;
    }
    case Builtin::string: {
        String v;
        if (!object.read(attr, &v)) return false;
        value = std::string(v);
        return true;
    }
    case Builtin::seconds: {
        Seconds v = 0;
        if (!object.read(attr, &v)) return false;
        value = v;
        return true;
    }
    case Builtin::none: {
        VomoType const type = typeOfReference(attr.module, row.type);
        if (type.isNull() || type.isPolymorphic()) return false;
        Object field(type);
        if (!object.read(attr, field.get())) return false;
        VomoAttr const only = onlyStored(type);
        if (!only.isNull()) return readAttribute(field, only, value);
        value = field.text();
        return true;
    }
    default:
        return false;
    }
} catch (RangeException const&) {
    return false;
}

// Where an entity of `type` is mounted, for IPv4 or IPv6; empty if the type does not say. What the
// path takes besides the family stands in it in capitals.
std::string mountPath(VomoType type, bool v6) {
    VomoAttr const attr = attrByName(type, "mountPath");
    if (attr.isNull()) return {};
    bool const isFunction = is(attr.row(), RowKind::statics);
    std::vector<std::unique_ptr<Object>> objects;
    String name = "NAME";
    std::vector<void*> args;
    for (U16 const* p = attr.module->parameterTable + 1 + 3 * attr.row().parameters; p[0] != 0;
         p += 3) {
        VomoType const parameter = typeOfReference(attr.module, p[1]);
        if (parameter.isNull()) {
            args.push_back(&name);
            continue;
        }
        objects.push_back(std::make_unique<Object>(parameter));
        bool const isFamily = std::string_view(parameter.name()) == "Kelpie::AddressFamily";
        objects.back()->textIs(isFamily ? v6 ? "2" : "1" : "'VRF'");
        args.push_back(objects.back()->get());
    }
    if (v6 && args.empty()) return {};
    String path;
    auto const op = isFunction ? GenericIf::AttributeOp::call : GenericIf::AttributeOp::get;
    type.module->genericTable[type.index].attributeOp(&path, nullptr, attr, op, args.data(),
                                                      nullptr);
    return path;
}

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

Row typeRow(VomoType type) {
    TypeRow const& row = type.row();
    Row line;
    line.add("type", std::string(type.name()))
        .add("module", moduleName(type.module))
        .add("kind", kindName(type))
        .add("size", U64{row.size()})
        .add("attributes", U64{row.numAttributes});
    if (!type.isPolymorphic()) line.add("default", Object(type).text());
    return line;
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

// "vlanId:Bridging::VlanId,ethAddr:Kelpie::EthAddr"
std::string parameters(VomoAttr attr) {
    std::string text;
    for (U16 const* p = attr.module->parameterTable + 1 + 3 * attr.row().parameters; p[0] != 0;
         p += 3) {
        if (!text.empty()) text += ',';
        text += attr.module->attributeNames + p[0];
        text += ':' + nameOfReference(attr.module, p[1]);
    }
    return text;
}

} // namespace

int typesCommand(Common const& common, std::string const& module) {
    Listing listing = common.listing();
    for (VomoModule const* m : modules()) {
        if (!module.empty() && moduleName(m) != module) continue;
        for (U16 i = 0; i < m->numTypes; ++i) listing.print(typeRow({m, i}));
    }
    if (listing.rows() != 0) return done;
    std::string known;
    for (VomoModule const* m : modules()) {
        if (moduleName(m) == module) return nothingMatched; // it has no types yet
        known += (known.empty() ? "" : ", ") + moduleName(m);
    }
    throw CommandError(badUse,
                       fmt::format("no module \"{}\"; there are {}", printable(module), known));
}

int typeCommand(Common const& common, std::string const& name) {
    VomoType const type = wantedType(name);
    Listing listing = common.listing();
    TypeRow const& row = type.row();
    Row head = typeRow(type);
    head.add("alignment", U64{row.alignment()})
        .add("flags", typeFlagsInWords(row.flags))
        .add("base", nameOfReference(type.module, row.base));
    if (std::string const path = mountPath(type, false); !path.empty())
        head.add("mount_path", path);
    if (std::string const path = mountPath(type, true); !path.empty())
        head.add("mount_path6", path);
    listing.print(head);
    std::unique_ptr<Object> const object(type.isPolymorphic() ? nullptr : new Object(type));
    // Its own attributes, then those of its bases.
    std::vector<VomoAttr> attributes;
    for (VomoType t = type; !t.isNull(); t = t.base())
        for (U16 i = 0; i < t.row().numAttributes; ++i)
            attributes.push_back({t.module, static_cast<U16>(t.row().firstAttribute + i)});
    for (std::size_t i = 0; i < attributes.size(); ++i) {
        VomoAttr const attr = attributes[i];
        AttributeRow const& a = attr.row();
        Row line;
        line.add("attribute", std::string(attr.name()))
            .add("number", U64{a.number})
            .add("is", flagsInWords(a))
            .add("stored", a.stored())
            .add("of", nameOfReference(attr.module, a.type));
        if (i >= row.numAttributes) line.add("inherited", true);
        Row::Value value;
        if (row.kind == TypeKind::enumeration)
            line.add("value", U64{a.keyOrValue});
        else if (a.keyOrValue != 0xFFFF)
            line.add("key", nameOfReference(attr.module, a.keyOrValue));
        if (std::string const list = parameters(attr); !list.empty()) line.add("takes", list);
        bool const isConstant = is(a, RowKind::constant);
        if (object && row.kind != TypeKind::enumeration && (a.stored() || isConstant) &&
            readAttribute(*object, attr, value))
            line.add(isConstant ? "value" : "default", std::move(value));
        listing.print(line);
    }
    return done;
}

namespace {

// The compact route key's parser takes what it was given for its own output and ends the process on
// anything else: what comes from a user is read by the frame first, with the same parts.
void checkRouteKeyText(std::string const& text) {
    CharRange range(text);
    auto const part = [&]<class T>(char const* name, T*) {
        range.needString(fmt::format(", '{}': ", name));
        CharRange const at = range;
        deserializePlacedAttr<T>(range, name);
        if (range.position() - at.position() > 63) at.throwWanted("at most 63 characters");
    };
    constexpr Bridging::VlanId* vlan = nullptr;
    constexpr Kelpie::EthAddr* mac = nullptr;
    constexpr Kelpie::Prefix* prefix = nullptr;
    constexpr U16* number = nullptr;
    range.needString("Value('Routing::Multicast::Fib::IpGenRouteKey', ** {'kind': ");
    if (range.haveString("'vlanFloodset'") || range.haveString("'multicastFloodset'") ||
        range.haveString("'vxlanCoreSideFloodset'"))
        part("vlanId", vlan);
    else if (range.haveString("'ethGroup'"))
        part("vlanId", vlan), part("ethGroup", mac);
    else if (range.haveString("'mcastGroup'"))
        part("kind", number), part("index", number);
    else if (range.haveString("'mroute'"))
        part("s", prefix), part("g", prefix);
    else if (!range.haveString("'unknownRouteKeyType'"))
        range.throwWanted("a kind of route key that is read back");
    range.needString("})");
    range.checkAllDataConsumed();
}

// It or a value in it: such a type's text says nothing of the members, and its parser ends the process.
bool holdsCollection(VomoType type) {
    for (U16 i = 0; i < type.row().numAttributes; ++i) {
        VomoAttr const attr{type.module, static_cast<U16>(type.row().firstAttribute + i)};
        VomoType const of = typeOfReference(attr.module, attr.row().type);
        if (is(attr.row(), RowKind::memberMap)) return true;
        if (is(attr.row(), RowKind::mutates) && !of.isNull() && holdsCollection(of)) return true;
    }
    return false;
}

constexpr char const* compactKeyHead = "Value('Routing::Multicast::Fib::IpGenRouteKey'";

// The type that a text names: "Value('Name', ** {...})".
VomoType typeNamedBy(std::string const& text) {
    constexpr std::string_view head = "Value('";
    if (!text.starts_with(head))
        throw CommandError(badUse, "at character 0: wanted \"Value('\" and a type's name; for a "
                                   "bare text name its type with --type");
    std::size_t const end = text.find('\'', head.size());
    if (end == text.npos)
        throw CommandError(badUse, fmt::format("at character {}: wanted \"'\"", text.size()));
    // The compact key prints under the name of the general one.
    if (text.starts_with(compactKeyHead)) return wantedType("Routing::Multicast::Fib::RouteKey");
    std::string const name = text.substr(head.size(), end - head.size());
    VomoType const type = typeByName(name);
    if (type.isNull())
        throw CommandError(badUse, fmt::format("at character {}: wanted the name of a type, found "
                                               "\"{}\"",
                                               head.size(), printable(name)));
    return type;
}

} // namespace

int valueCommand(Common const& common, std::string const& text, std::string const& typeName) {
    VomoType const type = typeName.empty() ? typeNamedBy(text) : wantedType(typeName);
    if (type.isPolymorphic())
        throw CommandError(badUse,
                           fmt::format("{} is an entity, which has no text form", type.name()));
    if (holdsCollection(type))
        throw CommandError(
            badUse, fmt::format("{} holds a collection, which has no text form", type.name()));
    Object object(type);
    try {
        if (type == typeByName("Routing::Multicast::Fib::RouteKey")) checkRouteKeyText(text);
        object.textIs(String(text));
    } catch (PlacedRangeException const& e) {
        throw CommandError(badUse, fmt::format("{}: at character {}: {}", type.name(), e.position(),
                                               printable(e.what())));
    } catch (RangeException const& e) { // of a value that is one number
        throw CommandError(badUse,
                           fmt::format("{}: at character 0: {}", type.name(), printable(e.what())));
    } catch (Vomo::Exception const& e) {
        throw CommandError(badUse, fmt::format("{}: {}", type.name(), printable(e.what())));
    }
    if (!common.json) {
        fmt::print("{}\n", printable(object.text()));
        return done;
    }
    Listing listing = common.listing();
    Row line;
    line.add("type", std::string(type.name())).add("text", object.text());
    // A derived value's attributes are its base's too.
    for (VomoType t = type; !t.isNull() && t.row().kind != TypeKind::enumeration; t = t.base())
        for (U16 i = 0; i < t.row().numAttributes; ++i) {
            VomoAttr const attr{t.module, static_cast<U16>(t.row().firstAttribute + i)};
            U8 const* const flags = attr.row().flags;
            // Of the class, not of the value; or of one of its members.
            if (flags[0] != 0) continue;
            Row::Value value;
            if (readAttribute(object, attr, value))
                line.add(snakeCase(attr.name()), std::move(value));
        }
    listing.print(line);
    return done;
}

} // namespace Cairn
