#pragma once
// The fuzzer's bytes, read from front to back as what the phone answers and what its caller does. Once they
// are used up every byte is 0, which everywhere stands for the usual answer.

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>

namespace fuzz {

class Script {
  public:
    Script(const uint8_t* data, size_t size) : mNext(data), mEnd(data + size) {}

    bool empty() const { return mNext == mEnd; }
    uint8_t byte() { return empty() ? 0 : *mNext++; }
    bool rarely() { return byte() >= 0xe0; }

    // One byte for what is small, five for any value.
    int32_t number(int32_t usual = 0) {
        const auto small = static_cast<int8_t>(byte());
        if (small == 0) return usual;
        if (small != kWide) return small == INT8_MIN ? 0 : small;
        int32_t value = 0;
        copy(&value, sizeof value);
        return value;
    }
    float real() {
        const bool wide = !empty() && *mNext == kWide;
        const int32_t value = number();
        return wide ? std::bit_cast<float>(value) : static_cast<float>(value);
    }

    // A pattern, repeated over all of `target`; an empty one leaves what is there.
    void fill(void* target, size_t size) {
        size_t length = byte();
        if (length == 0xff) length += 8U * byte();
        length = std::min(length, size);
        auto* bytes = static_cast<uint8_t*>(target);
        copy(bytes, length);
        if (length != 0)
            for (size_t i = length; i < size; ++i) bytes[i] = bytes[i - length];
    }

  private:
    static constexpr int8_t kWide = INT8_MAX;

    void copy(void* target, size_t size) {
        const size_t there = std::min(size, static_cast<size_t>(mEnd - mNext));
        if (there == 0) return;
        std::memcpy(target, mNext, there);
        mNext += there;
    }

    const uint8_t* mNext;
    const uint8_t* mEnd;
};

}  // namespace fuzz
