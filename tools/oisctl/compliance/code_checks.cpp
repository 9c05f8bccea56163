// Codes beside those of the twenty requests: a kernel side that looks at a part of the code only would take
// them.

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <utility>

#include "compliance/examination.h"

namespace oisctl {

using phone::RequestInfo;

namespace {

constexpr int32_t kUnknown = -ENOTTY;
constexpr unsigned kNumbers = 32;  // from the first private one on, those of the requests among them

// What a code is answered with, if not as it should be.
std::string askUnknown(Examination& examination, SubDevice& device, const RequestInfo& request,
                       uint32_t code) {
    std::vector<std::byte> record = examination.harmlessRecord(device, request);
    record.resize(std::max<size_t>(record.size(), _IOC_SIZE(code)));
    const int32_t result = device.ask(code, record);
    return result == kUnknown ? "" : fmt::format("as 0x{:08X} {}", code, resultText(result));
}

Finding otherNumbers(Examination& examination) {
    SubDevice device(examination.subject());
    examination.setUp(device);
    std::vector<std::string> wrong;
    for (unsigned index = 0; index < kNumbers; ++index) {
        const unsigned number = BASE_VIDIOC_PRIVATE + index;
        const auto has = [number](const RequestInfo& request) { return _IOC_NR(request.code) == number; };
        if (std::ranges::any_of(phone::privateRequests(), has)) continue;
        const uint32_t code = _IOWR(ois::kRequestType, number, uint32_t);
        std::array<std::byte, sizeof(uint32_t)> word{};
        const int32_t result = device.ask(code, word);
        if (result != kUnknown) wrong.push_back(fmt::format("0x{:08X} {}", code, resultText(result)));
    }
    return wrong.empty() ? passed() : failed(shortened(std::move(wrong)), "ENOTTY");
}

Finding otherSizes(Examination& examination) {
    return examination.overRequests(
        anyRequest, "ENOTTY", [&](SubDevice& device, const RequestInfo& request) -> std::string {
            for (const uint32_t step : {uint32_t{0} - 1, uint32_t{1}}) {
                const uint32_t code = _IOC(_IOC_DIR(request.code), ois::kRequestType, _IOC_NR(request.code),
                                           (_IOC_SIZE(request.code) + step) & _IOC_SIZEMASK);
                std::string seen = askUnknown(examination, device, request, code);
                if (!seen.empty()) return seen;
            }
            return "";
        });
}

Finding otherDirections(Examination& examination) {
    return examination.overRequests(
        anyRequest, "ENOTTY", [&](SubDevice& device, const RequestInfo& request) -> std::string {
            for (const uint32_t direction : {_IOC_NONE, _IOC_WRITE, _IOC_READ, _IOC_READ | _IOC_WRITE}) {
                const uint32_t code =
                    _IOC(direction, ois::kRequestType, _IOC_NR(request.code), _IOC_SIZE(request.code));
                if (code == request.code) continue;
                std::string seen = askUnknown(examination, device, request, code);
                if (!seen.empty()) return seen;
            }
            return "";
        });
}

}  // namespace

std::vector<Check> codeChecks() {
    return {
        {"unknown codes", "other numbers", otherNumbers},
        {"unknown codes", "other sizes", otherSizes},
        {"unknown codes", "other directions", otherDirections},
    };
}

}  // namespace oisctl
