// `cairn types` and `cairn type`: the types as their modules describe them.
#include "AnyValue.h"
#include "Commands.h"
#include "TableNames.h"

#include <dlfcn.h>
#include <fmt/format.h>

namespace Cairn {
namespace {

using namespace Vomo;

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

// Where an entity of `type` is mounted, for IPv4 or IPv6; empty if the type does not say. What the
// path takes besides the family stands in it in capitals.
std::string mountPath(VomoType type, bool v6) {
    VomoAttr const attr = attrByName(type, "mountPath");
    if (attr.isNull()) return {};
    bool const isFunction = is(attr.row(), RowKind::statics);
    std::vector<std::unique_ptr<AnyValue>> objects;
    String name = "NAME";
    std::vector<void*> args;
    for (U16 const* p = attr.module->parameterTable + 1 + 3 * attr.row().parameters; p[0] != 0;
         p += 3) {
        VomoType const parameter = typeOfReference(attr.module, p[1]);
        if (parameter.isNull()) {
            args.push_back(&name);
            continue;
        }
        objects.push_back(std::make_unique<AnyValue>(parameter));
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

Row typeRow(VomoType type) {
    TypeRow const& row = type.row();
    Row line;
    line.add("type", std::string(type.name()))
        .add("module", moduleName(type.module))
        .add("kind", kindName(type))
        .add("size", U64{row.size()})
        .add("attributes", U64{row.numAttributes});
    if (!type.isPolymorphic()) line.add("default", AnyValue(type).text());
    return line;
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
    std::unique_ptr<AnyValue> const object(type.isPolymorphic() ? nullptr : new AnyValue(type));
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
        if (row.kind == TypeKind::enumeration)
            line.add("value", U64{a.keyOrValue});
        else if (a.keyOrValue != 0xFFFF)
            line.add("key", nameOfReference(attr.module, a.keyOrValue));
        if (std::string const list = parameters(attr); !list.empty()) line.add("takes", list);
        bool const isConstant = is(a, RowKind::constant);
        if (object && row.kind != TypeKind::enumeration && (a.stored() || isConstant))
            if (auto value = object->attribute(attr))
                line.add(isConstant ? "value" : "default", *std::move(value));
        listing.print(line);
    }
    return done;
}

} // namespace Cairn
