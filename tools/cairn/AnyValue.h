// Values of types that are known by their records alone: made, read from text or from the attribute
// log, and shown attribute by attribute.
#pragma once

#include "Output.h"

#include "Vomo/GenericIf.h"

#include <memory>
#include <optional>

namespace Cairn {

// Raises CommandError, with the names that are alike, if there is no such type.
Vomo::VomoType wantedType(std::string const& name);

// True if a value of the type, or a value stored in it, holds a collection: its text says nothing of the
// members, and the type's parser ends the process.
bool holdsCollection(Vomo::VomoType type);

// "vlanId" as "vlan_id".
std::string snakeCase(std::string_view name);

// An object of a value type; of an entity type there is none.
class AnyValue {
public:
    explicit AnyValue(Vomo::VomoType type);
    ~AnyValue();
    AnyValue(AnyValue const&) = delete;
    AnyValue& operator=(AnyValue const&) = delete;

    Vomo::VomoType type() const { return type_; }
    void* get() const { return bytes_; }
    std::string text() const { return methods().strRep(bytes_, type_); }
    // Raises as the type's parser does.
    void textIs(Vomo::String const& text) { methods().strepToValue(bytes_, text, type_); }
    // Raises as the type's reader does, and changes nothing then.
    void logIs(Vomo::NboAttrLog::In* in) { methods().logRead(in, bytes_); }
    // A number, a truth value, a text, or the members of a collection. Nothing if the object has no such
    // value: a VLAN of a target that names none, a group of a tunnel of another kind.
    std::optional<Row::Value> attribute(Vomo::VomoAttr attr) const;
    // All that can be shown of it, those of its bases included.
    struct Shown {
        Vomo::VomoAttr attr;
        Row::Value value;
    };
    std::vector<Shown> attributes() const;

private:
    Vomo::ValueMethods const& methods() const;
    Row::Rows members(Vomo::VomoAttr collection) const;

    Vomo::VomoType type_;
    void* bytes_;
};

} // namespace Cairn
