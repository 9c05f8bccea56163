// What a request moves: as many bytes as its code says, both ways, and EFAULT where it cannot.

#include <fmt/format.h>

#include <algorithm>

#include "compliance/examination.h"
#include "compliance/page_end.h"

namespace oisctl {

using ois::Request;
using phone::RequestInfo;
using Behind = PageEnd::Behind;

namespace {

bool comesBack(const RequestInfo& request) {
    return (_IOC_DIR(request.code) & _IOC_READ) != 0;
}
// A kernel side that is right does these requests several times over; a firmware update is not among them.
bool mayBeRepeated(const RequestInfo& request) {
    return Request{request.code} != Request::kUpdateFirmware;
}
bool repeatedlyComesBack(const RequestInfo& request) {
    return comesBack(request) && mayBeRepeated(request);
}
bool onlyGoesIn(const RequestInfo& request) {
    return !comesBack(request);
}

constexpr int32_t kBadAddress = -EFAULT;

std::string unless(int32_t expected, int32_t result) {
    return result == expected ? "" : resultText(result);
}

// With the last `beyond` bytes of the record in a page of that kind; ~0: all of them.
Finding withRecordBeyond(Examination& examination, bool (*chosen)(const RequestInfo&), Behind behind,
                         size_t beyond) {
    PageEnd page(behind);
    return examination.overRequests(chosen, "EFAULT", [&](SubDevice& device, const RequestInfo& request) {
        const auto record = examination.harmlessRecord(device, request);
        std::byte* const user = page.put(record, std::min(beyond, record.size()));
        return unless(kBadAddress, device.askAt(request.code, user));
    });
}

constexpr size_t kWhole = ~size_t{0};

Finding nullPointer(Examination& examination) {
    return examination.overRequests(anyRequest, "EFAULT", [](SubDevice& device, const RequestInfo& request) {
        return unless(kBadAddress, device.askAt(request.code, nullptr));
    });
}

Finding nothingOutside(Examination& examination) {
    PageEnd page(Behind::kNothing);
    return examination.overRequests(mayBeRepeated, "nothing outside the record is touched",
                                    [&](SubDevice& device, const RequestInfo& request) -> std::string {
                                        const auto record = examination.harmlessRecord(device, request);
                                        const int32_t result =
                                            device.askAt(request.code, page.put(record, 0));
                                        if (result < 0) return resultText(result) + " at the end of a page";
                                        if (page.frontTouched()) return "wrote in front of it";
                                        // A kernel that does not look at the result of its second copy is
                                        // seen here only.
                                        std::vector<std::byte> roomy = record;
                                        roomy.resize(record.size() + kSlack, std::byte{kGuardByte});
                                        device.askAt(request.code, roomy.data());
                                        const auto behind = std::span(roomy).subspan(record.size());
                                        return std::ranges::all_of(behind, isGuard) ? "" : "wrote behind it";
                                    });
}

// A request that is answered would need the memory for writing.
Finding callersRecordKept(Examination& examination) {
    PageEnd page(Behind::kReadOnly);
    return examination.overRequests(
        onlyGoesIn, "0, and the record as it was",
        [&](SubDevice& device, const RequestInfo& request) -> std::string {
            const auto record = examination.harmlessRecord(device, request);
            if (const int32_t result = device.askAt(request.code, page.put(record, record.size()));
                result < 0)
                return resultText(result) + " for a record in read-only memory";
            auto writable = record;
            device.ask(request.code, writable);
            return writable == record ? "" : "wrote to it";
        });
}

bool readsRecord(const RequestInfo& request) {
    return request.reads && Request{request.code} != Request::kReadFlash;
}

// Which bytes of the record no field has.
std::vector<bool> reservedBytes(const RequestInfo& request) {
    std::vector<bool> reserved(phone::recordSize(request), true);
    for (const phone::RecordField& field : request.record->fields)
        std::fill_n(reserved.begin() + static_cast<std::ptrdiff_t>(field.offset), field.size, false);
    return reserved;
}

Finding reservedKept(Examination& examination) {
    return examination.overRequests(
        readsRecord, "reserved bytes are kept, or 0",
        [&](SubDevice& device, const RequestInfo& request) -> std::string {
            const std::vector<bool> reserved = reservedBytes(request);
            auto record = examination.harmlessRecord(device, request);
            for (size_t i = 0; i < record.size(); ++i)
                if (reserved[i]) record[i] = std::byte{kGuardByte};
            if (const int32_t result = device.ask(request.code, record); result < 0)
                return resultText(result);
            for (size_t i = 0; i < record.size(); ++i) {
                if (!reserved[i] || isGuard(record[i]) || record[i] == std::byte{0}) continue;
                return fmt::format("byte {} is 0x{:02x}", i, std::to_integer<unsigned>(record[i]));
            }
            return "";
        });
}

}  // namespace

std::vector<Check> recordChecks() {
    const auto beyond = [](bool (*chosen)(const RequestInfo&), Behind behind, size_t bytes) {
        return [=](Examination& e) { return withRecordBeyond(e, chosen, behind, bytes); };
    };
    return {
        {"records", "all of it goes in", beyond(anyRequest, Behind::kNothing, 1)},
        {"records", "all of it comes back", beyond(repeatedlyComesBack, Behind::kReadOnly, 1)},
        {"records", "nothing outside it is touched", nothingOutside},
        {"records", "what only goes in is left alone", callersRecordKept},
        {"records", "reserved bytes", reservedKept},
        {"pointers", "null", nullPointer},
        {"pointers", "unmapped memory", beyond(anyRequest, Behind::kNothing, kWhole)},
        {"pointers", "read-only memory for an answer",
         beyond(repeatedlyComesBack, Behind::kReadOnly, kWhole)},
    };
}

}  // namespace oisctl
