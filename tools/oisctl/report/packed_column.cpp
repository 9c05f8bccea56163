#include "report/packed_column.h"

#include <array>
#include <nlohmann/json.hpp>
#include <string_view>

namespace oisctl {

namespace {

std::string base64(std::string_view bytes) {
    constexpr std::string_view kDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    constexpr size_t kBytes = 3;
    std::string text;
    text.reserve((bytes.size() / kBytes + 1) * 4);
    for (size_t at = 0; at < bytes.size(); at += kBytes) {
        const std::string_view group = bytes.substr(at, kBytes);
        uint32_t bits = 0;
        for (size_t i = 0; i < kBytes; ++i)
            bits = bits << 8 | (i < group.size() ? static_cast<uint8_t>(group[i]) : 0U);
        for (size_t i = 0; i <= kBytes; ++i)
            text += i <= group.size() ? kDigits[bits >> (18 - 6 * i) & 63] : '=';
    }
    return text;
}

}  // namespace

void PackedColumn::addNumber(int64_t value) {
    const int64_t step = value - mLast;
    mLast = value;
    const auto twice = static_cast<uint64_t>(step) << 1;
    append((step < 0 ? ~twice : twice) + 1);
}

void PackedColumn::addNone() {
    append(0);
}

void PackedColumn::append(uint64_t code) {
    constexpr uint64_t kGoesOn = 0x80;
    for (; code >= kGoesOn; code >>= 7) mBytes += static_cast<char>((code & (kGoesOn - 1)) | kGoesOn);
    mBytes += static_cast<char>(code);
    ++mCount;
}

nlohmann::ordered_json PackedColumn::json() const {
    return {{"count", mCount}, {"bytes", base64(mBytes)}};
}

}  // namespace oisctl
