#pragma once
// The phone of this process for the length of a call from outside.

#include "phone.h"

namespace phone {

// Every entry point takes one; ~Phone waits until none is left.
class PhoneInUse {
  public:
    // Empty when there is no phone, and unless `wanted`.
    explicit PhoneInUse(bool wanted = true);
    ~PhoneInUse();
    PhoneInUse(const PhoneInUse&) = delete;
    PhoneInUse& operator=(const PhoneInUse&) = delete;

    explicit operator bool() const { return mPhone != nullptr; }
    Phone& operator*() const { return *mPhone; }
    Phone* operator->() const { return mPhone; }

  private:
    Phone* const mPhone;
};

}  // namespace phone
