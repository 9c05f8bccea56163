#pragma once
// What oisctl probe found: as tables for people, as one record for programs.

#include <algorithm>
#include <vector>

#include "base/report.h"
#include "device/driver_choice.h"
#include "device/lens_questions.h"

namespace oisctl {

// A module, and what the driver would find for it.
struct Candidate {
    phone::ModuleDescription module;
    DriverChoice choice;
    LensReport lens;    // of the lens that is taken
    NodeRights rights;  // of its node

    const WalkedEntity* entity() const { return choice.entity; }
    bool usable() const {
        return choice.entity != nullptr && lens.openError == 0 &&
               std::ranges::all_of(lens.answers, [](const LensAnswer& answer) { return answer.error == 0; });
    }
};

struct Probe {
    bool realKernel = false;
    std::vector<WalkedDevice> devices{};
    std::vector<Candidate> candidates{};  // at least one
    bool good() const;                    // there is a lens, and none that fails
};

Record recordOf(const Probe& probe);
void show(const Probe& probe);

}  // namespace oisctl
