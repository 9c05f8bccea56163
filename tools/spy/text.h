#pragma once
// JSON text in a buffer of its own, without allocation.

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace spy {

// An object, member by member; `Size` is all that it may need. What does not fit makes it incomplete.
template <size_t Size>
class Text {
  public:
    std::string_view view() const { return {mSpace.data(), mLength}; }
    bool complete() const { return mComplete; }

    Text& raw(std::string_view text) {
        if (text.size() > Size - mLength) {
            mComplete = false;
            return *this;
        }
        std::memcpy(mSpace.data() + mLength, text.data(), text.size());
        mLength += text.size();
        return *this;
    }

    Text& number(std::integral auto value) { return plain(value); }

    Text& number(std::string_view key, std::integral auto value) { return name(key).plain(value); }

    // As many digits as lead back to the same value; what JSON has no number for is a string.
    Text& number(std::string_view key, float value) {
        if (std::isnan(value)) return text(key, "nan");
        if (std::isinf(value)) return text(key, value < 0 ? "-inf" : "inf");
        return name(key).plain(value);
    }

    Text& text(std::string_view key, std::string_view value) { return name(key).quoted(value); }

    // A word that needs no escapes.
    Text& word(std::string_view key, std::string_view value) {
        return name(key).raw("\"").raw(value).raw("\"");
    }

    Text& open(std::string_view key) { return name(key).raw("{"); }
    Text& close() { return raw("}"); }

  private:
    Text& name(std::string_view key) {
        const bool first = mLength == 0 || mSpace[mLength - 1] == '{';
        return raw(first ? "\"" : ",\"").raw(key).raw("\":");
    }

    template <typename Value>
    Text& plain(Value value) {
        const auto [end, error] = std::to_chars(mSpace.data() + mLength, mSpace.data() + Size, value);
        if (error != std::errc()) {
            mComplete = false;
        } else {
            mLength = static_cast<size_t>(end - mSpace.data());
        }
        return *this;
    }

    static bool isPlain(char c) {
        constexpr char kFirstPrintable = 0x20;  // what is no ASCII is negative, or behind the last
        constexpr char kLastAscii = 0x7f;
        return c >= kFirstPrintable && c <= kLastAscii && c != '"' && c != '\\';
    }

    Text& quoted(std::string_view value) {
        raw("\"");
        for (size_t begin = 0; begin < value.size();) {
            const auto end = std::find_if_not(value.begin() + begin, value.end(), isPlain);
            const auto plainOnes = static_cast<size_t>(end - value.begin()) - begin;
            raw(value.substr(begin, plainOnes));
            begin += plainOnes;
            if (begin < value.size()) escape(value[begin++]);
        }
        return raw("\"");
    }

    void escape(char c) {
        constexpr std::string_view kDigits = "0123456789abcdef";
        const auto code = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            raw("\\").raw({&c, 1});
        } else if (code > 0x7f) {
            raw("\\ufffd");  // the trace is plain ASCII, and a name in it a name that the platform made
        } else {
            const std::array<char, 2> digits = {kDigits[code >> 4U], kDigits[code & 0xfU]};
            raw("\\u00").raw({digits.data(), digits.size()});
        }
    }

    std::array<char, Size> mSpace;  // as far as mLength
    size_t mLength = 0;
    bool mComplete = true;
};

}  // namespace spy
