#pragma once
// A trace as a story: each call of the driver with what had changed before it and what it did, and what
// nobody needs to read twice folded.

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "trace/trace.h"

namespace oisctl {

// Why something was done: what is not as it was when it was looked at before.
struct Change {
    std::string what;    // a request's field, a property's key, "customisation"
    std::string before;  // empty: not known
    std::string after;
    uint64_t times = 1;
};

// What a thread did: a command, a sleep, the start of a thread, or anything that failed.
struct Step {
    std::vector<phone::Event> events{};  // in order; of the first time
    uint64_t times = 1;                  // in a row
    int64_t untilUs = 0;
    bool alike = true;  // whether every time sent the same bytes
};

struct Episode {
    int64_t fromUs = 0;
    int64_t untilUs = 0;
    uint32_t thread = 0;
    // The call, without its record; none: a thread that the driver started, or a program without a driver.
    std::optional<phone::Event> call{};
    std::optional<int64_t> result{};
    // Several calls of the kind, in a row: how many of each name, and which requests (SetOisParams, from 0).
    std::map<std::string, uint64_t> calls{};
    std::optional<uint64_t> firstRequest{};
    std::optional<uint64_t> lastRequest{};
    std::string startedBy{};  // of a thread: the call that did
    std::vector<Change> changes{};
    std::vector<Step> steps{};  // of a stretch of calls: each of them did these
    std::string reason{};       // why a call sent nothing, in the driver's words
    bool sentNothing() const;
    uint64_t callCount() const;
};

// By the time they begin. `fold`: stretches of calls that do the same become one episode, and what a thread
// does again and again one step.
std::vector<Episode> timeline(const std::vector<phone::Event>& events, bool fold);

}  // namespace oisctl
