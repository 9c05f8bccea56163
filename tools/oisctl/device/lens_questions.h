#pragma once
// What a lens's node answers to the requests that read, beside what a module's description lets expect.

#include <cstdint>
#include <string>
#include <vector>

#include "modules/module_description.h"
#include "time/clock.h"
#include "trace/decode.h"

namespace oisctl {

struct ExpectedField {
    std::string name;  // of a field of the answer
    double least = 0;
    double greatest = 0;
};

// Where flash data came back: READ_FLASH carries a pointer to a buffer.
enum class FlashAnswer { kNone, kInPlace, kThroughPointer };

struct LensAnswer {
    const phone::RequestInfo* request = nullptr;
    int error = 0;       // errno of the request
    int64_t timeUs = 0;  // that it took
    FlashAnswer flash = FlashAnswer::kNone;
    std::vector<phone::Field> fields{};  // what came back; empty when it failed
    std::vector<ExpectedField> expected{};

    // Whether every expected field came back as expected.
    bool asExpected() const;
};

// Of a node of this machine's; empty where there is none.
struct NodeRights {
    std::string mode{};  // "rw-rw----"
    std::string owner{};
    std::string group{};
};

struct LensReport {
    int openError = 0;
    std::vector<LensAnswer> answers{};  // empty when it could not be opened
};

// Opens the node as the driver does, and asks. Nothing that is sent writes, or moves the lens.
LensReport askLens(const std::string& node, const phone::ModuleDescription& module, phone::Clock& clock);

NodeRights rightsOf(const std::string& node);

}  // namespace oisctl
