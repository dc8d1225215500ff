#include "Vomo/Frame.h"

#include "Vomo/PlacedRangeException.h"

namespace Vomo {
namespace {

// A type with one stored attribute prints it bare.
Row const* onlyStored(std::span<Row const> rows) {
    Row const* only = nullptr;
    for (Row const& row : rows) {
        if (!row.stored) continue;
        if (only != nullptr) return nullptr;
        only = &row;
    }
    return only;
}

bool anyStored(std::span<Row const> rows) {
    for (Row const& row : rows)
        if (row.stored) return true;
    return false;
}

// A flag set is one byte at the object's start.
bool flagOf(Row const& row, void const* object) {
    return (*static_cast<U8 const*>(object) & row.literal) != 0;
}
void flagIs(Row const& row, void* object, bool on) {
    auto& bits = *static_cast<U8*>(object);
    bits = static_cast<U8>(on ? bits | row.literal : bits & ~row.literal);
}
void appendField(String& text, Row const& row, void const* object) {
    if (row.kind == RowKind::flag)
        text += valueToStrep(flagOf(row, object));
    else
        row.form().print(text, row.field(object));
}
void parseField(CharRange& range, Row const& row, void* object) {
    if (row.kind == RowKind::flag)
        flagIs(row, object, deserializeAttr<bool>(range, row.name));
    else
        row.form().parse(range, const_cast<void*>(row.field(object)), row.name);
}

} // namespace

void appendText(String& text, char const* typeName, std::span<Row const> rows, void const* object) {
    if (!anyStored(rows)) return;
    if (Row const* only = onlyStored(rows)) return appendField(text, *only, object);
    text.append("Value('").append(typeName).append("', ** {");
    char const* separator = "'";
    for (Row const& row : rows) {
        if (!row.stored) continue;
        text.append(separator).append(row.name).append("': ");
        appendField(text, row, object);
        separator = ", '";
    }
    text += "})";
}

void parseRows(CharRange& range, char const* typeName, std::span<Row const> rows, void* object) {
    if (!anyStored(rows)) return;
    if (Row const* only = onlyStored(rows)) return parseField(range, *only, object);
    String lead = String("Value('").append(typeName).append("', ** {");
    range.needString(lead);
    char const* separator = "'";
    for (Row const& row : rows) {
        if (!row.stored) continue;
        lead.assign(separator).append(row.name).append("': ");
        range.needString(lead);
        U32 const position = range.position();
        try {
            parseField(range, row, object);
        } catch (PlacedRangeException const&) {
            throw;
        } catch (RangeException const& ex) {
            throw PlacedRangeException(ex.what(), position);
        }
        separator = ", '";
    }
    range.needString("})");
}

void writeFlags(NboAttrLog::Out& out, void const* flags) {
    out << U32{*static_cast<U8 const*>(flags)};
}
void readFlags(NboAttrLog::In* in, void* flags, U8 definedBits) {
    *static_cast<U8*>(flags) = static_cast<U8>(in->nextU32() & definedBits);
}

} // namespace Vomo
