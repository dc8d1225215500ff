// The attribute log's writer and reader of plain bytes: big endian, no padding.
#pragma once

#include "Vomo/Fwd.h"

#include <bit>
#include <cstring>
#include <span>

namespace Vomo {

class Entity;
// An entity on one connection, by the number that it was announced with; 0 is none.
enum class EntityId : U32 {};

namespace NboAttrLog {

class Demuxer;

// An integer, high byte first.
template <class Int>
Int bigEndian(Int v) {
    if constexpr (sizeof v == 8) return static_cast<Int>(__builtin_bswap64(v));
    if constexpr (sizeof v == 4) return static_cast<Int>(__builtin_bswap32(v));
    if constexpr (sizeof v == 2) return static_cast<Int>(__builtin_bswap16(v));
    return v;
}
template <class Int>
void putBigEndian(U8* at, Int v) {
    v = bigEndian(v);
    std::memcpy(at, &v, sizeof v);
}
template <class Int>
Int getBigEndian(U8 const* at) {
    Int v;
    std::memcpy(&v, at, sizeof v);
    return bigEndian(v);
}

// A growing run of bytes that values are written to.
class Out {
public:
    // `demuxer` is the connection that the bytes go over, which numbers entities.
    explicit Out(Demuxer* demuxer = nullptr) : demuxer_(demuxer) {}
    Out(Out const&) = delete;
    Out& operator=(Out const&) = delete;
    ~Out();

    Demuxer* demuxer() const { return demuxer_; }
    std::span<U8 const> bytes() const { return {begin_, next_}; }
    std::size_t size() const { return static_cast<std::size_t>(next_ - begin_); }
    void clear() { next_ = begin_; }
    // Drops the first `n` bytes.
    void discard(std::size_t n) {
        if (n != size()) std::memmove(begin_, begin_ + n, size() - n);
        next_ -= n;
    }
    void append(void const* data, std::size_t n) {
        if (n != 0) std::memcpy(room(n), data, n);
    }
    // Room for `n` bytes, which the caller fills.
    U8* room(std::size_t n) {
        if (static_cast<std::size_t>(end_ - next_) < n) [[unlikely]]
            grow(n);
        U8* const at = next_;
        next_ += n;
        return at;
    }
    template <class Int>
    void putInt(Int v) {
        putBigEndian(room(sizeof v), v);
    }

private:
    void grow(std::size_t n);

    U8* begin_ = nullptr;
    U8* next_ = nullptr;
    U8* end_ = nullptr;
    Demuxer* demuxer_;
};

inline Out& operator<<(Out& out, U8 v) {
    return out.putInt(v), out;
}
inline Out& operator<<(Out& out, U16 v) {
    return out.putInt(v), out;
}
inline Out& operator<<(Out& out, U32 v) {
    return out.putInt(v), out;
}
inline Out& operator<<(Out& out, S32 v) {
    return out.putInt(static_cast<U32>(v)), out;
}
inline Out& operator<<(Out& out, U64 v) {
    return out.putInt(v), out;
}
inline Out& operator<<(Out& out, bool v) {
    return out.putInt(static_cast<U8>(v)), out;
}
inline Out& operator<<(Out& out, Seconds v) {
    return out.putInt(std::bit_cast<U64>(v)), out;
}
Out& operator<<(Out& out, String const& v);

// Reads what Out wrote. Running out raises AttrLogRecordException.
class In {
public:
    explicit In(std::span<U8 const> bytes, Demuxer* demuxer = nullptr)
        : next_(bytes.data()), end_(bytes.data() + bytes.size()), demuxer_(demuxer) {}

    std::size_t remaining() const { return static_cast<std::size_t>(end_ - next_); }
    U8 nextU8() { return nextInt<U8>(); }
    U16 nextU16() { return nextInt<U16>(); }
    U32 nextU32() { return nextInt<U32>(); }
    S32 nextS32() { return static_cast<S32>(nextInt<U32>()); }
    U64 nextU64() { return nextInt<U64>(); }
    bool nextbool() { return nextInt<U8>() != 0; }
    Seconds nextSeconds() { return std::bit_cast<Seconds>(nextInt<U64>()); }
    String nextString();
    // Raises RangeException for a string of more than `max` bytes.
    String nextValidString(U32 max);
    // The entity whose number is next; null for none and for one that has gone. Raises for a number
    // that the connection has not announced.
    Entity* nextEntity();
    EntityId peekEntityId() const { return EntityId{In(*this).nextU32()}; }
    // The next `n` bytes as they stand.
    U8 const* take(std::size_t n) {
        if (remaining() < n) [[unlikely]]
            throwShort(n);
        U8 const* const at = next_;
        next_ += n;
        return at;
    }

private:
    template <class Int>
    Int nextInt() {
        return getBigEndian<Int>(take(sizeof(Int)));
    }
    [[noreturn]] void throwShort(std::size_t wanted) const;

    U8 const* next_;
    U8 const* end_;
    Demuxer* demuxer_;
};

// A key or value of a collection.
template <class T>
T next(In* in) {
    if constexpr (std::is_same_v<T, bool>)
        return in->nextbool();
    else if constexpr (std::is_integral_v<T>)
        return getBigEndian<T>(in->take(sizeof(T)));
    else
        return T(in, StreamBogon{});
}

// A value collection cannot be written beyond a member whose key is the end mark: traces that and
// returns, so that the end mark follows.
void failWithAttrLogValueCollectionDefaultKey();
// A value collection holds a key twice: raises AttrLogRecordException.
[[noreturn]] void failWithAttrLogValueCollectionDuplicateKey();

} // namespace NboAttrLog

inline NboAttrLog::Out& operator<<(NboAttrLog::Out& out, EntityId id) {
    return NboAttrLog::operator<<(out, static_cast<U32>(id));
}
// Its number on the connection that `out` goes over; 0 for null and one that the peer has not.
NboAttrLog::Out& operator<<(NboAttrLog::Out& out, Entity const* entity);
} // namespace Vomo
