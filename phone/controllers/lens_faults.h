#pragma once
// The defects that faults give a lens.

#include <array>

#include "controllers/stabiliser.h"
#include "faults/faults.h"

namespace phone {

// One lens. Not thread-safe.
class LensFaults {
  public:
    explicit LensFaults(Faults& faults) : mFaults(faults) {}
    // Call at every command that moves the lens: that is what counts the faults' occurrences.
    void apply(Stabiliser& stabiliser);

  private:
    Faults& mFaults;
    std::array<LensDefect, 2> mDefects{};
};

}  // namespace phone
