#pragma once
// A phone whose every answer comes from the fuzzer's bytes: kernel, sensor hub, properties, customisation,
// files and threads. What a driver may not do, whatever the answers, ends the process.

#include <algorithm>
#include <bit>
#include <cstring>

#include "ois_drv.h"

namespace fuzz {

// Ends the process when `holds` does not.
inline void require(bool holds) {
    if (!holds) __builtin_trap();
}

// Bytes of the fuzzer. Once they are used up every byte is 0, which everywhere stands for the usual answer.
class Script {
  public:
    // Two scripts of one input are read from its two ends, so that a byte inserted in one does not move the
    // other.
    enum class From { kFront, kBack };
    Script(const uint8_t* data, size_t size, From from) : mNext(data), mEnd(data + size), mFrom(from) {}

    bool empty() const { return mNext == mEnd; }
    uint8_t byte() { return value<uint8_t>(); }
    bool rarely() { return byte() >= 0xe0; }

    // One byte for what is small, five for any value.
    int32_t number(int32_t usual = 0) {
        const auto small = value<int8_t>();
        if (small == INT8_MAX) return value<int32_t>();
        if (small == INT8_MIN) return 0;
        return small != 0 ? small : usual;
    }
    // Small values as numbers, others as bits.
    float real() {
        const int32_t bits = number();
        return bits == static_cast<int8_t>(bits) ? static_cast<float>(bits) : std::bit_cast<float>(bits);
    }

    // A pattern, repeated over all of `target`; an empty one leaves what is there.
    void fill(void* target, size_t size) {
        constexpr uint8_t kLong = 0xf0;
        const uint8_t head = byte();
        const size_t length =
            std::min<size_t>(size, head < kLong ? head % 8 : (head - kLong) * 256U + byte());
        auto* bytes = static_cast<uint8_t*>(target);
        copy(bytes, length);
        for (size_t i = length; length != 0 && i < size; ++i) bytes[i] = bytes[i - length];
    }

  private:
    template <typename T>
    T value() {
        T result = 0;
        copy(&result, sizeof result);
        return result;
    }
    void copy(void* target, size_t size) {
        const size_t there = std::min(size, static_cast<size_t>(mEnd - mNext));
        if (there == 0) return;
        if (mFrom == From::kBack) mEnd -= there;
        std::memcpy(target, mFrom == From::kBack ? mEnd : mNext, there);
        if (mFrom == From::kFront) mNext += there;
    }

    const uint8_t* mNext;
    const uint8_t* mEnd;
    From mFrom;
};

// Makes this the phone of the process, with a module behind the hub or not. Messages cost more than all else,
// so they are wanted only when `loud`.
void switchOn(Script answers, OISDrv& driver, bool hubWay, bool loud);
// Every descriptor and dump file must be closed and every thread joined.
void switchOff();
// A moment in which the driver's threads may run.
void pause();

}  // namespace fuzz
