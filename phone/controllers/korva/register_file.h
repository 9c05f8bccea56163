#pragma once
// The chip's registers: bytes by address, in values of 1, 2 or 4 bytes, little-endian. Behind the last one,
// reads are 0 and writes are lost.

#include <algorithm>
#include <array>
#include <cstdint>
#include <type_traits>

#include "wire/registers.h"

namespace phone {

class KorvaRegisterFile {
  public:
    void clear() { mBytes.fill(0); }

    uint32_t load(uint32_t at, uint32_t byteCount) const {
        uint32_t value = 0;
        for (uint32_t i = 0; i < reach(at, byteCount); ++i) value |= uint32_t{mBytes[at + i]} << (kBits * i);
        return value;
    }
    void store(uint32_t at, uint32_t byteCount, uint32_t value) {
        for (uint32_t i = 0; i < reach(at, byteCount); ++i)
            mBytes[at + i] = static_cast<uint8_t>(value >> (kBits * i));
    }

    template <typename Value>
    Value get(ois::korva::RegisterOf<Value> reg) const {
        return ois::korva::fromWord<Value>(load(reg.address, sizeof(Value)));
    }
    template <typename Value>
    void set(ois::korva::RegisterOf<Value> reg, std::type_identity_t<Value> value) {
        store(reg.address, sizeof value, ois::korva::toWord(value));
    }

  private:
    static constexpr uint32_t kSpace = 0x600;
    static constexpr unsigned kBits = 8;

    // How many of the bytes there are.
    static uint32_t reach(uint32_t at, uint32_t byteCount) {
        if (at >= kSpace) return 0;
        return std::min({byteCount, kSpace - at, static_cast<uint32_t>(sizeof(uint32_t))});
    }

    std::array<uint8_t, kSpace> mBytes{};
};

}  // namespace phone
