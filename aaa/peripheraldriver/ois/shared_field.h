#pragma once
// Access to the plain fields that workers and caller share without a lock.
//
// A field that several threads touch while one of them writes is read with loadShared and written with
// storeShared; a record of such fields is copied word by word with snapshot and publish, where a copy may mix
// two versions of it.

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

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

// The unit in which a record is copied: words where its alignment allows, else bytes.
template <typename Record>
using CopyUnit =
    std::conditional_t<alignof(Record) >= alignof(uint64_t) && sizeof(Record) % sizeof(uint64_t) == 0,
                       uint64_t, std::conditional_t<alignof(Record) >= alignof(uint32_t), uint32_t, uint8_t>>;

template <typename Record>
Record snapshot(const Record& shared) {
    static_assert(std::is_trivially_copyable_v<Record>);
    using Unit = CopyUnit<Record>;
    std::array<Unit, sizeof(Record) / sizeof(Unit)> units;
    auto* source = reinterpret_cast<Unit*>(const_cast<Record*>(&shared));
    for (size_t i = 0; i < units.size(); ++i) {
        units[i] = std::atomic_ref<Unit>(source[i]).load(std::memory_order_relaxed);
    }
    Record copy;
    std::memcpy(&copy, units.data(), sizeof copy);
    return copy;
}

template <typename Record>
void publish(Record& shared, const std::type_identity_t<Record>& value) {
    static_assert(std::is_trivially_copyable_v<Record>);
    using Unit = CopyUnit<Record>;
    std::array<Unit, sizeof(Record) / sizeof(Unit)> units;
    std::memcpy(units.data(), &value, sizeof value);
    auto* target = reinterpret_cast<Unit*>(&shared);
    for (size_t i = 0; i < units.size(); ++i) {
        std::atomic_ref<Unit>(target[i]).store(units[i], std::memory_order_relaxed);
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
