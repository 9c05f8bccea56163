#pragma once
// What `record` knows and the driver's own file cannot say, in two files beside it: FILE.about.json, and,
// where the motion is simulated, FILE.true-motion.txt with a row for each of the recording's.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "motion/motion.h"
#include "recording/recording_stats.h"

namespace oisctl {

struct Sidecar {
    // That the controller took, up to the last row.
    struct ModeChange {
        double timeS = 0;  // the phone's clock; the simulated controller's, too
        int32_t mode = 0;
        bool operator==(const ModeChange&) const = default;
    };
    std::string module{};
    std::string way{};  // "hub", "sub-device"
    std::vector<ModeChange> modes{};
    std::vector<std::pair<std::string, std::string>> properties{};
    std::string motion{};  // empty: it was not simulated
    uint64_t seed = 0;
    std::optional<double> limitAngle{};         // as the module's description has it
    std::optional<double> gyroCountsPerRadS{};  // likewise, what is raw in the recording
    std::optional<double> accCountsPerMS2{};
    int32_t intervalMs = 0;                     // 0: as fast as it went
    std::optional<uint32_t> firmwareVersion{};  // empty: of a controller that nobody asked
};

// Writes both files. `source`: the motion that was simulated; null where it was not. Throws JobError.
void writeSidecar(const Recording& recording, const Sidecar& sidecar,
                  const std::shared_ptr<const phone::MotionSource>& source);

struct FoundSidecar {
    std::string file;
    std::string whyNot;  // it was not used; empty: it was
    Known known;
    Sidecar about{};  // as it was written
};
// Nothing where none stands beside the recording. One that belongs to another recording, or cannot be read,
// is not used, and says why.
std::optional<FoundSidecar> findSidecar(const Recording& recording);

}  // namespace oisctl
