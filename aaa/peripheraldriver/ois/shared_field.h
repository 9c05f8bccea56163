#pragma once
// Access to the driver's plain fields where two threads share one.
//
// A field that one thread may write while another reads it is read with loadShared and written with
// storeShared. A record of such fields is copied as a whole with snapshot and publish, but word by word: a
// copy that is taken while another thread publishes may hold some words of the old version and some of the
// new. Whoever takes it can live with that, as a plain read could be torn no less. A field that only one
// thread ever writes may be read plainly by that same thread.

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <type_traits>
#include <utility>

namespace ois {

template <typename T>
T loadShared(const T& field) {
    // atomic_ref has no const form before C++26; a load writes nothing.
    return std::atomic_ref<T>(const_cast<T&>(field)).load(std::memory_order_acquire);
}

template <typename T>
void storeShared(T& field, std::type_identity_t<T> value) {
    std::atomic_ref<T>(field).store(value, std::memory_order_release);
}

// A shared pointer as a field. The library's own atomic functions for plain shared pointers, which hold the
// pointee for as long as the copy lives.
template <typename T>
std::shared_ptr<T> loadShared(const std::shared_ptr<T>& field) {
    return std::atomic_load(&field);
}

// Returns what was there.
template <typename T>
std::shared_ptr<T> exchangeShared(std::shared_ptr<T>& field, std::shared_ptr<T> value) {
    return std::atomic_exchange(&field, std::move(value));
}

template <typename Unit>
void copyFromShared(void* copy, const void* shared, size_t size) {
    using Aliased [[gnu::may_alias]] = Unit;  // whatever the types of the fields
    for (size_t at = 0; at < size; at += sizeof(Unit)) {
        const auto* source = reinterpret_cast<const Aliased*>(static_cast<const char*>(shared) + at);
        const auto unit = __atomic_load_n(source, __ATOMIC_RELAXED);
        std::memcpy(static_cast<char*>(copy) + at, &unit, sizeof unit);
    }
}

template <typename Unit>
void copyToShared(void* shared, const void* value, size_t size) {
    using Aliased [[gnu::may_alias]] = Unit;
    for (size_t at = 0; at < size; at += sizeof(Unit)) {
        Unit unit;
        std::memcpy(&unit, static_cast<const char*>(value) + at, sizeof unit);
        __atomic_store_n(reinterpret_cast<Aliased*>(static_cast<char*>(shared) + at), unit, __ATOMIC_RELAXED);
    }
}

// Records are copied in words where their alignment allows.
template <typename Record, typename Unit>
constexpr bool kCopiesBy = alignof(Record) >= sizeof(Unit) && sizeof(Record) % sizeof(Unit) == 0;

template <typename Record>
Record snapshot(const Record& shared) {
    static_assert(std::is_trivially_copyable_v<Record>);
    Record copy;
    if constexpr (kCopiesBy<Record, uint64_t>) {
        copyFromShared<uint64_t>(&copy, &shared, sizeof copy);
    } else if constexpr (kCopiesBy<Record, uint32_t>) {
        copyFromShared<uint32_t>(&copy, &shared, sizeof copy);
    } else {
        copyFromShared<uint8_t>(&copy, &shared, sizeof copy);
    }
    return copy;
}

template <typename Record>
void publish(Record& shared, const std::type_identity_t<Record>& value) {
    static_assert(std::is_trivially_copyable_v<Record>);
    if constexpr (kCopiesBy<Record, uint64_t>) {
        copyToShared<uint64_t>(&shared, &value, sizeof value);
    } else if constexpr (kCopiesBy<Record, uint32_t>) {
        copyToShared<uint32_t>(&shared, &value, sizeof value);
    } else {
        copyToShared<uint8_t>(&shared, &value, sizeof value);
    }
}

template <typename Element, size_t kSize>
std::array<Element, kSize> snapshot(const Element (&shared)[kSize]) {
    std::array<Element, kSize> copy;
    for (size_t i = 0; i < kSize; ++i) copy[i] = loadShared(shared[i]);
    return copy;
}

template <typename Element, size_t kSize>
void publish(Element (&shared)[kSize], const std::array<Element, kSize>& value) {
    for (size_t i = 0; i < kSize; ++i) storeShared(shared[i], value[i]);
}

}  // namespace ois
