#pragma once
// The two buffers of an open session, and how long they live.

#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "wire/commands.h"

namespace ois {

struct SessionStorage {
    StatusTransfer status{};
    OisFlashRecord flash{};
};

// Hands the buffers from session to session. A recorder or dump that still runs when its session closes keeps
// the storage it began with until it returns; and what an Init puts aside for a later one stays until the
// object ends, as whoever has its address may go on using it. The lock covers the handles alone, never a
// command, a sleep or a message.
class SessionBuffers {
  public:
    using Storage = std::shared_ptr<SessionStorage>;

    // The session's storage; storage of the caller's own when there is no session.
    Storage holdOrMake() const {
        const std::lock_guard lock(mMutex);
        return mStorage ? mStorage : std::make_shared<SessionStorage>();
    }

    // Puts `next` in place and runs `change`, so that members that point into the storage change with it.
    template <typename Change>
    void replace(Storage next, Change&& change) {
        const std::lock_guard lock(mMutex);
        if (mStorage) mEarlier.push_back(std::move(mStorage));
        mStorage = std::move(next);
        std::forward<Change>(change)();
    }

    // Takes the storage out, likewise; it lives for as long as the result.
    template <typename Change>
    Storage detach(Change&& change) {
        const std::lock_guard lock(mMutex);
        std::forward<Change>(change)();
        return std::exchange(mStorage, nullptr);
    }

    // Runs `body` with the session's storage, null when it has none, while nothing replaces it.
    template <typename Body>
    void look(Body&& body) const {
        const std::lock_guard lock(mMutex);
        std::forward<Body>(body)(mStorage);
    }

  private:
    mutable std::mutex mMutex;
    Storage mStorage;
    std::vector<Storage> mEarlier;
};

}  // namespace ois
