#pragma once
// The two buffers of an open session, and how long they live.

#include <memory>
#include <mutex>
#include <utility>

#include "wire/records.h"

namespace ois {

// A status transfer names 60 bytes for its 56-byte record; a second record behind the first keeps them owned.
constexpr size_t kStatusRecords = 2;

struct SessionStorage {
    std::unique_ptr<OisStatusRecord[]> status{new OisStatusRecord[kStatusRecords]()};
    std::unique_ptr<OisFlashRecord[]> flash{new OisFlashRecord[1]()};
};

// A recorder or dump that is still running when the session closes keeps the storage it began with until it
// returns. The lock covers the handle alone, never a command.
class SessionBuffers {
  public:
    using Storage = std::shared_ptr<SessionStorage>;

    Storage hold() const {
        const std::lock_guard lock(mMutex);
        return mStorage;
    }

    // Puts `next` in place and runs `change` with it, so that members that point into the storage change with
    // it. Returns what was there.
    template <typename Change>
    Storage exchange(Storage next, Change&& change) {
        const std::lock_guard lock(mMutex);
        std::forward<Change>(change)(next);
        return std::exchange(mStorage, std::move(next));
    }

    // Runs `body` with the session's storage while nothing replaces it.
    template <typename Body>
    void look(Body&& body) const {
        const std::lock_guard lock(mMutex);
        std::forward<Body>(body)(mStorage);
    }

  private:
    mutable std::mutex mMutex;
    Storage mStorage;
};

inline OisFlashRecord* flashOf(const SessionBuffers::Storage& storage) {
    return storage ? storage->flash.get() : nullptr;
}

}  // namespace ois
