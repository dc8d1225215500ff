// The verbs by which shared memory is read and written. Nobody else spells a memory ordering, and
// nobody touches a shared word as a plain variable: the compiler could hoist a load out of a retry
// loop, split a store, or swap two.
//
//   publish, observe    release store, acquire load of an aligned 4- or 8-byte word
//   peek, poke          relaxed load, store: ordered by something else, named beside the call
//   storesStayBefore    earlier stores show before later ones
//   loadsStayBefore     earlier loads are done before later ones
//   copyBytes           raw copy of a value; the version word beside it finds a torn one
//   prefetch,           ask ahead for memory that will be read, or stored to; of no effect but on
//   prefetchToStore     the time
//
// On x86-64 each of the first four is one mov and the two fences are nothing, so the writer's path
// holds no locked instruction and no fence instruction; a check disassembles the objects.
//
// A release store holds back what came before it, not what comes after. Where data is overwritten
// after the word that announces it, storesStayBefore() stands between the two.
#pragma once

#include "Dunlin/Types.h"
#include "SharedMem/StepHooks.h"

#include <atomic>
#include <bit>
#include <cstring>
#include <type_traits>

namespace Mem {

template <class T>
concept SharedWord = std::is_trivially_copyable_v<T> &&
    (sizeof(T) == 4 || sizeof(T) == 8 || sizeof(T) == 2 || sizeof(T) == 1);

namespace Detail {
template <std::size_t size>
struct WordOf;
template <>
struct WordOf<1> {
    using Type = U8;
};
template <>
struct WordOf<2> {
    using Type = U16;
};
template <>
struct WordOf<4> {
    using Type = U32;
};
template <>
struct WordOf<8> {
    using Type = U64;
};
template <class T>
using Word = typename WordOf<sizeof(T)>::Type;

// A struct of two halves (a slot link, a version with its value) travels as the one word it is.
template <SharedWord T>
Word<T>& asWord(T& word) {
    return reinterpret_cast<Word<T>&>(word);
}
template <SharedWord T>
T loadWord(T const& word, std::memory_order order) {
    auto& raw = const_cast<Word<T>&>(reinterpret_cast<Word<T> const&>(word));
    return std::bit_cast<T>(std::atomic_ref<Word<T>>(raw).load(order));
}
template <SharedWord T>
void storeWord(T& word, T value, std::memory_order order) {
    std::atomic_ref<Word<T>>(asWord(word)).store(std::bit_cast<Word<T>>(value), order);
}
} // namespace Detail

// Release store of a whole aligned word.
template <SharedWord T>
inline void publish(T& word, std::type_identity_t<T> value) {
    StepHooks::store();
    StepHooks::ordered(&word, sizeof word, StepHooks::Order::release);
    Detail::storeWord(word, value, std::memory_order_release);
}

// Acquire load of a whole aligned word.
template <SharedWord T>
inline T observe(T const& word) {
    StepHooks::load();
    return Detail::loadWord(word, std::memory_order_acquire);
}

// Relaxed load and store; what orders them is named where they are used.
template <SharedWord T>
inline T peek(T const& word) {
    StepHooks::load();
    return Detail::loadWord(word, std::memory_order_relaxed);
}
template <SharedWord T>
inline void poke(T& word, std::type_identity_t<T> value) {
    StepHooks::store();
    StepHooks::ordered(&word, sizeof word, StepHooks::Order::relaxed);
    Detail::storeWord(word, value, std::memory_order_relaxed);
}

// Earlier stores show before later stores.
inline void storesStayBefore() {
    StepHooks::ordered(nullptr, 0, StepHooks::Order::fence);
    std::atomic_thread_fence(std::memory_order_release);
}
// Earlier loads are done before later loads.
inline void loadsStayBefore() {
    std::atomic_thread_fence(std::memory_order_acquire);
}

// Two adjacent 4-byte words written by one 8-byte store although they are only 4-aligned. Nobody
// reads the pair as a unit, so a plain store is enough; it lies within one cache line and is one
// mov on x86-64.
inline void pokePair(U32& first, U32 firstValue, U32 secondValue) {
    StepHooks::store();
    StepHooks::ordered(&first, 2 * sizeof first, StepHooks::Order::relaxed);
#if defined(CAIRN_SANITIZED) || defined(CAIRN_STEP_HOOKS)
    std::atomic_ref<U32>(first).store(firstValue, std::memory_order_relaxed);
    std::atomic_ref<U32>(*(&first + 1)).store(secondValue, std::memory_order_relaxed);
#else
    struct __attribute__((packed, may_alias)) Pair {
        U64 value;
    };
    reinterpret_cast<Pair volatile*>(&first)->value = firstValue | U64{secondValue} << 32;
#endif
}

// Copies a value's bytes into or out of shared memory. Torn copies happen and are found by the
// version word that brackets the copy. `size` is a multiple of 4. In ordinary builds a plain copy
// between compiler barriers; in sanitizer and step-hook builds relaxed words, so that a sanitizer
// sees no false race.
inline void copyBytes(void* to, void const* from, std::size_t size) {
#if defined(CAIRN_SANITIZED) || defined(CAIRN_STEP_HOOKS)
    auto* target = static_cast<U32*>(to);
    auto* source = const_cast<U32*>(static_cast<U32 const*>(from));
    for (std::size_t i = 0; i < size / 4; ++i) {
        StepHooks::copyStep();
        StepHooks::ordered(&target[i], sizeof target[i], StepHooks::Order::copied);
        U32 const word = std::atomic_ref<U32>(source[i]).load(std::memory_order_relaxed);
        std::atomic_ref<U32>(target[i]).store(word, std::memory_order_relaxed);
    }
#else
    std::atomic_signal_fence(std::memory_order_seq_cst);
    std::memcpy(to, from, size);
    std::atomic_signal_fence(std::memory_order_seq_cst);
#endif
}

inline constexpr std::size_t cacheLine = 64;

// Asks for all cache lines of `bytes` bytes.
inline void prefetch(void const* address, std::size_t bytes = 1) {
    auto const* const at = static_cast<char const*>(address);
    for (std::size_t line = 0; line < bytes; line += cacheLine) __builtin_prefetch(at + line);
    if (bytes > 1) __builtin_prefetch(at + bytes - 1);
}
// As their owner, so that the stores wait for no other processor. (The compiler's own prefetch with
// intent to write is one for reading on plain x86-64.)
inline void prefetchToStore(void const* address, std::size_t bytes = 1) {
#ifdef __x86_64__
    auto const ask = [](char const* at) { asm volatile("prefetchw %0" : : "m"(*at)); };
#else
    auto const ask = [](char const* at) { __builtin_prefetch(at, 1); };
#endif
    auto const* const at = static_cast<char const*>(address);
    for (std::size_t line = 0; line < bytes; line += cacheLine) ask(at + line);
    if (bytes > 1) ask(at + bytes - 1);
}

} // namespace Mem
