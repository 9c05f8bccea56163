#pragma once
// An intrusive strong pointer: the pointee counts its references.

#include <cstddef>
#include <utility>

namespace android {

template <typename T>
class sp {
  public:
    sp() = default;
    sp(T* object) : mObject(object) { acquire(); }  // NOLINT(google-explicit-constructor): as the platform's
    sp(const sp& other) : mObject(other.mObject) { acquire(); }
    sp(sp&& other) noexcept : mObject(std::exchange(other.mObject, nullptr)) {}
    ~sp() {
        if (mObject != nullptr) mObject->decStrong(this);
    }
    sp& operator=(sp other) noexcept {
        std::swap(mObject, other.mObject);
        return *this;
    }

    T* get() const { return mObject; }
    T* operator->() const { return mObject; }
    T& operator*() const { return *mObject; }
    explicit operator bool() const { return mObject != nullptr; }
    friend bool operator==(const sp& pointer, std::nullptr_t) { return pointer.mObject == nullptr; }

  private:
    void acquire() {
        if (mObject != nullptr) mObject->incStrong(this);
    }

    T* mObject = nullptr;
};

}  // namespace android
