#pragma once
// The two HIDL support types that a telemetry report needs.

#include <cstddef>
#include <string>

namespace android::hardware {

class hidl_string {
  public:
    hidl_string() = default;
    hidl_string(const char* text);         // NOLINT(google-explicit-constructor): as the platform's
    hidl_string(const std::string& text);  // NOLINT(google-explicit-constructor): as the platform's
    const char* c_str() const;
    size_t size() const;

  private:
    std::string mText;
};

template <typename T>
class Return;

// The transport status of a call that returns nothing.
template <>
class Return<void> {
  public:
    explicit Return(bool ok = true) : mOk(ok) {}
    bool isOk() const { return mOk; }

  private:
    bool mOk;
};

}  // namespace android::hardware
