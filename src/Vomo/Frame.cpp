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

// A flag set is one byte at the object's start; its rows are the bits in order.
bool flagOf(std::span<Row const> rows, Row const& row, void const* object) {
    return *static_cast<U8 const*>(object) >> (&row - rows.data()) & 1;
}
void flagIs(std::span<Row const> rows, Row const& row, void* object, bool on) {
    auto& bits = *static_cast<U8*>(object);
    auto const bit = static_cast<U8>(1U << (&row - rows.data()));
    bits = static_cast<U8>(on ? bits | bit : bits & ~bit);
}
void appendField(String& text, std::span<Row const> rows, Row const& row, void const* object) {
    if (row.kind == RowKind::flag)
        text += valueToStrep(flagOf(rows, row, object));
    else
        row.type->print(text, row.field(object));
}
void parseField(CharRange& range, std::span<Row const> rows, Row const& row, void* object) {
    if (row.kind == RowKind::flag)
        flagIs(rows, row, object, deserializeAttr<bool>(range, row.name));
    else
        row.type->parse(range, const_cast<void*>(row.field(object)), row.name);
}

} // namespace

void appendText(String& text, char const* typeName, std::span<Row const> rows, void const* object) {
    if (!anyStored(rows)) return;
    if (Row const* only = onlyStored(rows)) return appendField(text, rows, *only, object);
    text.append("Value('").append(typeName).append("', ** {");
    char const* separator = "'";
    for (Row const& row : rows) {
        if (!row.stored) continue;
        text.append(separator).append(row.name).append("': ");
        appendField(text, rows, row, object);
        separator = ", '";
    }
    text += "})";
}

void parseRows(CharRange& range, char const* typeName, std::span<Row const> rows, void* object) {
    if (!anyStored(rows)) return;
    if (Row const* only = onlyStored(rows)) return parseField(range, rows, *only, object);
    String lead = String("Value('").append(typeName).append("', ** {");
    range.needString(lead);
    char const* separator = "'";
    for (Row const& row : rows) {
        if (!row.stored) continue;
        lead.assign(separator).append(row.name).append("': ");
        range.needString(lead);
        U32 const position = range.position();
        try {
            parseField(range, rows, row, object);
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
