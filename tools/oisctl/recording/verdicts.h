#pragma once
// What a field engineer wants to hear about a recording: what is wrong in it, and in which lines.

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "recording/recording_stats.h"

namespace oisctl {

enum class VerdictKind {
    kLensStill,      // the lens does not move, and its target does
    kHallFrozen,     // the hall reads the very same while the target moves
    kAtLimit,        // the lens stays at its stop
    kTargetsFrozen,  // the target stays the very same while the gyro moves: an idle controller
    kGyroFrozen,     // all axes read the very same
    kGyroBias,       // the phone seems to turn all the time, and the target rests beside its middle
    kLost,
    kOutOfOrder,
    kRepeated,
    kUnanswered,
    kUnreadable,
    kCut,
    kSecondSession,
    kTimeJump,
    kRateOff,
    kOverLimit,  // of Limits
};

struct RecordingVerdict {
    VerdictKind kind;
    char axis = 0;        // 'x', 'y', or 0: no axis of its own
    Places places;        // where it shows
    double value = 0;     // what was measured; what it is, and its unit, depend on the kind
    double limit = 0;     // what it was measured against
    bool fault = true;    // false: so small or so usual that the recording is good all the same
    std::string about{};  // the figure that is over its limit; why the first line could not be read
};

// The greatest that a figure may be, either way and on either axis, by its key (axisFigures()).
using Limits = std::map<std::string, double>;

std::vector<RecordingVerdict> judge(const Recording& recording, const RecordingStats& stats,
                                    const Known& known, const Limits& limits = {});

// What the recording does not show either way.
struct NotTold {
    VerdictKind kind;
    char axis = 0;
    std::string why;  // "the target does not move"
};
std::vector<NotTold> notTold(const Recording& recording, const RecordingStats& stats, const Known& known);

// "lens_still": for programs, and one line for people.
const char* keyOf(VerdictKind kind);
std::string toText(const RecordingVerdict& verdict);

std::string toText(const NotTold& notTold);

// Whether none of them is a fault.
bool isGood(const std::vector<RecordingVerdict>& verdicts);

}  // namespace oisctl
