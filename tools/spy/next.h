#pragma once
// The functions that the process would have called without the spy.

#include <atomic>

#define SPY_EXPORT [[gnu::visibility("default")]]

namespace spy {

// Null when the process has no such function.
void* findNext(const char* symbol);

// A function of whatever the process loaded behind the spy. It is looked for when it is first called: the
// spy's own functions may be called before anything of it was initialised.
template <typename Function>
class Next {
  public:
    constexpr explicit Next(const char* symbol) : mSymbol(symbol) {}

    Function* get() {
        Function* found = mFound.load(std::memory_order_relaxed);
        if (found == nullptr) {
            found = reinterpret_cast<Function*>(findNext(mSymbol));
            mFound.store(found, std::memory_order_relaxed);
        }
        return found;
    }

    template <typename... Arguments>
    auto operator()(Arguments... arguments) {
        using Result = decltype(get()(arguments...));
        Function* const function = get();
        // Who only asked whether there is such a function found the spy's.
        return function != nullptr ? function(arguments...) : Result();
    }

  private:
    const char* const mSymbol;
    std::atomic<Function*> mFound{nullptr};
};

}  // namespace spy
