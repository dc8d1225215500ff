#include "Vomo/NboAttrLog.h"

#include "Dunlin/Trace.h"
#include "Vomo/Exception.h"

#include <cstdlib>
#include <new>

namespace Vomo::NboAttrLog {

Out::~Out() {
    std::free(begin_);
}

void Out::grow(std::size_t n) {
    std::size_t const used = size();
    std::size_t const capacity = std::max<std::size_t>(2 * (used + n), 256);
    auto* const bytes = static_cast<U8*>(std::realloc(begin_, capacity));
    if (bytes == nullptr) throw std::bad_alloc();
    begin_ = bytes;
    next_ = bytes + used;
    end_ = bytes + capacity;
}

Out& operator<<(Out& out, String const& v) {
    out << v.bytes();
    out.append(v.data(), v.size());
    return out;
}

void In::throwShort(std::size_t wanted) const {
    Dunlin::fmthrow<AttrLogRecordException>("attribute log ends: wanted {} bytes, {} are left",
                                            wanted, remaining());
}

String In::nextString() {
    U32 const size = nextU32();
    return String(std::string_view(reinterpret_cast<char const*>(take(size)), size));
}

String In::nextValidString(U32 max) {
    String text = nextString();
    if (text.bytes() > max) throwRangeException("Vomo::String::bytes > maxLength() not allowed");
    return text;
}

void failWithAttrLogValueCollectionDefaultKey() {
    static auto const& handler = *Dunlin::Platform::getDebugHandler("NboAttrLog", false);
    FMTRACE(handler, 0, "a collection ends at a member whose key is the end mark");
}
void failWithAttrLogValueCollectionDuplicateKey() {
    throw AttrLogRecordException("a collection in the attribute log holds a key twice");
}

} // namespace Vomo::NboAttrLog
