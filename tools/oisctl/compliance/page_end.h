#pragma once
// Memory that tells what a kernel touches of it.

#include <cstddef>
#include <span>

namespace oisctl {

// A page that may be written, and another behind it that may not.
class PageEnd {
  public:
    enum class Behind { kNothing, kReadOnly };

    explicit PageEnd(Behind behind);
    ~PageEnd();
    PageEnd(const PageEnd&) = delete;
    PageEnd& operator=(const PageEnd&) = delete;

    // A copy of the record, of which the last `beyond` bytes lie in the page behind; where nothing is, they
    // are left out. Valid until the next one.
    std::byte* put(std::span<const std::byte> record, size_t beyond);
    // Whether any byte of the first page in front of the record has changed since.
    bool frontTouched() const;

  private:
    const size_t mPageSize;
    const Behind mBehind;
    std::byte* mPages = nullptr;
    std::byte* mRecord = nullptr;
};

}  // namespace oisctl
