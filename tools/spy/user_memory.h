#pragma once
// Memory that a program hands to the kernel, and that may not be there: the kernel answers EFAULT then, and
// so must nothing here be touched.

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string_view>

namespace spy {

// Whether all of it may be read. `stack` is a place on the stack that is in use. errno is left as it was.
bool readable(const void* address, size_t size, const void* stack);

// The text there, up to its NUL or to where nothing can be read. errno is left as it was.
std::string_view readableText(const char* address);

// A copy of a record as a program hands it over; empty when there is none to be read.
class UserCopy {
  public:
    UserCopy(const void* address, size_t size, const void* stack);
    std::span<const uint8_t> bytes() const { return {mLarge ? mLarge.get() : mSpace.data(), mSize}; }

  private:
    static constexpr size_t kUsual = 2048;  // the largest record of the controller has 1704
    std::array<uint8_t, kUsual> mSpace;
    std::unique_ptr<uint8_t[]> mLarge;
    size_t mSize = 0;
};

}  // namespace spy
