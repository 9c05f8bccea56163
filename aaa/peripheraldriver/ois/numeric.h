#pragma once
// Conversions that stay defined where the language leaves them open.

#include <cmath>
#include <cstdint>
#include <limits>

namespace ois {

// Truncates toward zero; out of range saturates, not-a-number gives 0.
template <typename Float>
int32_t toInt32(Float value) {
    using Limits = std::numeric_limits<int32_t>;
    if (std::isnan(value)) return 0;
    // -2^31 is exact in either type; 2^31 is the first value past the range.
    constexpr auto kBeyond = static_cast<Float>(2147483648.0);
    if (value >= kBeyond) return Limits::max();
    if (value < -kBeyond) return Limits::min();
    return static_cast<int32_t>(value);
}

constexpr int32_t wrappingMultiply(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) * static_cast<uint32_t>(b));
}
constexpr int32_t wrappingSubtract(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) - static_cast<uint32_t>(b));
}
// |value| with the one value that has no positive counterpart left as it is.
constexpr int32_t wrappingAbs(int32_t value) {
    return value < 0 ? wrappingSubtract(0, value) : value;
}

}  // namespace ois
