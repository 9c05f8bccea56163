// Whether each of the twenty requests is known and answered.

#include <algorithm>

#include "compliance/examination.h"

namespace oisctl {

using ois::Request;
using phone::RequestInfo;

namespace {

Finding isAnswered(Examination& examination, const RequestInfo& request) {
    SubDevice device(examination.subject());
    examination.setUp(device);
    std::vector<std::byte> record = examination.harmlessRecord(device, request);
    const int32_t result = device.ask(request.code, record);
    if (result < 0) return failed(resultText(result), "0");
    examination.noteAnswered(Request{request.code});
    return passed();
}

}  // namespace

std::vector<Check> requestChecks() {
    std::vector<Check> checks;
    for (const RequestInfo& request : phone::privateRequests()) {
        const Request code{request.code};
        checks.push_back(
            {.group = "requests",
             .name = std::string(request.name),
             .run = [&request](Examination& e) { return isAnswered(e, request); },
             .needsModule = code == Request::kSetCustomisation || code == Request::kUpdateFirmware,
             .writes = requestWritesCalibration(request.code)});
        // What is there already is written.
        if (code == Request::kWriteGain) checks.back().needs = {Request::kReadGain};
    }
    // The request that reads gains stands before the one that writes them, and the last one of a session at
    // the end.
    std::stable_partition(checks.begin(), checks.end(),
                          [](const Check& check) { return check.needs.empty(); });
    std::stable_partition(checks.begin(), checks.end(),
                          [](const Check& check) { return check.name != "END_SESSION"; });
    return checks;
}

}  // namespace oisctl
